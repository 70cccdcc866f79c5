#include "platform/ini.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "base/ascii.h"
#include "base/text.h"
#include "platform/files.h"

namespace velmora::platform {

namespace {

// A settings file has some hundred bytes. A file larger than this is something else, and counts as
// missing.
constexpr std::uint32_t kMaxFileSize = 16 << 20;

std::string ReadWholeFile(const std::string& path) {
  InputFile file(path);
  if (!file.IsOpen() || file.Size() > kMaxFileSize) return {};
  std::string bytes(file.Size(), '\0');
  bytes.resize(file.Read(bytes.data(), static_cast<std::uint32_t>(bytes.size())));
  return bytes;
}

// Without white space, or the Ctrl-Z with which DOS programs end a text.
std::string_view WithoutSpace(std::string_view text) { return Trimmed(text, " \t\n\v\f\r\x1A"); }

// Cuts the next line off a non-empty text and returns it without the white space around it. CR and
// LF each end a line; the empty line between CR and LF does no harm.
std::string_view TakeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
  const std::string_view line = WithoutSpace(text.substr(0, end));
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

// The name between the brackets of a section line; nothing for any other line.
std::optional<std::string_view> SectionName(std::string_view line) {
  const std::size_t end = line.rfind(']');
  if (line.empty() || line.front() != '[' || end == line.npos) return std::nullopt;
  return WithoutSpace(line.substr(1, end - 1));
}

// The text after the first line of that section.
std::string_view AfterSection(std::string_view text, std::string_view section) {
  while (!text.empty()) {
    const auto name = SectionName(TakeLine(text));
    if (name && EqualWithoutCase(*name, section)) return text;
  }
  return {};
}

// The value of the first line of that key, up to the next section.
std::string_view FindValue(std::string_view text, std::string_view key) {
  while (!text.empty()) {
    const std::string_view line = TakeLine(text);
    if (SectionName(line)) break;
    const std::size_t equals = std::min(line.find('='), line.size());
    if (!EqualWithoutCase(WithoutSpace(line.substr(0, equals)), key)) continue;
    return WithoutSpace(line.substr(std::min(equals + 1, line.size())));
  }
  return {};
}

std::string_view WithoutQuotes(std::string_view value) {
  if (value.size() < 2 || value.front() != value.back()) return value;
  if (value.front() != '"' && value.front() != '\'') return value;
  return value.substr(1, value.size() - 2);
}

}  // namespace

std::string ReadIniValue(const std::string& path, const char* section, const std::string& key,
                         std::size_t bufferSize) {
  const std::string file = ReadWholeFile(path);
  std::string_view text = file;
  text = WithoutByteOrderMark(text);
  std::string_view value = FindValue(AfterSection(text, section), key);
  value = value.substr(0, value.find('\0'));
  return std::string(CutText(WithoutQuotes(value), bufferSize - 1));
}

}  // namespace velmora::platform

#include "publish/common/list_path.h"

#include <algorithm>
#include <array>

#include "base/ascii.h"
#include "base/text.h"

namespace velmora::publish {
namespace {

void AppendFolded(std::string& folded, std::string_view character) {
  constexpr char kFullWidth = '\x82';  // A to Z at 60 to 79, a to z at 81 to 9A
  if (character.size() == 1) {
    folded += LowerCase(character[0]);
  } else if (character[0] == kFullWidth && character[1] >= 0x60 && character[1] <= 0x79) {
    constexpr int kToSmall = 0x21;
    folded += kFullWidth;
    folded += static_cast<char>(character[1] + kToSmall);
  } else {
    folded += character;
  }
}

std::string Folded(std::string_view text) {
  std::string folded;
  for (const std::string_view character : Characters(text)) AppendFolded(folded, character);
  return folded;
}

std::string_view WithoutTrailingDots(std::string_view element) {
  const std::size_t last = element.find_last_not_of(". ");
  return last == std::string_view::npos ? std::string_view() : element.substr(0, last + 1);
}

bool IsDangerous(std::string_view element) {
  if (element.empty() || element == ".") return false;
  return element == ".." || element.back() == '.' || element.back() == ' ' || NamesDevice(element);
}

}  // namespace

std::vector<std::string_view> PathElements(std::string_view path) {
  std::vector<std::string_view> elements;
  const char* start = path.data();
  const auto addUpTo = [&](const char* end) {
    elements.emplace_back(start, static_cast<std::size_t>(end - start));
    start = end + 1;
  };
  for (const std::string_view character : Characters(path)) {
    if (IsSeparator(character[0])) addUpTo(character.data());
  }
  addUpTo(path.data() + path.size());
  return elements;
}

std::string FoldedPath(std::string_view path) {
  std::string folded;
  for (const std::string_view element : PathElements(path)) {
    const std::string_view name = element == ".." ? element : WithoutTrailingDots(element);
    if (name.empty()) continue;
    if (!folded.empty()) folded += '\\';
    folded += Folded(name);
  }
  return folded;
}

bool NamesFolder(std::string_view path) {
  const auto elements = PathElements(path);
  return elements.size() > 1 && elements.back().empty();
}

std::vector<std::string_view> FoldersAbove(std::string_view foldedPath) {
  std::vector<std::string_view> folders;
  for (const std::string_view character : Characters(foldedPath)) {
    if (character != "\\") continue;
    folders.push_back(
        foldedPath.substr(0, static_cast<std::size_t>(character.data() - foldedPath.data())));
  }
  return folders;
}

bool IsPatchersOwn(std::string_view foldedPath) {
  const auto& inRoot = kPatchersOwnInRoot;
  return std::find(inRoot.begin(), inRoot.end(), foldedPath) != inRoot.end() ||
         PathElements(foldedPath).back() == "_velmoraupdate.new";
}

bool NamesDevice(std::string_view element) {
  static constexpr std::array<std::string_view, 6> kDevices = {"con", "prn",    "aux",
                                                               "nul", "conin$", "conout$"};
  const std::string name =
      Folded(WithoutTrailingDots(element.substr(0, std::min(element.find('.'), element.size()))));
  if (std::find(kDevices.begin(), kDevices.end(), name) != kDevices.end()) return true;
  return name.size() == 4 && (name.starts_with("com") || name.starts_with("lpt")) &&
         name[3] >= '1' && name[3] <= '9';
}

bool HoldsForbiddenCharacter(std::string_view path) {
  // The second byte of a double-byte character may look like one.
  for (const std::string_view character : Characters(path)) {
    if (std::string_view("<>:\"|*?").find(character[0]) != std::string_view::npos) return true;
  }
  return false;
}

bool LeavesInstallation(std::string_view path) {
  if (path.find(':') != std::string_view::npos) return true;
  const auto elements = PathElements(path);
  if (elements.size() > 1 && elements.front().empty()) return true;
  return std::any_of(elements.begin(), elements.end(), IsDangerous);
}

bool IsCodePageText(std::string_view text) {
  for (const std::string_view character : Characters(text)) {
    const auto byte = static_cast<unsigned char>(character[0]);
    const bool isHalf = character.size() == 1 && IsLeadByte(character[0]);
    if (isHalf || byte == 0x80 || byte == 0xA0 || byte > 0xFC) return false;
  }
  return true;
}

bool HoldsBackslashInCharacter(std::string_view path) {
  for (const std::string_view character : Characters(path)) {
    if (character.size() == 2 && character[1] == '\\') return true;
  }
  return false;
}

std::string WithBackslashes(std::string path) {
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

bool NeverMatches(std::string_view pattern) {
  const std::size_t end = pattern.find(';');  // no double-byte character holds one
  if (end != std::string_view::npos && NeverMatches(pattern.substr(end + 1))) return true;
  const std::string_view first = pattern.substr(0, end);
  if (first.find_first_of("/:") != std::string_view::npos) return true;
  const auto elements = PathElements(first);
  return elements.size() > 1 &&
         std::any_of(elements.begin(), elements.end(), [](std::string_view element) {
           return element.empty() || element == "." || element == "..";
         });
}

std::string ServedPath(const std::string& listPath) {
  std::string served = listPath;
  std::replace(served.begin(), served.end(), '\\', '/');
  return served;
}

}  // namespace velmora::publish

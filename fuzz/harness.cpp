#include "harness.h"

#include <openssl/evp.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

#include "base/text.h"

namespace velmora::fuzz {

namespace fs = std::filesystem;

namespace {

constexpr char kLogFile[] = "session.log";
constexpr char kMemory[] = "/dev/shm";

// In memory if nothing else is asked for: a target writes some files for each input.
fs::path PlaceForFolders() {
  const bool isAsked = std::getenv("TMPDIR") != nullptr;
  return isAsked || !fs::is_directory(kMemory) ? fs::temp_directory_path() : fs::path(kMemory);
}

class ScratchFolder {
 public:
  ScratchFolder() : path_(PlaceForFolders()) {
    path_ /= "velmora-fuzz-" + std::to_string(std::random_device()());
    fs::create_directories(path_ / kLogFile);
    fs::current_path(path_);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    fs::current_path(path_.parent_path(), ignored);
    fs::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  static void Empty() {
    for (const fs::directory_entry& entry : fs::directory_iterator(".")) {
      if (entry.path().filename() != kLogFile) fs::remove_all(entry.path());
    }
  }

 private:
  fs::path path_;
};

}  // namespace

void Require(bool holds, std::string_view what, std::string_view detail) {
  if (holds) return;
  const std::string message =
      "property doesn't hold: " + std::string(what) + "\n  for: " + std::string(detail) + "\n";
  std::fwrite(message.data(), 1, message.size(), stderr);
  std::abort();
}

std::string_view TextOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

std::string_view TakeLine(std::string_view& rest) {
  const std::size_t length = std::min(rest.find('\n'), rest.size());
  const std::string_view line = rest.substr(0, length);
  rest.remove_prefix(std::min(length + 1, rest.size()));
  return line;
}

std::vector<std::string_view> LinesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) lines.push_back(TakeLine(text));
  return lines;
}

Parts::Parts(std::string_view input) {
  while (!input.empty()) {
    const std::string_view line = TakeLine(input);
    if (line.empty()) break;
    const std::size_t blank = std::min(line.find(' '), line.size());
    values_.emplace(line.substr(0, blank), line.substr(std::min(blank + 1, line.size())));
  }
  body_ = input;
}

std::string Parts::Value(std::string_view name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? "" : found->second;
}

bool Parts::Has(std::string_view name) const { return values_.find(name) != values_.end(); }

std::vector<std::int32_t> Parts::Numbers(std::string_view name) const {
  std::istringstream words(Value(name));
  std::vector<std::int32_t> numbers;
  for (std::string word; words >> word;) numbers.push_back(ToNumber(word));
  return numbers;
}

void EnterEmptyFolder() {
  static const ScratchFolder folder;
  ScratchFolder::Empty();
}

void WriteFile(const std::string& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::optional<std::string> ReadFile(const std::string& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  return std::string{std::istreambuf_iterator<char>(file), {}};
}

std::string DigestLike(std::string_view reference, std::string_view bytes) {
  const EVP_MD* const kind = reference.size() == 32 ? EVP_md5() : EVP_sha1();
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  Require(EVP_Digest(bytes.data(), bytes.size(), digest, &length, kind, nullptr) == 1, "digests");
  std::string text;
  for (unsigned int i = 0; i < length; ++i) text += FormatText("%02X", digest[i]);
  return text;
}

std::string Compressed(std::string_view bytes) {
  uLongf length = compressBound(static_cast<uLong>(bytes.size()));
  std::string stream(length, '\0');
  compress(reinterpret_cast<Bytef*>(stream.data()), &length,
           reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uLong>(bytes.size()));
  stream.resize(length);
  return stream;
}

std::optional<std::string> Expanded(std::string_view stream, std::size_t limit, std::size_t& used) {
  z_stream state{};
  if (inflateInit(&state) != Z_OK) return std::nullopt;
  std::string content(limit + 1, '\0');  // a byte more, so that too much shows
  state.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(stream.data()));
  state.avail_in = static_cast<uInt>(stream.size());
  state.next_out = reinterpret_cast<Bytef*>(content.data());
  state.avail_out = static_cast<uInt>(content.size());
  const int result = inflate(&state, Z_FINISH);
  content.resize(state.total_out);
  used = state.total_in;
  inflateEnd(&state);
  if (result != Z_STREAM_END || content.size() > limit) return std::nullopt;
  return content;
}

}  // namespace velmora::fuzz

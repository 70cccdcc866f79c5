#include "harness.h"

#include <openssl/evp.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velmora::fuzz::CheckInput({reinterpret_cast<const char*>(data), size});
  return 0;
}

namespace velmora::fuzz {

namespace fs = std::filesystem;

namespace {

constexpr char kLogFile[] = "session.log";

// In memory if nothing else is asked for: a target writes some files for each input.
struct ScratchFolder {
  ScratchFolder() {
    const bool isAsked = std::getenv("TMPDIR") != nullptr || !fs::is_directory("/dev/shm");
    path = (isAsked ? fs::temp_directory_path() : fs::path("/dev/shm")) /
           ("velmora-fuzz-" + std::to_string(std::random_device()()));
    fs::create_directories(path / kLogFile);
    fs::current_path(path);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  fs::path path;
};

std::string Compressed(std::string_view bytes) {
  uLongf length = compressBound(static_cast<uLong>(bytes.size()));
  std::string stream(length, '\0');
  compress(reinterpret_cast<Bytef*>(stream.data()), &length,
           reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uLong>(bytes.size()));
  stream.resize(length);
  return stream;
}

}  // namespace

void Require(bool holds, std::string_view what, std::string_view detail) {
  if (holds) return;
  const std::string message =
      "property doesn't hold: " + std::string(what) + "\n  for: " + std::string(detail) + "\n";
  std::fwrite(message.data(), 1, message.size(), stderr);
  std::abort();
}

std::string_view TakeLine(std::string_view& rest) {
  const std::string_view line = rest.substr(0, rest.find('\n'));
  rest.remove_prefix(std::min(line.size() + 1, rest.size()));
  return line;
}

std::vector<std::string_view> LinesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) lines.push_back(TakeLine(text));
  return lines;
}

void EnterEmptyFolder() {
  static const ScratchFolder folder;
  for (const fs::directory_entry& entry : fs::directory_iterator(".")) {
    if (entry.path().filename() != kLogFile) fs::remove_all(entry.path());
  }
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

Delivery::Delivery(std::string_view input) {
  while (!input.empty()) {
    const std::string_view line = TakeLine(input);
    if (line.empty()) break;
    const std::size_t space = std::min(line.find(' '), line.size());
    values.emplace(line.substr(0, space), line.substr(std::min(space + 1, line.size())));
  }
  const std::string content(input);
  body = (Has("pack") ? Compressed(content) : content) + (Has("tail") ? values["tail"] : "");
  const auto valueOr = [this](const std::string& name, const std::string& right) {
    return !Has(name) || values[name] == "=" ? right : values[name];
  };
  const auto hash = [&](const std::string& name, const std::string& bytes) {
    const bool isMd5 = Has(name) && values[name] == "md5";
    return isMd5 ? DigestLike(std::string(32, ' '), bytes) : valueOr(name, DigestLike("", bytes));
  };
  record = {.path = valueOr("path", "file"),
            .transferHash = hash("hash", body),
            .transferSize = valueOr("size", std::to_string(body.size())),
            .contentHash = hash("content-hash", content),
            .contentSize = valueOr("content-size", std::to_string(content.size())),
            .compressed = Has("compressed")};
  status = valueOr("status", "200");
  length = valueOr("length", std::to_string(body.size()));
  if (length == "none") length.reset();
}

std::vector<std::int32_t> Delivery::Numbers(const std::string& name) {
  std::istringstream words(Has(name) ? values[name] : "");
  std::vector<std::int32_t> numbers;
  for (std::string word; words >> word;) numbers.push_back(ToNumber(word));
  return numbers;
}

}  // namespace velmora::fuzz

// What the fuzz targets share: properties that end the process when they don't hold, inputs of
// several parts, and a folder of their own to work in. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The target: takes any bytes and gives 0. A property that doesn't hold ends the process.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace velmora::fuzz {

// Ends the process with a message unless `holds`. `detail` is what the property failed for.
void Require(bool holds, std::string_view what, std::string_view detail = {});

[[nodiscard]] std::string_view TextOf(const std::uint8_t* data, std::size_t size);

// Takes the next line off `rest`: up to LF or the end, without the LF.
std::string_view TakeLine(std::string_view& rest);

// All lines of a text, the last one without LF as well.
[[nodiscard]] std::vector<std::string_view> LinesOf(std::string_view text);

// An input of several parts, readable as text: lines "name value" up to an empty line, and behind
// it one part of any bytes.
class Parts {
 public:
  explicit Parts(std::string_view input);

  // Empty if there is no such line; of several the first.
  [[nodiscard]] std::string Value(std::string_view name) const;
  [[nodiscard]] bool Has(std::string_view name) const;
  [[nodiscard]] std::vector<std::int32_t> Numbers(std::string_view name) const;
  [[nodiscard]] const std::string& Body() const { return body_; }

 private:
  std::map<std::string, std::string, std::less<>> values_;
  std::string body_;
};

// Makes an empty folder the working directory, once per process, and empties it again at each call.
// Nothing can be logged there: "session.log" is a folder.
void EnterEmptyFolder();

void WriteFile(const std::string& path, std::string_view bytes);
[[nodiscard]] std::optional<std::string> ReadFile(const std::string& path);

// The digest of `bytes` as a list holds it: MD5 if `reference` has 32 bytes, else SHA-1.
[[nodiscard]] std::string DigestLike(std::string_view reference, std::string_view bytes);

[[nodiscard]] std::string Compressed(std::string_view bytes);
// What a zlib stream at the beginning of `stream` holds, if it is whole and holds at most `limit`
// bytes; `used` is its length.
[[nodiscard]] std::optional<std::string> Expanded(std::string_view stream, std::size_t limit,
                                                  std::size_t& used);

}  // namespace velmora::fuzz

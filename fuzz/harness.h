// What the fuzz targets share: properties that end the process when they don't hold, inputs of
// several parts, and a folder of their own to work in. One thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "engine/file_record.h"

namespace velmora::fuzz {

// The target: takes any bytes. A property that doesn't hold ends the process.
void CheckInput(std::string_view input);

// Ends the process with a message unless `holds`. `detail` is what the property failed for.
void Require(bool holds, std::string_view what, std::string_view detail = {});

// Takes the next line off `rest`: up to LF or the end, without the LF.
std::string_view TakeLine(std::string_view& rest);
// All lines of a text, the last one without LF as well.
[[nodiscard]] std::vector<std::string_view> LinesOf(std::string_view text);

// Makes an empty folder the working directory, once per process, and empties it again at each call.
// Nothing can be logged there: "session.log" is a folder.
void EnterEmptyFolder();
void WriteFile(const std::string& path, std::string_view bytes);
[[nodiscard]] std::optional<std::string> ReadFile(const std::string& path);

// The digest of `bytes` as a list holds it: MD5 if `reference` has 32 bytes, else SHA-1.
[[nodiscard]] std::string DigestLike(std::string_view reference, std::string_view bytes);

// What a zlib stream at the beginning of `stream` holds, if it is whole and holds at most `limit`
// bytes; `used` is its length.
[[nodiscard]] std::optional<std::string> Expanded(std::string_view stream, std::size_t limit,
                                                  std::size_t& used);

// A record and the answer to its request. Its input: lines "name value", an empty line, the body.
//   path, hash, size, content-hash, content-size   the record; "=" is what would be right, and
//                     "md5" is the right one of that kind
//   compressed        the record is compressed
//   pack              the body given is the content, served as a zlib stream
//   tail TEXT         follows the body
//   status, length    the answer's; 200 and the body's length if there is no such line
// Further lines are the target's.
struct Delivery {
  explicit Delivery(std::string_view input);
  [[nodiscard]] bool Has(const std::string& name) const { return values.contains(name); }
  [[nodiscard]] std::vector<std::int32_t> Numbers(const std::string& name);

  std::map<std::string, std::string> values;
  FileRecord record;
  std::string status;
  std::optional<std::string> length;
  std::string body;
};

}  // namespace velmora::fuzz

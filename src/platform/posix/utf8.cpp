#include "platform/utf8.h"

#include <iconv.h>

#include <algorithm>

#include "base/ascii.h"
#include "base/text.h"

namespace velmora::platform {
namespace {

char WithoutControl(char c) {
  if (c == '\n') return c;
  if (c == '\t') return ' ';
  return IsControl(c) ? '?' : c;
}

// The system's conversion from code page 932 to UTF-8. If it has none, every character becomes '?'.
class Conversion {
 public:
  Conversion() : handle_(iconv_open("UTF-8", "CP932")) {}
  ~Conversion() {
    if (IsOpen()) iconv_close(handle_);
  }
  Conversion(const Conversion&) = delete;
  Conversion& operator=(const Conversion&) = delete;

  // One character in UTF-8, or '?'.
  [[nodiscard]] std::string Convert(std::string_view character) const {
    if (!IsOpen()) return "?";
    std::string from(character);
    char to[8];
    char* in = from.data();
    char* out = to;
    std::size_t inLeft = from.size();
    std::size_t outLeft = sizeof to;
    if (iconv(handle_, &in, &inLeft, &out, &outLeft) == static_cast<std::size_t>(-1)) {
      iconv(handle_, nullptr, nullptr, nullptr, nullptr);
      return "?";
    }
    return std::string(to, out);
  }

 private:
  [[nodiscard]] bool IsOpen() const { return handle_ != reinterpret_cast<iconv_t>(-1); }

  iconv_t handle_;
};

}  // namespace

std::string ToUtf8(std::string_view text) {
  std::string harmless(text);
  std::transform(harmless.begin(), harmless.end(), harmless.begin(), WithoutControl);

  const Conversion conversion;
  std::string utf8;
  for (const std::string_view character : Characters(harmless)) {
    if (IsAscii(character[0])) {
      utf8 += character;
    } else {
      utf8 += conversion.Convert(character);
    }
  }
  return utf8;
}

}  // namespace velmora::platform

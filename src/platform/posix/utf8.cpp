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

// A conversion of the system. If it has none, nothing can be converted.
class Conversion {
 public:
  Conversion(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
  ~Conversion() {
    if (IsOpen()) iconv_close(handle_);
  }
  Conversion(const Conversion&) = delete;
  Conversion& operator=(const Conversion&) = delete;

  // Nothing if the text has no equivalent.
  [[nodiscard]] std::optional<std::string> Convert(std::string_view text) const {
    if (!IsOpen()) return std::nullopt;
    std::string from(text);
    std::string to(4 * text.size(), '\0');
    char* in = from.data();
    char* out = to.data();
    std::size_t inLeft = from.size();
    std::size_t outLeft = to.size();
    if (iconv(handle_, &in, &inLeft, &out, &outLeft) == static_cast<std::size_t>(-1)) {
      iconv(handle_, nullptr, nullptr, nullptr, nullptr);
      return std::nullopt;
    }
    to.resize(to.size() - outLeft);
    return to;
  }

 private:
  [[nodiscard]] bool IsOpen() const { return handle_ != reinterpret_cast<iconv_t>(-1); }

  iconv_t handle_;
};

// Opening one takes longer than using it, and no two threads may use the same.
const Conversion& ToUtf8Conversion() {
  thread_local const Conversion conversion("UTF-8", "CP932");
  return conversion;
}

const Conversion& FromUtf8Conversion() {
  thread_local const Conversion conversion("CP932", "UTF-8");
  return conversion;
}

}  // namespace

std::string ToUtf8(std::string_view text) {
  std::string harmless(text);
  std::transform(harmless.begin(), harmless.end(), harmless.begin(), WithoutControl);

  const Conversion& conversion = ToUtf8Conversion();
  std::string utf8;
  for (const std::string_view character : Characters(harmless)) {
    if (IsAscii(character[0])) {
      utf8 += character;
    } else {
      utf8 += conversion.Convert(character).value_or("?");
    }
  }
  return utf8;
}

std::optional<std::string> FromUtf8(std::string_view utf8) {
  std::optional<std::string> text = FromUtf8Conversion().Convert(utf8);
  if (!text || ToUtf8(*text) != utf8) return std::nullopt;
  return text;
}

}  // namespace velmora::platform

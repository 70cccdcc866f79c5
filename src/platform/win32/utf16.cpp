#include "platform/win32/utf16.h"

#include <windows.h>

namespace velmora::platform {

std::wstring ToUtf16(std::string_view text, unsigned codePage) {
  const int size = static_cast<int>(text.size());
  const int length = MultiByteToWideChar(codePage, 0, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(codePage, 0, text.data(), size, wide.data(), length);
  return wide;
}

std::string FromUtf16(std::wstring_view text, unsigned codePage) {
  const int length = static_cast<int>(text.size());
  const int size =
      WideCharToMultiByte(codePage, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(codePage, 0, text.data(), length, bytes.data(), size, nullptr, nullptr);
  return bytes;
}

}  // namespace velmora::platform

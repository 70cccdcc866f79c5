#include "platform/win32/wide_text.h"

#include <windows.h>

namespace velmora::platform {
namespace {

constexpr UINT kCodePage = 932;

}  // namespace

std::wstring WideText(std::string_view text) {
  const int size = static_cast<int>(text.size());
  const int length = MultiByteToWideChar(kCodePage, 0, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(kCodePage, 0, text.data(), size, wide.data(), length);
  return wide;
}

std::string ReadableText(std::wstring_view text) {
  const int length = static_cast<int>(text.size());
  const int size =
      WideCharToMultiByte(kCodePage, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string readable(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(kCodePage, 0, text.data(), length, readable.data(), size, nullptr, nullptr);
  return readable;
}

}  // namespace velmora::platform

#include "platform/win32/wide_text.h"

#include <windows.h>

namespace velmora::platform {
namespace {

constexpr UINT kCodePage = 932;

std::string Converted(std::wstring_view text, DWORD flags, BOOL* lost) {
  const int length = static_cast<int>(text.size());
  const int size =
      WideCharToMultiByte(kCodePage, flags, text.data(), length, nullptr, 0, nullptr, lost);
  std::string converted(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(kCodePage, flags, text.data(), length, converted.data(), size, nullptr, lost);
  return converted;
}

}  // namespace

std::wstring WideText(std::string_view text) {
  const int size = static_cast<int>(text.size());
  const int length = MultiByteToWideChar(kCodePage, 0, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(kCodePage, 0, text.data(), size, wide.data(), length);
  return wide;
}

std::optional<std::string> ExactText(std::wstring_view text) {
  BOOL lost = FALSE;
  std::string exact = Converted(text, WC_NO_BEST_FIT_CHARS, &lost);
  if (lost) return std::nullopt;
  return exact;
}

std::string ReadableText(std::wstring_view text) { return Converted(text, 0, nullptr); }

}  // namespace velmora::platform

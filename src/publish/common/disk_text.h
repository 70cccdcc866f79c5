// Names and paths as this machine's disks hold them, Unicode on Windows and elsewhere bytes that
// are mostly UTF-8 (RFC 3629), and as lists hold them, in code page 932. Pure; safe from any
// thread.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/disk.h"

namespace velmora::publish {

// Takes the first character off a text that isn't empty. Nothing, and the text is as it was, if it
// doesn't begin with a character in UTF-8.
[[nodiscard]] std::optional<char32_t> TakeCharacter(std::string_view& text);

[[nodiscard]] bool IsUtf8(std::string_view text);

using platform::PathOf;
using platform::TextOf;

// What the bytes of names on a disk are. Where names are Unicode, they are always kUtf8.
enum class NameEncoding {
  kGuess,  // UTF-8, if they can be read so and have a form in code page 932; otherwise kBytes
  kUtf8,
  kBytes,  // what lists hold
};

// A name that is in UTF-8 in code page 932.
struct CodePageName {
  std::string text;
  // The characters without a form there from which Windows would get the same name back. In `text`
  // they are replaced by similar ones, or by underscores.
  std::u32string missing;
};

// Nothing if the name isn't in UTF-8.
[[nodiscard]] std::optional<CodePageName> InCodePage(std::string_view name);

// A name as lists hold it. One that doesn't have the encoding, or no form in code page 932, keeps
// its bytes.
[[nodiscard]] std::string ListedName(const std::string& name, NameEncoding encoding);

// `path` in UTF-8, on one line, for the publisher's terminal and for JSON. An element that isn't
// UTF-8 is read as code page 932. Control characters, and bytes that are neither, become '?'.
[[nodiscard]] std::string ShownPath(std::string_view path);
[[nodiscard]] std::string ShownPath(const std::filesystem::path& path);
[[nodiscard]] inline std::string ShownPath(const std::string& path) {
  return ShownPath(std::string_view(path));
}

}  // namespace velmora::publish

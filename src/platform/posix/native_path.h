// Turns the program's paths, whose separators are backslashes, into this system's. A backslash that
// is the second byte of a double-byte character of code page 932 belongs to a name.
//
// Pure; safe from any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace velmora::platform {

inline constexpr std::string_view kBackslash = "\\";
inline constexpr std::string_view kBackslashOrSlash = "\\/";

// The position of the first single-byte character of `wanted` at or after `from`, or npos. `from`
// must be where a character begins.
[[nodiscard]] std::size_t FindCharacter(std::string_view text, std::string_view wanted,
                                        std::size_t from = 0);

// The position of the last single-byte character of `wanted`, or npos.
[[nodiscard]] std::size_t FindLastCharacter(std::string_view text, std::string_view wanted);

// The elements between separators, empty ones included. They point into `text`.
[[nodiscard]] std::vector<std::string_view> SplitPath(std::string_view text,
                                                      std::string_view separators);

// Drops "." and empty elements, and resolves ".." by the text alone, as Windows does: it removes
// the element before it, whatever that is on disk. If there is none, ".." stays in a relative path
// and is dropped from one that starts at a root.
void ResolveElements(std::vector<std::string_view>& elements, bool fromRoot);

[[nodiscard]] std::string JoinElements(const std::vector<std::string_view>& elements,
                                       char separator);

// `path` with slashes, for system calls; a separator at its end stays. Empty, which names nothing,
// for an empty path and for one with a zero byte, where a call would stop reading.
[[nodiscard]] std::string NativePath(std::string_view path);

// Whether the name of a directory entry, as part of a path, is read as that one name. A backslash
// in it would be a separator; half a double-byte character at the end of a directory's name would
// swallow the separator after it.
[[nodiscard]] bool CanBeElement(std::string_view name, bool isDirectory);

}  // namespace velmora::platform

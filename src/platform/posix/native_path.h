// Paths of the program as this system spells them. The program separates directories by
// backslashes; a backslash that stands second in a double-byte character of code page 932 belongs
// to a name.
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

// Position of the first single-byte character of `wanted` at or behind `from`, or npos. `from` must
// be where a character begins.
[[nodiscard]] std::size_t FindCharacter(std::string_view text, std::string_view wanted,
                                        std::size_t from = 0);

// Position of the last single-byte character of `wanted`, or npos.
[[nodiscard]] std::size_t FindLastCharacter(std::string_view text, std::string_view wanted);

// The elements between separators, empty ones included: one more than there are separators. They
// point into `text`.
[[nodiscard]] std::vector<std::string_view> SplitPath(std::string_view text,
                                                      std::string_view separators);

// Drops "." and empty elements, and works out ".." by the text alone, as Windows does: it takes the
// element in front of it away, whatever that is on disk. Where there is none, ".." stays in a
// relative path and is dropped in one that starts at a root.
void ResolveElements(std::vector<std::string_view>& elements, bool fromRoot);

[[nodiscard]] std::string JoinElements(const std::vector<std::string_view>& elements,
                                       char separator);

// `path` with slashes, for system calls; a separator at its end stays. Empty, which is the name of
// nothing, for an empty path and for one with a zero byte, behind which a call wouldn't look.
[[nodiscard]] std::string NativePath(std::string_view path);

// Whether a directory entry's name reads back from a path as that one name. A backslash of its own
// would separate; half a double-byte character at its end would swallow the separator behind a
// directory.
[[nodiscard]] bool CanBeElement(std::string_view name, bool isDirectory);

}  // namespace velmora::platform

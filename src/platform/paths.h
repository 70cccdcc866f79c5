// Operations on the text of paths; none of them accesses a disk. They follow Windows' path helpers.
// A backslash inside a double-byte character is no separator. Pure; safe from any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace velmora::platform {

// Path buffers hold 260 bytes, terminator included.
inline constexpr std::size_t kMaxPath = 259;

// `directory` and `name` joined by exactly one backslash, with "." and ".." elements resolved.
// Nothing if the result has more than kMaxPath bytes.
[[nodiscard]] std::optional<std::string> JoinPath(const std::string& directory,
                                                  const std::string& name);

// Whether all of `path` matches `pattern`, or one of several patterns between semicolons. "*"
// matches any text, backslashes included, "?" any one character. Case doesn't matter. "*.*" alone
// matches every path.
[[nodiscard]] bool MatchPathPattern(const std::string& path, const std::string& pattern);

// The last element of `path`, which is all of it if it has no directory.
[[nodiscard]] std::string LastPathElement(const std::string& path);

// `path` without its last element and the separator before it; a root keeps its separator.
[[nodiscard]] std::string WithoutLastPathElement(const std::string& path);

}  // namespace velmora::platform

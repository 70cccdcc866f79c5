// Operations on the text of paths, none of which looks at a disk. They follow Windows' path
// helpers; where directory texts have slashes, a slash separates like a backslash. Backslashes
// inside double-byte characters separate nothing. Pure; safe from any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace velmora::platform {

// Path buffers hold 260 bytes, terminator included.
inline constexpr std::size_t kMaxPath = 259;

// `directory` and `name` joined by exactly one backslash, "." and ".." elements worked out and a
// leading ".\" dropped. Nothing if the result has more than kMaxPath bytes.
[[nodiscard]] std::optional<std::string> JoinPath(const std::string& directory,
                                                  const std::string& name);

// Whether the whole of `path` matches `pattern`: "*" is any text, backslashes included, "?" is any
// one character; case doesn't count; "*.*" matches every path.
[[nodiscard]] bool MatchPathPattern(const std::string& path, const std::string& pattern);

// The last element of `path`; a name without a directory comes back whole.
[[nodiscard]] std::string LastPathElement(const std::string& path);

// `path` without its last element and the separator in front of it; a root keeps its separator.
[[nodiscard]] std::string WithoutLastPathElement(const std::string& path);

}  // namespace velmora::platform

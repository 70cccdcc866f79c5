#include "platform/paths.h"

#include <shlwapi.h>
#include <windows.h>

#include <algorithm>
#include <array>

#include "base/text.h"

namespace velmora::platform {

namespace {

using PathBuffer = std::array<char, kMaxPath + 1>;

// PathAppendA takes "..", whatever follows it in an element, for the parent directory, and would
// name another file.
bool HasMisreadElement(std::string_view path) {
  std::string element;
  for (const std::string_view character : Characters(path)) {
    if (character == "\\") {
      element.clear();
    } else {
      element += character;
    }
    if (element.size() > 2 && element.starts_with("..")) return true;
  }
  return false;
}

bool EndsWithBackslash(std::string_view path) {
  std::string_view last;
  for (const std::string_view character : Characters(path)) last = character;
  return last == "\\";
}

std::size_t JoinedLength(std::string_view directory, std::string_view name) {
  return directory.size() + (EndsWithBackslash(directory) ? 0 : 1) + name.size();
}

}  // namespace

std::optional<std::string> JoinPath(const std::string& directory, const std::string& name) {
  // A name that begins with two backslashes or a drive is absolute and would replace the directory.
  const std::string relative = name.substr(std::min(name.find_first_not_of('\\'), name.size()));
  if (relative.find(':') != std::string::npos) return std::nullopt;
  if (HasMisreadElement(directory) || HasMisreadElement(relative)) return std::nullopt;
  if (JoinedLength(directory, relative) > kMaxPath) return std::nullopt;

  PathBuffer path{};
  directory.copy(path.data(), kMaxPath);
  if (!PathAppendA(path.data(), relative.c_str())) return std::nullopt;
  // When ".." removes the whole of a relative directory, PathAppendA leaves the root of the drive.
  if (path.front() == '\\' && !directory.starts_with('\\')) return std::nullopt;
  return path.data();
}

bool MatchPathPattern(const std::string& path, const std::string& pattern) {
  return PathMatchSpecA(path.c_str(), pattern.c_str()) != FALSE;
}

std::string LastPathElement(const std::string& path) { return PathFindFileNameA(path.c_str()); }

std::string WithoutLastPathElement(const std::string& path) {
  std::string directory = path;
  PathRemoveFileSpecA(directory.data());
  return directory.c_str();
}

}  // namespace velmora::platform

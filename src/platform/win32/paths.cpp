#include "platform/paths.h"

#include <shlwapi.h>
#include <windows.h>

#include <algorithm>
#include <array>

#include "base/text.h"

namespace velmora::platform {

namespace {

using PathBuffer = std::array<char, kMaxPath + 1>;

// Where the element that begins at `begin` ends.
std::size_t ElementEnd(std::string_view path, std::size_t begin) {
  std::size_t end = begin;
  while (end < path.size() && path[end] != '\\') end += CharacterLength(path, end);
  return end;
}

// PathAppendA takes the first two dots of an element as "..", whatever follows them, and then names
// another file.
bool HasMisreadElement(std::string_view path) {
  for (std::size_t begin = 0; begin < path.size();) {
    const std::size_t end = ElementEnd(path, begin);
    const std::string_view element = path.substr(begin, end - begin);
    if (element.size() > 2 && element.starts_with("..")) return true;
    begin = end + 1;
  }
  return false;
}

bool EndsWithSeparator(std::string_view path) {
  std::size_t last = path.size();
  for (std::size_t i = 0; i < path.size(); i += CharacterLength(path, i)) last = i;
  return last < path.size() && path[last] == '\\';
}

std::size_t JoinedLength(std::string_view directory, std::string_view name) {
  return directory.size() + (EndsWithSeparator(directory) ? 0 : 1) + name.size();
}

}  // namespace

std::optional<std::string> JoinPath(const std::string& directory, const std::string& name) {
  // Two backslashes or a drive in front of a name make a path of its own, which would replace the
  // directory.
  const std::string relative = name.substr(std::min(name.find_first_not_of('\\'), name.size()));
  if (relative.find(':') != std::string::npos) return std::nullopt;
  if (HasMisreadElement(directory) || HasMisreadElement(relative)) return std::nullopt;
  if (JoinedLength(directory, relative) > kMaxPath) return std::nullopt;

  PathBuffer path{};
  directory.copy(path.data(), kMaxPath);
  if (!PathAppendA(path.data(), relative.c_str())) return std::nullopt;
  // ".." that takes a relative directory away whole leaves the root of the drive.
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

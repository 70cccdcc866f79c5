// Paths of a reference list, looked at as players' systems do: directories are separated by
// backslashes or slashes, a backslash that stands second in a double-byte character separates
// nothing, and capitals aren't told from small letters. Pure; safe from any thread.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace velmora::publish {

// The elements between the separators, empty ones and "." included.
[[nodiscard]] std::vector<std::string_view> PathElements(std::string_view path);

// What the path means on a player's disk, the same for every way to write it: in small letters (of
// ASCII and of its full-width twin), backslashes between the elements, empty elements and "."
// dropped, dots and blanks at the end of an element dropped. Empty for the installation itself.
[[nodiscard]] std::string FoldedPath(std::string_view path);

// Of a path that FoldedPath gave: the folders on its way, the outermost first.
[[nodiscard]] std::vector<std::string_view> FoldersAbove(std::string_view foldedPath);

// The files that patchers write, run or remove themselves in the root of the installation, as
// FoldedPath gives them.
inline constexpr std::array<const char*, 6> kPatchersOwnInRoot = {
    "session.log",        "velmoraupdate.cvc",   "_velmoraupdate.cvc",
    "_velmoraupdate.exe", "_velmoraupdate.dirs", "_velmoraupdate.new"};

// Whether patchers write, run or remove a file of this path, as FoldedPath returns it, themselves:
// a published one would never stay as it is.
[[nodiscard]] bool IsPatchersOwn(std::string_view foldedPath);

// Whether a name means a device on Windows, which it does in every folder and with any extension.
[[nodiscard]] bool NamesDevice(std::string_view element);

// Whether the path holds one of < > : " | * ? as a character of its own.
[[nodiscard]] bool HoldsForbiddenCharacter(std::string_view path);

// Whether a patcher that is told this path could reach beyond its installation, or another file
// than the one that is spelled: "..", a drive or a stream (any colon), a separator in front, a name
// of a device, a dot or a blank at the end of an element.
[[nodiscard]] bool LeavesInstallation(std::string_view path);

// Whether every byte belongs to a character of code page 932.
[[nodiscard]] bool IsCodePageText(std::string_view text);

// Whether a character's second byte is 0x5C, which a request turns into a slash.
[[nodiscard]] bool HoldsBackslashInCharacter(std::string_view path);

// Where the file is served, below the list's folder: the path with every byte 0x5C turned into a
// slash, which is how patchers ask for it, the second byte of a double-byte character included.
[[nodiscard]] std::string ServedPath(const std::string& listPath);

}  // namespace velmora::publish

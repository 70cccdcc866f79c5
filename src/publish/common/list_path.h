// Paths of a reference list as players' systems understand them: backslashes and slashes separate
// directories, unless a backslash is the second byte of a double-byte character, and upper and
// lower case are the same. Pure; safe from any thread.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace velmora::publish {

// The elements between the separators, including empty ones and ".".
[[nodiscard]] std::vector<std::string_view> PathElements(std::string_view path);

// The same result for all paths that mean the same file on a player's disk: in lower case (ASCII
// and its full-width letters), with backslashes between the elements, without empty elements, "."
// and the dots and spaces at the end of an element. Empty for the installation itself.
[[nodiscard]] std::string FoldedPath(std::string_view path);

// Whether a separator ends the path, so that it can only name a folder.
[[nodiscard]] bool NamesFolder(std::string_view path);

// The folders above the file of this path, which is as FoldedPath returns it; the outermost first.
[[nodiscard]] std::vector<std::string_view> FoldersAbove(std::string_view foldedPath);

// The patcher's program and settings in the root of the installation, as FoldedPath returns them.
inline constexpr char kPatcherProgram[] = "velmoraupdate.exe";
inline constexpr char kPatcherSettings[] = "velmoraupdate.dat";

// The files in the root of the installation that patchers write, run or remove themselves, as
// FoldedPath returns them.
inline constexpr std::array<const char*, 6> kPatchersOwnInRoot = {
    "session.log",        "velmoraupdate.cvc",   "_velmoraupdate.cvc",
    "_velmoraupdate.exe", "_velmoraupdate.dirs", "_velmoraupdate.new"};

// Whether patchers write, run or remove the file of this path, as FoldedPath returns it,
// themselves, so that a published one would never stay as it is.
[[nodiscard]] bool IsPatchersOwn(std::string_view foldedPath);

// Whether Windows takes a name for that of a device, which it does in every folder and with any
// extension.
[[nodiscard]] bool NamesDevice(std::string_view element);

// Whether the path contains one of < > : " | * ? as a character of its own.
[[nodiscard]] bool HoldsForbiddenCharacter(std::string_view path);

// Whether the path could lead out of the installation or to another file than it says: by "..", a
// drive or a stream (any colon), a separator at its start, the name of a device, or a dot or space
// at the end of an element.
[[nodiscard]] bool LeavesInstallation(std::string_view path);

// Whether every byte belongs to a character of code page 932.
[[nodiscard]] bool IsCodePageText(std::string_view text);

// Whether the second byte of some character is 0x5C, which becomes a slash in a request.
[[nodiscard]] bool HoldsBackslashInCharacter(std::string_view path);

// The path with a backslash for every slash, as lists separate folders. No double-byte character
// holds a slash.
[[nodiscard]] std::string WithBackslashes(std::string path);

// Whether no file on a player's disk can match the pattern, or one of those that its semicolons
// separate: patchers compare it with paths as they come upon them, relative to the installation,
// without an empty element or one of dots.
[[nodiscard]] bool NeverMatches(std::string_view pattern);

// Where patchers request the file, relative to the list's folder: the path with a slash for every
// byte 0x5C, even if that is the second byte of a double-byte character.
[[nodiscard]] std::string ServedPath(const std::string& listPath);

}  // namespace velmora::publish

// Files, folders and errors, as far as std::filesystem treats them differently on each system: on
// Windows it knows neither links nor shares, and a mark on a file, or a virus scanner that has it
// open, is in its way. Safe from any thread.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace velmora::platform {

// Has the system take paths of more than 260 characters wherever it can. To be called before any
// file is touched.
void AllowLongPaths();

// Whether disks hold names as Unicode, as on Windows. Elsewhere they hold bytes of any encoding.
[[nodiscard]] bool AreNamesUnicode();

// The text of a path as the command line and files of the tool hold it, and back: where disks hold
// bytes, these, and on Windows UTF-8, with slashes. (A path that is made of a std::string on
// Windows by itself is right for ASCII only.) UTF-16 that is no text, which Windows allows in
// names, becomes U+FFFD, and of the form for devices, "\\?\C:\a", there remains "C:\a".
[[nodiscard]] std::string TextOf(const std::filesystem::path& path);
[[nodiscard]] std::filesystem::path PathOf(std::string_view text);

// The path of which `text`, in code page 932 and with slashes, is the name: where names are
// Unicode, these characters, otherwise these bytes. Characters that the system can't hold become
// others: ListTextOf then returns another text.
[[nodiscard]] std::filesystem::path PathOfListText(std::string_view text);

// The text in code page 932, with slashes, of which PathOfListText makes `path`. If there is none,
// any other text.
[[nodiscard]] std::string ListTextOf(const std::filesystem::path& path);

// The same text for all paths that differ only in what this system's disks make no difference
// between: on Windows, upper and lower case.
[[nodiscard]] std::string NameKey(const std::filesystem::path& path);

// The name by which the patcher's operations, whose paths are byte strings, reach an existing file.
// On Windows its short name if its own has characters outside the system's code page; empty if it
// has none.
[[nodiscard]] std::string ByteNameOf(const std::filesystem::path& path);

// The path from the root, whether it exists or not. The second form leads through links.
[[nodiscard]] std::filesystem::path AbsolutePath(const std::filesystem::path& path);
[[nodiscard]] std::filesystem::path CanonicalPath(const std::filesystem::path& path);

// What is at the path itself: regular, directory, symlink (on Windows also for a junction),
// not_found, none with an error, or unknown.
[[nodiscard]] std::filesystem::file_type EntryKind(const std::filesystem::path& path,
                                                   std::error_code& error);
[[nodiscard]] std::filesystem::file_type EntryKind(const std::filesystem::path& path);

struct FolderEntry {
  std::filesystem::path path;
  std::filesystem::file_type kind = std::filesystem::file_type::unknown;  // as EntryKind tells it
};

// What is in a folder, in any order, without "." and "..". With an error the result is incomplete.
[[nodiscard]] std::vector<FolderEntry> ListFolder(const std::filesystem::path& folder,
                                                  std::error_code& error);

// Like rename, remove and remove_all of std::filesystem, and so also for a read-only file and for
// one that another program holds open for a moment.
void MoveEntry(const std::filesystem::path& from, const std::filesystem::path& to,
               std::error_code& error);
void RemoveEntry(const std::filesystem::path& path, std::error_code& error);
void RemoveEntries(const std::filesystem::path& path, std::error_code& error);

// Why the last operation of a file stream has failed, which the stream itself doesn't tell, since
// ClearStreamError was called on the same thread.
void ClearStreamError();
[[nodiscard]] std::error_code StreamError();

// What std::error_code::message says, in UTF-8, on one line.
[[nodiscard]] std::string ErrorText(const std::error_code& error);

}  // namespace velmora::platform

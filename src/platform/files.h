// Files and directories. Paths are absolute, or relative to the working directory, which the
// program never changes; backslashes separate their elements. A backslash that is the second byte
// of a double-byte character of code page 932 is no separator. Names are byte strings and are never
// converted.
//
// Safe from any thread. After a failure, LastSystemError returns the reason.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velmora::platform {

// Whether something of that name exists, whatever it is. Nothing has an empty name.
[[nodiscard]] bool FileExists(const std::string& path);
[[nodiscard]] bool IsDirectory(const std::string& path);

// Whether `path`, with or without a separator at its end, names a link: a symbolic link, on Windows
// also a junction.
[[nodiscard]] bool IsLink(const std::string& path);

// Deletes a file, or a link but not its target; the path of a link to a directory may end in a
// separator. Fails, and leaves everything as it was, if the file is missing, a directory,
// read-only, or the program of a running process.
[[nodiscard]] bool RemoveFile(const std::string& path);

// Removes an empty directory, whose path may end in a backslash. Fails for anything else.
[[nodiscard]] bool RemoveEmptyDirectory(const std::string& path);

// Copies a file, replacing an existing target. The copy may be run if the original may, and is
// never read-only. Fails if the source can't be read completely, or if the target can't be written,
// for example because it is the program of a running process.
[[nodiscard]] bool CopyFileOver(const std::string& from, const std::string& to);

// Moves the file `from` to `to`, replacing a file there. At every moment, even if the process is
// killed, the name `to` leads to one complete file, or for an instant to none. The new file takes
// over the old one's owner, rights and extended attributes; on Windows its access list, attributes
// and streams. On Windows the contents are on the disk before the file is moved.
//
// Fails, and leaves both files as they were, if `to` is read-only, hidden, a system file, open
// elsewhere, the program of a running process, a link, a file with several names, or on another
// volume. (On Windows a replacement has two steps; if it breaks off between them, the old file may
// be gone.)
[[nodiscard]] bool MoveFileOver(const std::string& from, const std::string& to);

// Whether an existing file can be opened for writing. Doesn't change it.
[[nodiscard]] bool CanBeWritten(const std::string& path);

// Whether an operation that failed with `code` may succeed moments later, for example when a virus
// scanner closes a file. It may also go on failing, so bound the wait. Always false on systems
// where an open file can be replaced.
[[nodiscard]] bool IsHeldByAnother(std::int32_t code);

// Whether `code` means that a disk is full or broken.
[[nodiscard]] bool IsDiskTrouble(std::int32_t code);

// Makes every file that MoveFileOver has moved to one of the directories survive a power failure,
// its name and its contents. On Windows the promise is one of order: such a file survives if
// anything that is written later does. Each directory ends in a backslash; "" is the working
// directory. Fails if the system can't flush.
[[nodiscard]] bool FlushFolders(const std::set<std::string>& directories);

// Makes the files in the directory, all of them closed, survive a power failure. Natively that
// includes everything else that was written or renamed on its file system; on Windows, earlier
// renames survive if a later one does. Fails if the system can't flush.
[[nodiscard]] bool FlushDirectory(const std::filesystem::path& directory);

// Creates every missing directory that `path` names before its last backslash. True if all of them
// exist afterwards, or if there is no backslash.
[[nodiscard]] bool MakeDirectoriesOf(const std::string& path);

// A file opened for reading; others may read it in the meantime, but not write it. The destructor
// closes it.
class InputFile {
 public:
  // IsOpen is false afterwards if `path` isn't a readable file.
  explicit InputFile(const std::string& path);
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  [[nodiscard]] bool IsOpen() const;
  // The low 32 bits of the file's size in bytes when it was opened.
  [[nodiscard]] std::uint32_t Size() const;
  // Continues where the last read ended. Returns the number of bytes read, which is less than
  // `size` only at the end of the file or after a failure.
  std::uint32_t Read(void* buffer, std::uint32_t size);

 private:
  std::uint32_t size_ = 0;
  std::intptr_t file_;
};

// A file opened for writing. Others may read it in the meantime, but not as an InputFile, which
// allows no writers. The destructor closes it.
class OutputFile {
 public:
  enum class Mode {
    kReplace,  // created, or truncated; fails for a hidden or system file
    kAppend,   // created if missing; every write goes to the end and isn't split
  };

  OutputFile(const std::string& path, Mode mode);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  [[nodiscard]] bool IsOpen() const;
  // True if all `size` bytes were written. On a full disk part of them may have been.
  [[nodiscard]] bool Write(const void* data, std::size_t size);
  // Makes what was written survive a power failure, as far as the file system can promise that.
  [[nodiscard]] bool Flush();
  // Closes the file before the destructor does; false if the system has lost some of it.
  bool Close();

 private:
  std::intptr_t file_;
};

struct DirectoryEntry {
  std::string name;
  bool isDirectory = false;  // not for a link to a directory
  bool isDirectoryLink = false;
};

// All entries of a directory, which is given with its last backslash: hidden ones, "." and ".."
// too, in the system's order. One that appears or vanishes meanwhile may be missing or listed.
// Nothing if the directory doesn't exist or can't be listed.
[[nodiscard]] std::optional<std::vector<DirectoryEntry>> ListDirectory(
    const std::string& directory);

// The code of this thread's last failure of an operation in this header, and the system's text for
// a code.
[[nodiscard]] std::int32_t LastSystemError();
[[nodiscard]] std::string SystemErrorText(std::int32_t code);

}  // namespace velmora::platform

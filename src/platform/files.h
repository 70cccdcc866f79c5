// Files and directories. Paths are relative to the working directory, which the program never
// changes, or absolute; their directories are separated by backslashes. A backslash that stands
// second in a double-byte character of code page 932 separates nothing. Names are byte strings and
// are never converted.
//
// Safe from any thread. A failing operation leaves the system's code for LastSystemError, per
// thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>

namespace velmora::platform {

// True if something of that name exists: a file, a directory, anything. An empty path doesn't.
[[nodiscard]] bool FileExists(const std::string& path);
[[nodiscard]] bool IsDirectory(const std::string& path);

// True if `path` names a link to somewhere else, also with a separator at its end: a symbolic link,
// on Windows a junction as well.
[[nodiscard]] bool IsLink(const std::string& path);

// Deletes a file, or a link itself, whatever it leads to; a trailing separator is allowed for a
// link to a directory. False if it is missing, a directory, read-only, or the program of a running
// process; the file is then as it was.
[[nodiscard]] bool RemoveFile(const std::string& path);

// Removes an empty directory; a trailing backslash is allowed. False for anything else.
[[nodiscard]] bool RemoveEmptyDirectory(const std::string& path);

// Copies a file with its right to be run, replacing an existing target. The copy is never
// read-only. False if the source can't be read whole or the target can't be written, as when it is
// the program of a running process.
[[nodiscard]] bool CopyFileOver(const std::string& from, const std::string& to);

// Gives the file `from` the place of `to`: at every moment, even if the process is killed, the name
// leads to one of them whole, or for an instant to none. The new file takes over what the old one
// had of its own: owner and rights, extended attributes; on Windows access list, attributes and
// streams. On Windows what the file holds is on the disk before it is moved. False if the system
// has something against it, as if `to` is read-only, hidden, a system file, held open, the program
// of a running process, a link, of several names, or on another volume; both are then as they were.
// (Should a replacement on Windows break off between its two steps, the old file may be gone by
// then.)
[[nodiscard]] bool MoveFileOver(const std::string& from, const std::string& to);

// Whether an existing file can be opened for writing, which doesn't change it.
[[nodiscard]] bool CanBeWritten(const std::string& path);

// Whether a failure of that code may pass by itself within moments, as when a virus scanner holds a
// file open. It may also last, so bound the wait. Never where an open file is in nobody's way.
[[nodiscard]] bool IsHeldByAnother(std::int32_t code);

// Whether a failure of that code comes from a disk that is full or broken.
[[nodiscard]] bool IsDiskTrouble(std::int32_t code);

// Returns when every file that was closed, and then moved by MoveFileOver, in one of the
// directories would survive a loss of power, its name and what it holds; on Windows, would
// survive it before anything that is written later does. Each directory is given with its last
// backslash; the working directory is "". False if the system fails to do that.
[[nodiscard]] bool FlushFolders(const std::set<std::string>& directories);

// Creates every directory that `path` names in front of its last backslash. True when they exist
// afterwards, which holds at once for a path without a backslash.
[[nodiscard]] bool MakeDirectoriesOf(const std::string& path);

// A file opened for reading; others may read it meanwhile, and none write. Closed by the
// destructor.
class InputFile {
 public:
  // Fails, so that IsOpen gives false, for whatever isn't a readable file.
  explicit InputFile(const std::string& path);
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  [[nodiscard]] bool IsOpen() const;
  // Size in bytes at the time of its opening, its low 32 bits.
  [[nodiscard]] std::uint32_t Size() const;
  // Reads on from where the last read ended. Gives the number of bytes read, which is less than
  // `size` at the end of the file and after a failure.
  std::uint32_t Read(void* buffer, std::uint32_t size);

 private:
  std::uint32_t size_ = 0;
  std::intptr_t file_;
};

// A file opened for writing; others may read it meanwhile, but not as an InputFile, which wants no
// writers beside it. Closed by the destructor.
class OutputFile {
 public:
  enum class Mode {
    kReplace,  // created, or cut to length zero; fails for a hidden or system file
    kAppend,   // created if missing; every write goes to the end in one piece
  };

  OutputFile(const std::string& path, Mode mode);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  [[nodiscard]] bool IsOpen() const;
  // True when all `size` bytes were taken. A full disk gives false, and part of them may stand.
  [[nodiscard]] bool Write(const void* data, std::size_t size);
  // Returns when what was written would survive a loss of power, as far as its volume can promise
  // that; false if the system failed to do it.
  [[nodiscard]] bool Flush();
  // Closes the file before the destructor does, and says whether the system kept all of it.
  bool Close();

 private:
  std::intptr_t file_;
};

struct DirectoryEntry {
  std::string name;
  bool isDirectory = false;  // a link to a directory is none
  bool isDirectoryLink = false;
};

// Lists a directory, hidden entries included, "." and ".." among them, in the system's order.
// Entries that appear or vanish meanwhile may or may not be given.
class DirectorySearch {
 public:
  // `searchPath` is a directory's path followed by a backslash and an asterisk.
  explicit DirectorySearch(const std::string& searchPath);
  ~DirectorySearch();
  DirectorySearch(const DirectorySearch&) = delete;
  DirectorySearch& operator=(const DirectorySearch&) = delete;

  // False if the directory doesn't exist or can't be listed.
  [[nodiscard]] bool Started() const;
  // Gives the next entry; false when there is none left.
  [[nodiscard]] bool Next(DirectoryEntry& entry);

 private:
  struct Listing;
  std::unique_ptr<Listing> listing_;
};

// The code of this thread's last failed operation of this header, and the system's text for a code.
[[nodiscard]] std::int32_t LastSystemError();
[[nodiscard]] std::string SystemErrorText(std::int32_t code);

}  // namespace velmora::platform

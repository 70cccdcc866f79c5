#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "base/text.h"
#include "platform/posix/native_path.h"

namespace velmora::platform {

namespace {

constexpr int kNoFile = -1;

thread_local std::int32_t lastError = 0;

// Keeps the reason for a failure before another call can overwrite it. Returns `succeeded`.
bool RecordError(bool succeeded) {
  if (!succeeded) lastError = errno;
  return succeeded;
}

template <typename Call>
auto RetryInterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

// Windows runs whatever is called .exe; here a new program has to be marked as executable.
mode_t ModeOfNewFile(const std::string& native) {
  const std::size_t dot = native.rfind('.');
  const bool isProgram = dot != std::string::npos && strcasecmp(native.c_str() + dot, ".exe") == 0;
  return isProgram ? 0777 : 0666;
}

int OpenNative(const std::string& native, int flags) {
  // Without O_NONBLOCK, opening a FIFO waits for its other end.
  constexpr int kAlways = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  return RetryInterrupted(
      [&] { return open(native.c_str(), flags | kAlways, ModeOfNewFile(native)); });
}

// As Windows' read-only attribute, this binds every user, root included.
bool IsReadOnly(const struct stat& status) { return (status.st_mode & S_IWUSR) == 0; }

bool IsNativeDirectory(const std::string& native) {
  struct stat status {};
  if (stat(native.c_str(), &status) != 0) return false;
  if (S_ISDIR(status.st_mode)) return true;
  errno = ENOTDIR;
  return false;
}

// A system call follows a link whose path ends in a separator.
std::string WithoutLastSeparator(std::string native) {
  while (native.size() > 1 && native.back() == '/') native.pop_back();
  return native;
}

// The system refuses to write a running program, but not to unlink it. So try to open it for
// writing first.
bool IsFreeToChange(const std::string& native, const struct stat& status) {
  if (IsReadOnly(status)) {
    errno = EACCES;
    return false;
  }
  const int file = OpenNative(native, O_WRONLY | O_NOFOLLOW);
  if (file == kNoFile) return false;
  close(file);
  return true;
}

// The names of a file's extended attributes, each with a NUL byte after it.
bool ListAttributes(const std::string& native, std::string& names) {
  const ssize_t size = llistxattr(native.c_str(), nullptr, 0);
  if (size <= 0) return size == 0 || errno == ENOTSUP;
  names.resize(static_cast<std::size_t>(size));
  const ssize_t listed = llistxattr(native.c_str(), names.data(), names.size());
  names.resize(static_cast<std::size_t>(std::max<ssize_t>(listed, 0)));
  return listed >= 0;
}

std::optional<std::string> Attribute(const std::string& native, const char* name) {
  std::string value(std::size_t{1} << 16, '\0');  // the system's limit
  const ssize_t size = lgetxattr(native.c_str(), name, value.data(), value.size());
  if (size < 0) return std::nullopt;
  value.resize(static_cast<std::size_t>(size));
  return value;
}

// The attributes include access lists. One that is already equal, such as a security label that the
// system sets by itself, isn't written: the user may not be allowed to.
bool CopyAttributes(const std::string& from, const std::string& to) {
  std::string names;
  if (!ListAttributes(from, names)) return false;
  for (const char* name = names.c_str(); *name != '\0'; name += std::strlen(name) + 1) {
    const auto value = Attribute(from, name);
    if (!value) return false;
    if (Attribute(to, name) == value) continue;
    if (lsetxattr(to.c_str(), name, value->data(), value->size(), 0) != 0) return false;
  }
  // The folder's default access list may be wider than the old file's.
  static constexpr char kAccessList[] = "system.posix_acl_access";
  return Attribute(from, kAccessList) || lremovexattr(to.c_str(), kAccessList) == 0 ||
         errno == ENODATA || errno == ENOTSUP;
}

// Gives `source` the owner, mode and attributes of `target` or, if there is none, the mode of a
// file that is created there.
bool CopyOwnerAndMode(const std::string& source, const std::string& target) {
  struct stat now {};
  struct stat before {};
  if (stat(source.c_str(), &now) != 0) return false;
  if (lstat(target.c_str(), &before) != 0) {
    if (errno != ENOENT) return false;
    const mode_t toRun = (now.st_mode & 0444) >> 2;  // by whoever may read it
    const bool isProgram = (ModeOfNewFile(target) & 0111) != 0;
    return !isProgram || chmod(source.c_str(), (now.st_mode & 07777) | toRun) == 0;
  }
  if (!S_ISREG(before.st_mode) || before.st_nlink != 1) {
    errno = EEXIST;
    return false;
  }
  if (!IsFreeToChange(target, before)) return false;
  const bool sameOwner = now.st_uid == before.st_uid && now.st_gid == before.st_gid;
  return (sameOwner || chown(source.c_str(), before.st_uid, before.st_gid) == 0) &&
         (now.st_mode == before.st_mode || chmod(source.c_str(), before.st_mode & 07777) == 0) &&
         CopyAttributes(target, source);
}

int OpenRegularFile(const std::string& native, std::uint32_t& size) {
  const int file = OpenNative(native, O_RDONLY);
  if (file == kNoFile) return kNoFile;
  struct stat status {};
  if (fstat(file, &status) == 0 && S_ISREG(status.st_mode)) {
    size = static_cast<std::uint32_t>(status.st_size);
    return file;
  }
  close(file);
  errno = S_ISDIR(status.st_mode) ? EISDIR : EACCES;
  return kNoFile;
}

// Whether an open file may be written, and its size.
bool MayBeWritten(int file, std::int64_t& size) {
  struct stat status {};
  if (fstat(file, &status) != 0) return false;
  size = status.st_size;
  if (!IsReadOnly(status) && !S_ISFIFO(status.st_mode)) return true;
  errno = EACCES;
  return false;
}

// The file isn't truncated before it is known that it may be written.
int OpenToWrite(const std::string& native, OutputFile::Mode mode) {
  const bool replaces = mode == OutputFile::Mode::kReplace;
  const int file = OpenNative(native, O_WRONLY | O_CREAT | (replaces ? 0 : O_APPEND));
  if (file == kNoFile) return kNoFile;
  std::int64_t size = 0;
  const bool ready =
      MayBeWritten(file, size) && (!replaces || size == 0 || ftruncate(file, 0) == 0);
  if (ready) return file;
  const int reason = errno;
  close(file);
  errno = reason;
  return kNoFile;
}

std::intptr_t RecordOpenError(int file) {
  RecordError(file != kNoFile);
  return file;
}

int Descriptor(std::intptr_t file) { return static_cast<int>(file); }

void CloseIfOpen(std::intptr_t file) {
  if (file != kNoFile) close(Descriptor(file));
}

}  // namespace

bool FileExists(const std::string& path) {
  return RecordError(access(NativePath(path).c_str(), F_OK) == 0);
}

bool IsDirectory(const std::string& path) {
  return RecordError(IsNativeDirectory(NativePath(path)));
}

bool IsLink(const std::string& path) {
  struct stat status {};
  const std::string itself = WithoutLastSeparator(NativePath(path));
  return RecordError(lstat(itself.c_str(), &status) == 0) && S_ISLNK(status.st_mode);
}

bool RemoveFile(const std::string& path) {
  std::string native = NativePath(path);
  if (IsNativeDirectory(native)) native = WithoutLastSeparator(std::move(native));
  struct stat status {};
  if (lstat(native.c_str(), &status) != 0) return RecordError(false);
  if (S_ISREG(status.st_mode) && !IsFreeToChange(native, status)) return RecordError(false);
  return RecordError(unlink(native.c_str()) == 0);
}

bool RemoveEmptyDirectory(const std::string& path) {
  return RecordError(rmdir(NativePath(path).c_str()) == 0);
}

namespace {

bool CopyContent(InputFile& source, OutputFile& target) {
  std::vector<std::uint8_t> buffer(std::size_t{1} << 16);
  const auto size = static_cast<std::uint32_t>(buffer.size());
  std::uint32_t copied = 0;
  while (const std::uint32_t count = source.Read(buffer.data(), size)) {
    if (!target.Write(buffer.data(), count)) return false;
    copied += count;
  }
  return copied == source.Size();  // otherwise a read has failed
}

bool CopyRights(const std::string& from, const std::string& to) {
  struct stat status {};
  return RecordError(stat(from.c_str(), &status) == 0 &&
                     chmod(to.c_str(), (status.st_mode & 07777) | S_IWUSR) == 0);
}

}  // namespace

bool CopyFileOver(const std::string& from, const std::string& to) {
  InputFile source(from);
  if (!source.IsOpen()) return false;
  OutputFile target(to, OutputFile::Mode::kReplace);
  if (!target.IsOpen()) return false;
  const std::string native = NativePath(to);
  if (CopyContent(source, target) && CopyRights(NativePath(from), native) && target.Close()) {
    return true;
  }
  unlink(native.c_str());  // so that nobody takes half a copy for a complete one
  return false;
}

bool MoveFileOver(const std::string& from, const std::string& to) {
  const std::string source = NativePath(from);
  const std::string target = NativePath(to);
  return RecordError(CopyOwnerAndMode(source, target) &&
                     rename(source.c_str(), target.c_str()) == 0);
}

bool CanBeWritten(const std::string& path) {
  const int file = OpenNative(NativePath(path), O_WRONLY);
  if (!RecordError(file != kNoFile)) return false;
  std::int64_t size = 0;
  const bool may = RecordError(MayBeWritten(file, size));
  close(file);
  return may;
}

// An open file can be replaced and removed here.
bool IsHeldByAnother(std::int32_t) { return false; }

bool IsDiskTrouble(std::int32_t code) { return code == ENOSPC || code == EDQUOT || code == EIO; }

bool FlushDirectory(const std::filesystem::path& directory) {
  const int file =
      RetryInterrupted([&] { return open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
  if (!RecordError(file != kNoFile)) return false;
  const bool flushed = RecordError(syncfs(file) == 0);
  close(file);
  return flushed;
}

// One call for each file system, however many files were moved.
bool FlushFolders(const std::set<std::string>& directories) {
  std::set<dev_t> flushed;
  bool result = true;
  for (const std::string& directory : directories) {
    const std::string native = directory.empty() ? "." : NativePath(directory);
    struct stat status {};
    if (stat(native.c_str(), &status) != 0) {
      const bool isRemoved = errno == ENOENT || errno == ENOTDIR;
      if (!RecordError(isRemoved)) result = false;
      continue;
    }
    if (!flushed.insert(status.st_dev).second) continue;
    if (!FlushDirectory(native)) result = false;
  }
  return result;
}

bool MakeDirectoriesOf(const std::string& path) {
  const std::size_t end = FindLastCharacter(path, kBackslash);
  if (end == std::string::npos) return true;
  const std::string directory = NativePath(std::string_view(path).substr(0, end + 1));
  if (IsNativeDirectory(directory)) return true;
  for (std::size_t i = directory.find('/', 1); i != std::string::npos;
       i = directory.find('/', i + 1)) {
    const std::string parent = directory.substr(0, i);
    if (mkdir(parent.c_str(), 0777) != 0 && errno != EEXIST) return RecordError(false);
  }
  return RecordError(IsNativeDirectory(directory));
}

InputFile::InputFile(const std::string& path)
    : file_(RecordOpenError(OpenRegularFile(NativePath(path), size_))) {}

InputFile::~InputFile() { CloseIfOpen(file_); }

bool InputFile::IsOpen() const { return file_ != kNoFile; }

std::uint32_t InputFile::Size() const { return size_; }

std::uint32_t InputFile::Read(void* buffer, std::uint32_t size) {
  auto* const bytes = static_cast<std::uint8_t*>(buffer);
  std::uint32_t count = 0;
  while (count < size) {
    const ssize_t got =
        RetryInterrupted([&] { return read(Descriptor(file_), bytes + count, size - count); });
    if (!RecordError(got >= 0) || got == 0) break;
    count += static_cast<std::uint32_t>(got);
  }
  return count;
}

OutputFile::OutputFile(const std::string& path, Mode mode)
    : file_(RecordOpenError(OpenToWrite(NativePath(path), mode))) {}

OutputFile::~OutputFile() { CloseIfOpen(file_); }

bool OutputFile::IsOpen() const { return file_ != kNoFile; }

bool OutputFile::Write(const void* data, std::size_t size) {
  // For a larger chunk the system needs more contiguous memory, which takes it longer to find.
  constexpr std::size_t kChunk = std::size_t{1} << 16;
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  while (size > 0) {
    const std::size_t chunk = std::min(size, kChunk);
    const ssize_t written =
        RetryInterrupted([&] { return write(Descriptor(file_), bytes, chunk); });
    if (!RecordError(written >= 0)) return false;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return IsOpen();
}

bool OutputFile::Flush() {
  const bool isFlushed = fsync(Descriptor(file_)) == 0;
  return RecordError(isFlushed || errno == EINVAL || errno == ENOTSUP);  // its volume has no flush
}

bool OutputFile::Close() {
  // The descriptor is closed even if the system reports a failure.
  const int file = Descriptor(std::exchange(file_, kNoFile));
  return RecordError(close(file) == 0);
}

namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using OpenDirectory = std::unique_ptr<DIR, CloseDirectory>;

bool IsOfType(DIR* directory, const dirent& entry, int flags, mode_t type) {
  struct stat status {};
  return fstatat(dirfd(directory), entry.d_name, &status, flags) == 0 &&
         (status.st_mode & S_IFMT) == type;
}

bool IsDirectoryItself(DIR* directory, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
  return IsOfType(directory, entry, AT_SYMLINK_NOFOLLOW, S_IFDIR);
}

// A link to nothing may lead to a disk that isn't mounted, so it counts as one to a directory.
bool IsDirectoryLink(DIR* directory, const dirent& entry) {
  if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN) return false;
  struct stat status {};
  return IsOfType(directory, entry, AT_SYMLINK_NOFOLLOW, S_IFLNK) &&
         (fstatat(dirfd(directory), entry.d_name, &status, 0) != 0 || S_ISDIR(status.st_mode));
}

// A backslash that is the second half of a character would name another directory.
bool EndsInSeparator(std::string_view path) {
  std::string_view last;
  for (const std::string_view character : Characters(path)) last = character;
  return last == "\\" || last == "/";
}

}  // namespace

// Closes the directory before anything is done with its entries: a walk down a deep tree holds no
// descriptors, and what it deletes can't confuse the listing. A listing that breaks off holds what
// it had read by then.
std::optional<std::vector<DirectoryEntry>> ListDirectory(const std::string& directory) {
  if (!EndsInSeparator(directory)) {
    errno = ENOENT;
    RecordError(false);
    return std::nullopt;
  }
  const OpenDirectory open(opendir(NativePath(directory).c_str()));
  if (!RecordError(open != nullptr)) return std::nullopt;
  std::vector<DirectoryEntry> entries;
  while (const dirent* const entry = readdir(open.get())) {
    const bool isDirectory = IsDirectoryItself(open.get(), *entry);
    if (!CanBeElement(entry->d_name, isDirectory)) continue;
    entries.push_back({entry->d_name, isDirectory, IsDirectoryLink(open.get(), *entry)});
  }
  return entries;
}

std::int32_t LastSystemError() { return lastError; }

std::string SystemErrorText(std::int32_t code) {
  // Untranslated, since the log and the message boxes have an encoding of their own.
  const char* const text = strerrordesc_np(code);
  return text != nullptr ? text : FormatText("Unknown error %d", code);
}

}  // namespace velmora::platform

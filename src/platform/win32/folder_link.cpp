#include "platform/folder_link.h"

// windows.h comes first: the other header needs it.
// clang-format off
#include <windows.h>
#include <winioctl.h>
// clang-format on

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/disk.h"

namespace velmora::platform {

namespace fs = std::filesystem;

namespace {

// What the file system stores of a link (REPARSE_DATA_BUFFER). Two names follow: the one that it
// follows, and the one that it shows.
struct LinkHead {
  DWORD tag;
  WORD length;  // of all that follows the next field
  WORD reserved;
  WORD followedOffset;  // in bytes from the end of the head, like the next one
  WORD followedLength;  // in bytes, like the next one; without a zero at the end
  WORD shownOffset;
  WORD shownLength;
};
static_assert(sizeof(LinkHead) == 16);

constexpr std::size_t kUncountedBytes = 8;  // of the head
constexpr std::size_t kFlagBytes = 4;       // that symbolic links have behind the head
constexpr std::wstring_view kFollowedPrefix = LR"(\??\)";  // the system's own root of drives

class OpenLink {
 public:
  OpenLink(const fs::path& path, DWORD access)
      : file_(CreateFileW(
            path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
            OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)) {}
  ~OpenLink() {
    if (IsOpen()) CloseHandle(file_);
  }
  OpenLink(const OpenLink&) = delete;
  OpenLink& operator=(const OpenLink&) = delete;

  [[nodiscard]] bool IsOpen() const { return file_ != INVALID_HANDLE_VALUE; }

  // Empty if it is no link.
  [[nodiscard]] std::vector<char> Read() const {
    std::vector<char> bytes(MAXIMUM_REPARSE_DATA_BUFFER_SIZE);
    DWORD count = 0;
    const BOOL succeeded = DeviceIoControl(file_, FSCTL_GET_REPARSE_POINT, nullptr, 0, bytes.data(),
                                           static_cast<DWORD>(bytes.size()), &count, nullptr);
    bytes.resize(succeeded && count >= sizeof(LinkHead) ? count : 0);
    return bytes;
  }

  [[nodiscard]] bool Write(std::vector<char> bytes) const {
    DWORD count = 0;
    return DeviceIoControl(file_, FSCTL_SET_REPARSE_POINT, bytes.data(),
                           static_cast<DWORD>(bytes.size()), nullptr, 0, &count, nullptr) != FALSE;
  }

  // Not every volume has such an operation.
  void Flush() const { FlushFileBuffers(file_); }

 private:
  const HANDLE file_;
};

LinkHead HeadOf(const std::vector<char>& bytes) {
  LinkHead head{};
  if (bytes.size() >= sizeof head) std::memcpy(&head, bytes.data(), sizeof head);
  return head;
}

std::size_t NamesOffset(DWORD tag) {
  return sizeof(LinkHead) + (tag == IO_REPARSE_TAG_SYMLINK ? kFlagBytes : 0);
}

std::wstring NameIn(const std::vector<char>& bytes, std::size_t offset, std::size_t length) {
  std::wstring name(length / sizeof(wchar_t), L'\0');
  if (offset + length > bytes.size()) return {};
  std::memcpy(name.data(), bytes.data() + offset, name.size() * sizeof(wchar_t));
  return name;
}

// Each name ends in a zero. A symbolic link's flags say that its path isn't relative.
std::vector<char> LinkBytes(DWORD tag, const std::wstring& folder) {
  const std::wstring followed = std::wstring(kFollowedPrefix) + folder;
  const std::size_t followedBytes = followed.size() * sizeof(wchar_t);
  const std::size_t shownBytes = folder.size() * sizeof(wchar_t);
  const std::size_t names = NamesOffset(tag);
  const std::size_t shownOffset = followedBytes + sizeof(wchar_t);
  std::vector<char> bytes(names + shownOffset + shownBytes + sizeof(wchar_t));
  const LinkHead head{tag,
                      static_cast<WORD>(bytes.size() - kUncountedBytes),
                      0,
                      0,
                      static_cast<WORD>(followedBytes),
                      static_cast<WORD>(shownOffset),
                      static_cast<WORD>(shownBytes)};
  std::memcpy(bytes.data(), &head, sizeof head);
  std::memcpy(bytes.data() + names, followed.data(), followedBytes);
  std::memcpy(bytes.data() + names + shownOffset, folder.data(), shownBytes);
  return bytes;
}

std::error_code LastError() {
  const DWORD code = GetLastError();
  // The volume has no links, or the path is too long for one.
  if (code == ERROR_NOT_SUPPORTED || code == ERROR_INVALID_FUNCTION) {
    return std::make_error_code(std::errc::not_supported);
  }
  return {static_cast<int>(code), std::system_category()};
}

fs::path TargetIn(const std::vector<char>& link) {
  const LinkHead head = HeadOf(link);
  const std::size_t names = NamesOffset(head.tag);
  const std::wstring shown = NameIn(link, names + head.shownOffset, head.shownLength);
  if (!shown.empty()) return shown;
  const std::wstring followed = NameIn(link, names + head.followedOffset, head.followedLength);
  const std::size_t prefix = followed.starts_with(kFollowedPrefix) ? kFollowedPrefix.size() : 0;
  return followed.substr(prefix);
}

bool IsOnShare(const fs::path& path) { return path.native().starts_with(LR"(\\)"); }

}  // namespace

fs::path LinkTarget(const fs::path& link, std::error_code& error) {
  error.clear();
  const OpenLink open(link, 0);
  const std::vector<char> bytes = open.IsOpen() ? open.Read() : std::vector<char>();
  if (bytes.empty()) {
    error = LastError();
    return {};
  }
  const fs::path target = TargetIn(bytes);
  const fs::path folder = AbsolutePath(link).parent_path();
  const bool isNear = target.is_absolute() && target.root_path() == folder.root_path();
  return isNear ? target.lexically_relative(folder) : target;
}

// The file system replaces what it stores of a link in one step, as long as the link's kind stays.
void PointLink(const fs::path& link, const fs::path& folder, std::error_code& error) {
  error.clear();
  // A server would look for the drives of this machine on its own.
  if (IsOnShare(link) || IsOnShare(folder)) {
    error = std::make_error_code(std::errc::not_supported);
    return;
  }
  const bool isNew = CreateDirectoryW(link.c_str(), nullptr) != FALSE;
  {
    const OpenLink open(link, GENERIC_WRITE);
    const DWORD tag = open.IsOpen() ? HeadOf(open.Read()).tag : 0;
    const auto bytes = LinkBytes(tag == 0 ? IO_REPARSE_TAG_MOUNT_POINT : tag, folder.native());
    if (!open.IsOpen() || !open.Write(bytes)) {
      error = LastError();
    } else {
      open.Flush();
    }
  }
  if (error && isNew) RemoveDirectoryW(link.c_str());
}

}  // namespace velmora::platform

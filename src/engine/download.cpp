#include "engine/download.h"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "base/data_block.h"
#include "base/text.h"
#include "base/texts.h"
#include "engine/install.h"
#include "engine/request_path.h"
#include "engine/server_connection.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "engine/verify_hash.h"
#include "platform/dialog.h"
#include "platform/files.h"
#include "platform/http.h"
#include "settings/patcher_settings.h"
#include "settings/session_log.h"

namespace velmora {
namespace {

constexpr std::size_t kHeaderBuffer = 32;
constexpr std::size_t kMaxMessageText = 255;
constexpr char kPatcherFile[] = "VelmoraUpdate.exe";

void ShowError(const std::string& text) {
  platform::ShowMessageBox(std::string(CutText(text, kMaxMessageText)), texts::kErrorCaption,
                           platform::kBoxError);
}

std::int32_t QueryNumber(platform::HttpField field, std::int32_t fallback) {
  const auto text = platform::QueryHttpField(RequestHandle, field, kHeaderBuffer);
  return text ? ToNumber(*text) : fallback;
}

// Ends a download. The log and the player have been told by then.
struct DownloadFailed {};

class Download {
 public:
  explicit Download(const FileRecord& record) : record_(record) {}

  void Run() {
    SendRequest();
    ReceiveTransfer();
    CheckTransferHash();
    ExpandContent();
    Install();
    RememberVerified(record_);
  }

 private:
  void SendRequest();
  void ReceiveTransfer();
  std::uint32_t ReadChunk(std::uint32_t received, std::uint32_t available);
  void CheckTransferHash();
  void ExpandContent();
  void Install();

  void AllocateOrFail(DataBlock& block, std::int32_t size, std::int32_t indicated,
                      std::int32_t received);
  void ShowFileError(std::int32_t error);
  [[noreturn]] void FailStatus(std::int32_t status);
  [[noreturn]] void FailRead(std::uint32_t received);
  [[noreturn]] void FailShort(std::int32_t indicated, std::uint32_t received);
  [[noreturn]] void FailHash();
  [[noreturn]] void FailExpand();
  [[noreturn]] void FailDirectory(std::int32_t error);
  [[noreturn]] void FailCreate(std::int32_t error);
  [[noreturn]] void FailWrite(std::int32_t error);

  const FileRecord& record_;
  DataBlock block_;         // what the server sent; once expanded, what the file will hold
  std::size_t length_ = 0;  // of what the file will hold
};

void Download::SendRequest() {
  const auto requestPath = RequestPath(Settings.DataPath, record_);
  if (!requestPath) {
    LogMessage("Request refused, its path is too long : file %s \n", record_.path.c_str());
    FailStatus(0);
  }
  RequestHandle = platform::OpenHttpGet(ConnectionHandle, *requestPath);
  platform::SendHttpRequest(RequestHandle);
  const std::int32_t status = QueryNumber(platform::HttpField::kStatusCode, 0);
  if (status != 200) FailStatus(status);
}

void Download::ReceiveTransfer() {
  const std::int32_t indicated = QueryNumber(platform::HttpField::kContentLength, -1);
  AllocateOrFail(block_, indicated, indicated, 0);
  std::uint32_t received = 0;
  while (const std::uint32_t available = platform::QueryHttpDataAvailable(RequestHandle)) {
    const std::uint32_t count = ReadChunk(received, available);
    if (count == 0) break;
    received += count;
    platform::SetBarPosition(platform::Control::kFileBar, static_cast<std::int32_t>(received));
  }
  if (received != block_.size()) FailShort(indicated, received);
}

// Reads straight into the block. A chunk that would go beyond its end is counted and not read: the
// server has sent more than it announced, and there may be no end to it.
std::uint32_t Download::ReadChunk(std::uint32_t received, std::uint32_t available) {
  if (available > block_.size() - received) {
    FailShort(static_cast<std::int32_t>(block_.size()), received + available);
  }
  std::uint32_t count = 0;
  if (!platform::ReadHttp(RequestHandle, block_.data() + received, available, count)) {
    FailRead(received);
  }
  return count;
}

void Download::CheckTransferHash() {
  const auto size = static_cast<std::uint32_t>(block_.size());
  if (!VerifyHash(block_.data(), size, record_.transferHash)) FailHash();
}

// A stream may expand to less than the listed size. A plain file is cut to it, or filled up with
// zeros.
void Download::ExpandContent() {
  const std::int32_t contentSize = ToNumber(record_.contentSize);
  const auto transferSize = static_cast<std::int32_t>(block_.size());
  length_ = static_cast<std::size_t>(std::max(contentSize, 0));
  if (!record_.compressed && contentSize == transferSize) return;

  DataBlock content;
  AllocateOrFail(content, contentSize, transferSize, transferSize);
  if (record_.compressed) {
    auto produced = static_cast<uLongf>(length_);
    if (uncompress(content.data(), &produced, block_.data(), static_cast<uLong>(block_.size())) !=
        Z_OK) {
      FailExpand();
    }
    length_ = produced;
  } else {
    std::memcpy(content.data(), block_.data(), std::min(block_.size(), content.size()));
  }
  block_ = std::move(content);
}

void Download::Install() {
  const InstallResult result = InstallFile(record_, block_, length_);
  switch (result.step) {
    case InstallStep::kDone:
      return;
    case InstallStep::kDirectory:
      FailDirectory(result.error);
    case InstallStep::kCreate:
      FailCreate(result.error);
    case InstallStep::kWrite:
      FailWrite(result.error);
  }
}

// A size that is negative, or larger than the memory allows, ends like a transfer that is too
// short.
void Download::AllocateOrFail(DataBlock& block, std::int32_t size, std::int32_t indicated,
                              std::int32_t received) {
  if (size >= 0 && block.AllocateZeroed(static_cast<std::size_t>(size))) return;
  LogMessage("Couldn't allocate %d bytes : File %s \n", size, record_.path.c_str());
  FailShort(indicated, static_cast<std::uint32_t>(received));
}

void Download::FailStatus(std::int32_t status) {
  LogMessage(texts::kLogFileStatus, status, record_.path.c_str());
  ShowError(FormatText(texts::kNotOnServer, record_.path.c_str()));
  throw DownloadFailed();
}

void Download::FailRead(std::uint32_t received) {
  LogMessage("[Error] InternetReadFile() :: %s : %d\n", record_.path.c_str(),
             static_cast<std::int32_t>(received));
  ShowError(texts::kConnectionLost);
  throw DownloadFailed();
}

void Download::FailShort(std::int32_t indicated, std::uint32_t received) {
  LogMessage(
      "[Error] Download Failed(Insufficient File data has been read):: %s : IndicatedSize:%d "
      "ActualRead:%d\n",
      record_.path.c_str(), indicated, static_cast<std::int32_t>(received));
  ShowError(texts::kConnectionLost);
  throw DownloadFailed();
}

void Download::FailHash() {
  LogMessage("Error Invalid Hash : file %s Hash is %s \n", record_.path.c_str(),
             record_.transferHash.c_str());
  ShowError(texts::kWrongData);
  throw DownloadFailed();
}

void Download::FailExpand() {
  LogMessage("Error uncompress failed : file %s \n", record_.path.c_str());
  ShowError(texts::kExpandFailed);
  throw DownloadFailed();
}

void Download::ShowFileError(std::int32_t error) {
  ShowError(FormatText(texts::kFileFailed, record_.path.c_str(),
                       platform::SystemErrorText(error).c_str()));
}

void Download::FailDirectory(std::int32_t error) {
  ShowFileError(error);
  LogMessage(texts::kLogNoDirectory, record_.path.c_str());
  throw DownloadFailed();
}

void Download::FailCreate(std::int32_t error) {
  ShowFileError(error);
  LogMessage(texts::kLogNoFile, record_.path.c_str(), error);
  throw DownloadFailed();
}

void Download::FailWrite(std::int32_t error) {
  ShowFileError(error);
  LogMessage(texts::kLogNoWrite, record_.path.c_str(), error);
  throw DownloadFailed();
}

bool Contains(std::string_view path, std::string_view part) {
  return path.find(part) != std::string_view::npos;
}

bool AsksForRestart(const FileRecord& record) {
  if (Contains(record.path, Settings.SettingsPath)) {
    LogMessage("data reference file has been updated. need to reboot patch \n");
    return true;
  }
  if (Contains(record.path, kPatcherFile)) {
    LogMessage("update program has been updated. need to run new patcher.\n");
    return true;
  }
  return false;
}

}  // namespace

bool DownloadFile(const FileRecord& record) {
  try {
    Download(record).Run();
  } catch (const DownloadFailed&) {
    UpdateState = kNotRunning;
    return false;
  }

  LogMessage("Update Success : file %s \n", record.path.c_str());
  if (AsksForRestart(record)) {
    RestartRequested = 1;
    return false;
  }
  CloseIfOpen(RequestHandle);
  return true;
}

}  // namespace velmora

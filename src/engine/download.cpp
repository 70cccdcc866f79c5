#include "engine/download.h"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "base/text.h"
#include "base/texts.h"
#include "engine/install.h"
#include "engine/request_path.h"
#include "engine/server_connection.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "engine/verify_hash.h"
#include "platform/data_block.h"
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

// Raised inside the guarded region after the failure was logged and shown.
constexpr bool kDownloadFailed = true;

void ShowError(const std::string& text) {
  platform::ShowMessageBox(std::string(CutText(text, kMaxMessageText)), texts::kErrorCaption,
                           platform::kBoxError);
}

std::int32_t QueryNumber(platform::HttpField field, std::int32_t fallback) {
  const auto text = platform::QueryHttpField(RequestHandle, field, kHeaderBuffer);
  return text ? ToNumber(*text) : fallback;
}

// The status of the answer; 0 if there is none.
std::int32_t SendRequest(const FileRecord& record) {
  const auto requestPath = RequestPath(Settings.DataPath, record);
  if (!requestPath) {
    LogMessage("Request refused, its path is too long : file %s \n", record.path.c_str());
    return 0;
  }
  RequestHandle = platform::OpenHttpGet(ConnectionHandle, *requestPath);
  platform::SendHttpRequest(RequestHandle);
  return QueryNumber(platform::HttpField::kStatusCode, 0);
}

bool FailStatus(const FileRecord& record, std::int32_t status) {
  LogMessage(texts::kLogFileStatus, status, record.path.c_str());
  ShowError(FormatText(texts::kNotOnServer, record.path.c_str()));
  UpdateState = kNotRunning;
  return false;
}

// Failures of the guarded region.

[[noreturn]] void FailRead(const FileRecord& record, std::uint32_t received) {
  LogMessage("[Error] InternetReadFile() :: %s : %d\n", record.path.c_str(),
             static_cast<std::int32_t>(received));
  ShowError(texts::kConnectionLost);
  throw kDownloadFailed;
}

[[noreturn]] void FailShort(const FileRecord& record, std::int32_t indicated,
                            std::uint32_t received) {
  LogMessage(
      "[Error] Download Failed(Insufficient File data has been read):: %s : IndicatedSize:%d "
      "ActualRead:%d\n",
      record.path.c_str(), indicated, static_cast<std::int32_t>(received));
  ShowError(texts::kConnectionLost);
  throw kDownloadFailed;
}

[[noreturn]] void FailHash(const FileRecord& record) {
  LogMessage("Error Invalid Hash : file %s Hash is %s \n", record.path.c_str(),
             record.transferHash.c_str());
  ShowError(texts::kWrongData);
  throw kDownloadFailed;
}

[[noreturn]] void FailExpand(const FileRecord& record) {
  LogMessage("Error uncompress failed : file %s \n", record.path.c_str());
  ShowError(texts::kExpandFailed);
  throw kDownloadFailed;
}

void ShowFileError(const FileRecord& record, std::int32_t error) {
  ShowError(FormatText(texts::kFileFailed, record.path.c_str(),
                       platform::SystemErrorText(error).c_str()));
}

[[noreturn]] void FailDirectory(const FileRecord& record, std::int32_t error) {
  ShowFileError(record, error);
  LogMessage(texts::kLogNoDirectory, record.path.c_str());
  throw kDownloadFailed;
}

[[noreturn]] void FailCreate(const FileRecord& record, std::int32_t error) {
  ShowFileError(record, error);
  LogMessage(texts::kLogNoFile, record.path.c_str(), error);
  throw kDownloadFailed;
}

[[noreturn]] void FailWrite(const FileRecord& record, std::int32_t error) {
  ShowFileError(record, error);
  LogMessage(texts::kLogNoWrite, record.path.c_str(), error);
  throw kDownloadFailed;
}

// A size that is no size, or more than can be had, ends like a transfer that brought too little.
void AllocateOrFail(DataBlock& block, std::int32_t size, const FileRecord& record,
                    std::int32_t indicated, std::uint32_t received) {
  if (size >= 0 && block.AllocateZeroed(static_cast<std::size_t>(size))) return;
  LogMessage("Couldn't allocate %d bytes : File %s \n", size, record.path.c_str());
  FailShort(record, indicated, received);
}

// One chunk, straight into the transfer block. A chunk that would go beyond its end is counted and
// not read: the server doesn't keep to what it announced, and there may be no end to it.
std::uint32_t ReadChunk(DataBlock& transfer, std::uint32_t received, std::uint32_t available,
                        const FileRecord& record) {
  if (available > transfer.size() - received) {
    FailShort(record, static_cast<std::int32_t>(transfer.size()), received + available);
  }
  std::uint32_t count = 0;
  if (!platform::ReadHttp(RequestHandle, transfer.data() + received, available, count)) {
    FailRead(record, received);
  }
  return count;
}

void Receive(DataBlock& transfer, std::int32_t indicated, const FileRecord& record) {
  std::uint32_t received = 0;
  while (const std::uint32_t available = platform::QueryHttpDataAvailable(RequestHandle)) {
    const std::uint32_t count = ReadChunk(transfer, received, available, record);
    if (count == 0) break;
    received += count;
    platform::SetBarPosition(platform::Control::kFileBar, static_cast<std::int32_t>(received));
  }
  if (received != static_cast<std::uint32_t>(indicated)) FailShort(record, indicated, received);
}

// The file as it will stand on disk. The transfer block is given up as soon as it isn't needed.
DataBlock Expand(DataBlock& transfer, std::size_t& outputLength, const FileRecord& record) {
  const std::int32_t contentSize = ToNumber(record.contentSize);
  const auto indicated = static_cast<std::int32_t>(transfer.size());
  outputLength = static_cast<std::size_t>(std::max(contentSize, 0));
  if (!record.compressed && contentSize == indicated) return std::move(transfer);

  DataBlock content;
  AllocateOrFail(content, contentSize, record, indicated, static_cast<std::uint32_t>(indicated));
  if (record.compressed) {
    uLongf produced = static_cast<uLongf>(outputLength);
    if (uncompress(content.data(), &produced, transfer.data(),
                   static_cast<uLong>(transfer.size())) != Z_OK) {
      FailExpand(record);
    }
    outputLength = produced;
  } else {
    std::memcpy(content.data(), transfer.data(), std::min(transfer.size(), content.size()));
  }
  return content;
}

void Install(const DataBlock& content, std::size_t length, const FileRecord& record) {
  const InstallResult result = InstallFile(record, content, length);
  switch (result.step) {
    case InstallStep::kDone:
      return;
    case InstallStep::kDirectory:
      FailDirectory(record, result.error);
    case InstallStep::kCreate:
      FailCreate(record, result.error);
    case InstallStep::kWrite:
      FailWrite(record, result.error);
  }
}

void DownloadAndInstall(const FileRecord& record) {
  const std::int32_t indicated = QueryNumber(platform::HttpField::kContentLength, -1);
  DataBlock transfer;
  AllocateOrFail(transfer, indicated, record, indicated, 0);
  Receive(transfer, indicated, record);
  if (!VerifyHash(transfer.data(), static_cast<std::uint32_t>(indicated), record.transferHash)) {
    FailHash(record);
  }
  std::size_t length = 0;
  const DataBlock content = Expand(transfer, length, record);
  Install(content, length, record);
  RememberVerified(record);
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
  const std::int32_t status = SendRequest(record);
  if (status != 200) return FailStatus(record, status);
  try {
    DownloadAndInstall(record);
  } catch (const bool) {
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

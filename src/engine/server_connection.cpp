#include "engine/server_connection.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/data_block.h"
#include "base/text.h"
#include "base/texts.h"
#include "engine/record_set.h"
#include "engine/reference_list.h"
#include "engine/update_state.h"
#include "platform/dialog.h"
#include "settings/patcher_settings.h"
#include "settings/session_log.h"

namespace velmora {

std::atomic<platform::HttpHandle> SessionHandle = platform::kNoHttpHandle;
std::atomic<platform::HttpHandle> ConnectionHandle = platform::kNoHttpHandle;
std::atomic<platform::HttpHandle> RequestHandle = platform::kNoHttpHandle;

namespace {

constexpr char kAgent[] = "VelmoraUpdate";
constexpr std::uint32_t kTimeout = 10000;
constexpr std::size_t kListHeaderBuffer = 2048;

void ShowConnectionError(const std::string& text) {
  platform::ShowMessageBox(text, texts::kErrorCaption, platform::kBoxError);
}

bool OpenSession() {
  SessionHandle = platform::OpenHttpSession(kAgent);
  const auto status = static_cast<unsigned>(SessionHandle.load());
  if (SessionHandle == platform::kNoHttpHandle) {
    LogMessage("InternetOpen() : FAILED : Status = %X\n", status);
    ShowConnectionError(texts::kNoInternet);
    return false;
  }
  LogMessage("InternetOpen() : SUCCESS : Status = %X\n", status);
  platform::SetHttpTimeouts(SessionHandle, kTimeout);
  return true;
}

bool OpenConnection() {
  ConnectionHandle = platform::ConnectHttp(SessionHandle, Settings.ServerHost,
                                           static_cast<std::uint16_t>(Settings.ServerPort & 0xFFFF),
                                           Settings.FTPUserName, Settings.FTPPassword);
  const auto status = static_cast<unsigned>(ConnectionHandle.load());
  if (ConnectionHandle == platform::kNoHttpHandle) {
    LogMessage("InternetConnect() : Couldn't connect to %s:%d : Status = %X\n",
               Settings.ServerHost.c_str(), Settings.ServerPort, status);
    ShowConnectionError(texts::kNoServer);
    return false;
  }
  LogMessage("InternetConnect() : SUCCESS : Status = %X\n", status);
  return true;
}

bool FailWithoutList(const std::string& requestPath, std::int32_t status) {
  LogMessage(texts::kLogListStatus, status);
  ShowConnectionError(FormatText(texts::kNotOnServer, requestPath.c_str()));
  return false;
}

// False if the announced length is missing, negative or larger than the memory allows: reading on
// would mean guessing where the list ends.
bool AllocateBody(DataBlock& body) {
  const auto text = platform::QueryHttpField(RequestHandle, platform::HttpField::kContentLength,
                                             kListHeaderBuffer);
  const std::int32_t length = text ? ToNumber(*text) : -1;
  if (length >= 0 && body.Allocate(static_cast<std::size_t>(length))) return true;
  LogMessage("Reference list : no usable Content-Length : %s\n", text ? text->c_str() : "none");
  return false;
}

void LogRefused(std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  LogMessage("Reference list : line refused, a field is too long : %.*s\n",
             static_cast<int>(line.size()), line.data());
}

// Whatever the single read returns is the list. If the body ends early, the last line is cut.
void ParseBody(DataBlock& body) {
  std::uint32_t received = 0;
  static_cast<void>(platform::ReadHttp(RequestHandle, body.data(),
                                       static_cast<std::uint32_t>(body.size()), received));
  const std::string_view text(reinterpret_cast<const char*>(body.data()), received);
  ParseReferenceList(text, UpdateSet, RemoveSet, Settings.ClientExe, LogRefused);
}

}  // namespace

void CloseIfOpen(std::atomic<platform::HttpHandle>& handle) {
  const platform::HttpHandle open = handle.exchange(platform::kNoHttpHandle);
  if (open != platform::kNoHttpHandle) platform::CloseHttpHandle(open);
}

bool ConnectServer() {
  CloseIfOpen(ConnectionHandle);
  CloseIfOpen(SessionHandle);
  LogMessage("Internet : Trying connect to [Address : %s Port: %d] (User:%s Psw:%s)\n",
             Settings.ServerHost.c_str(), Settings.ServerPort, Settings.FTPUserName.c_str(),
             Settings.FTPPassword.c_str());
  platform::SetStatusText(texts::kConnecting);
  if (!OpenSession() || !OpenConnection()) return false;

  const bool fetched = FetchReferenceList();
  UpdateState = kNotRunning;
  return fetched;
}

bool FetchReferenceList() {
  UpdateSet.Clear();
  RemoveSet.Clear();
  const std::string requestPath = Settings.DataPath + "/" + Settings.DataFile;
  LogMessage("requested information file : %s\n", requestPath.c_str());
  RequestHandle = platform::OpenHttpGet(ConnectionHandle, requestPath);
  platform::SendHttpRequest(RequestHandle);

  const auto text =
      platform::QueryHttpField(RequestHandle, platform::HttpField::kStatusCode, kListHeaderBuffer);
  const std::int32_t status = text ? ToNumber(*text) : 0;
  LogMessage(texts::kLogListStatus, status);
  if (status != 200) return FailWithoutList(requestPath, status);

  DataBlock body;
  if (!AllocateBody(body)) return FailWithoutList(requestPath, status);
  ParseBody(body);
  CloseIfOpen(RequestHandle);
  return true;
}

}  // namespace velmora

// HTTP and threads at failures that no server provokes at will, by stand-ins in their place.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "base/text.h"
#include "base/texts.h"
#include "engine/record_set.h"
#include "engine/server_connection.h"
#include "engine/update_run.h"
#include "engine/update_state.h"
#include "platform/http.h"
#include "platform/threads.h"
#include "support/recording_dialog.h"
#include "support/workspace.h"
#include "ui/update_dialog.h"

namespace velmora::platform {
namespace {

struct Served {
  std::string length;               // Content-Length
  std::vector<std::string> chunks;  // as they become available
  bool breaks = false;              // the read behind the last chunk fails
};

struct Services {
  bool opensSession = true;
  bool startsThread = true;
  std::map<std::string, Served> files;
  std::string requested;
  std::size_t chunk = 0;
  std::vector<HttpHandle> closed;
};
Services services;

constexpr HttpHandle kSession = 0xABC;
constexpr HttpHandle kConnection = 0xDEF;
constexpr HttpHandle kRequest = 0x123;

}  // namespace

HttpHandle OpenHttpSession(const char*) { return services.opensSession ? kSession : 0; }
void SetHttpTimeouts(HttpHandle, std::uint32_t milliseconds) { EXPECT_EQ(milliseconds, 10000U); }
HttpHandle ConnectHttp(HttpHandle, const std::string&, std::uint16_t, const std::string&,
                       const std::string&) {
  return kConnection;
}
HttpHandle OpenHttpGet(HttpHandle, const std::string& path) {
  services.requested = path;
  services.chunk = 0;
  return kRequest;
}
void SendHttpRequest(HttpHandle) {}
std::optional<std::string> QueryHttpField(HttpHandle, HttpField field, std::size_t) {
  const auto found = services.files.find(services.requested);
  if (found == services.files.end()) return std::nullopt;
  return field == HttpField::kStatusCode ? "200" : found->second.length;
}
std::uint32_t QueryHttpDataAvailable(HttpHandle) {
  const Served& file = services.files[services.requested];
  if (services.chunk < file.chunks.size()) {
    return static_cast<std::uint32_t>(file.chunks[services.chunk].size());
  }
  return file.breaks ? 1 : 0;
}
bool ReadHttp(HttpHandle, void* buffer, std::uint32_t size, std::uint32_t& read) {
  const Served& file = services.files[services.requested];
  read = 0;
  if (services.chunk == file.chunks.size()) return !file.breaks;
  const std::string& chunk = file.chunks[services.chunk++];
  read = std::min(size, static_cast<std::uint32_t>(chunk.size()));
  std::memcpy(buffer, chunk.data(), read);
  return true;
}
void CloseHttpHandle(HttpHandle handle) { services.closed.push_back(handle); }

// A run is carried out at once, on the thread that starts it.
ThreadHandle StartThread(void (*entry)()) {
  if (!services.startsThread) return 0;
  entry();
  return 1;
}
void CloseThreadHandle(ThreadHandle) {}

}  // namespace velmora::platform

namespace velmora::test {
namespace {

using Lines = std::vector<std::string>;
using platform::kConnection;
using platform::kRequest;
using platform::kSession;
using platform::services;

class ServiceFailure : public EngineTest {
 protected:
  ServiceFailure() { services = platform::Services(); }
  void ServeList(const std::string& list) {
    services.files["/hashlist.dat"] = {std::to_string(list.size()), {list}};
  }
};

TEST_F(ServiceFailure, NoThread) {
  services.startsThread = false;
  const auto handlers = UpdateDialogHandlers();
  EXPECT_FALSE(UpdateFiles());
  EXPECT_EQ(handlers.command(1000), -1);
  EXPECT_EQ(handlers.command(1007), -1);
  EXPECT_EQ(UpdateState, kNotRunning);
  EXPECT_EQ(CurrentRunPhase(), platform::RunPhase::kNone);
  EXPECT_TRUE(EventsOf("box").empty());
  services.startsThread = true;
  ServeList("");
  EXPECT_EQ(handlers.command(1000), 0);
  EXPECT_EQ(UpdateState, kEnded);
}

TEST_F(ServiceFailure, NoSession) {
  services.opensSession = false;
  EXPECT_TRUE(UpdateFiles());
  EXPECT_EQ(LogMessagesWith("InternetOpen"), Lines{"InternetOpen() : FAILED : Status = 0"});
  EXPECT_EQ(EventsOf("box"),
            Lines{FormatText("box 40010 %s|%s", texts::kErrorCaption, texts::kNoInternet)});
  EXPECT_TRUE(services.closed.empty());
}

TEST_F(ServiceFailure, HandlesAreClosedOnceAndInOrder) {
  ServeList("");
  EXPECT_TRUE(UpdateFiles());
  EXPECT_EQ(LogMessagesWith("SUCCESS"), (Lines{"InternetOpen() : SUCCESS : Status = ABC",
                                               "InternetConnect() : SUCCESS : Status = DEF"}));
  EXPECT_EQ(services.closed, (std::vector<platform::HttpHandle>{kRequest, kConnection, kSession}));

  // A failed download leaves its request to the end of the run.
  services.closed.clear();
  ServeList(FileLine("a", "1"));
  EXPECT_TRUE(UpdateFiles());
  EXPECT_EQ(services.closed,
            (std::vector<platform::HttpHandle>{kRequest, kRequest, kConnection, kSession}));
}

TEST_F(ServiceFailure, BodiesThatBreakOrRunOver) {
  const std::string content = "0123456789";
  const std::string shortened = "Insufficient File data has been read):: f : IndicatedSize:";
  const std::string lost =
      FormatText("box 40010 %s|%s", texts::kErrorCaption, texts::kConnectionLost);
  const struct {
    platform::Served served;
    Lines boxes;
    std::string logged;
    std::string positions;
  } cases[] = {
      {{"10", {"0123", "45678", "9"}}, {}, "Update Success : file f ", "4 9 10 10 "},
      {{"10", {"0123", "45"}, true}, {lost}, "[Error] InternetReadFile() :: f : 6", "4 6 "},
      {{"5", {content}}, {lost}, shortened + "5 ActualRead:10", ""},
      {{"5", {"012", "345", "6789"}}, {lost}, shortened + "5 ActualRead:6", "3 "},
      {{"0", {content}}, {lost}, shortened + "0 ActualRead:10", ""},
      {{"abc", {content}}, {lost}, shortened + "0 ActualRead:10", ""},
      {{"99999999999", {content}}, {lost}, shortened + "2147483647 ActualRead:10", "10 "},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.logged);
    ResetDialog();
    std::filesystem::remove("session.log");
    std::filesystem::remove("f");
    std::filesystem::remove("VelmoraUpdate.cvc");
    ServeList(FileLine("f", content));
    services.files["/f"] = test.served;
    EXPECT_TRUE(UpdateFiles());
    EXPECT_EQ(EventsOf("box"), test.boxes);
    EXPECT_FALSE(LogMessagesWith(test.logged).empty()) << ReadFile("session.log");
    std::string positions;
    for (const auto& event : EventsOf("position 1005 ")) positions += event.substr(14) + " ";
    EXPECT_EQ(positions, test.positions);
    EXPECT_EQ(ReadFile("f"), test.boxes.empty() ? content : "(none)");
  }
}

TEST_F(ServiceFailure, ListThatComesInPart) {
  const std::string list = FileLine("a", "") + FileLine("bb", "") + "DEL : c";
  services.files["/hashlist.dat"] = {std::to_string(list.size()),
                                     {list.substr(0, FileLine("a", "").size() + 8)}};
  EXPECT_TRUE(ConnectServer());
  Lines paths;
  for (const FileRecord& record : UpdateSet) paths.push_back(record.path);
  EXPECT_EQ(paths, (Lines{"a", "b"}));
  EXPECT_EQ(RemoveSet.Count(), 0U);

  // Whoever connects anew closes what the last connection left.
  services.closed.clear();
  services.files["/hashlist.dat"] = {"100", {}, true};
  EXPECT_TRUE(ConnectServer());
  EXPECT_EQ(services.closed, (std::vector<platform::HttpHandle>{kConnection, kSession, kRequest}));
  EXPECT_EQ(UpdateSet.Count(), 0U);
}

}  // namespace
}  // namespace velmora::test

// HTTP and thread failures that no server can cause on demand, from test doubles for the platform's
// functions.
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
#include "settings/probe_client.h"
#include "support/recording_dialog.h"
#include "support/workspace.h"

namespace velmora::platform {
namespace {

struct Served {
  std::string length;               // Content-Length
  std::vector<std::string> chunks;  // as they become available
  bool breaks = false;              // the read after the last chunk fails
};

struct Services {
  bool opensSession = true;
  bool readsFail = false;  // although they return bytes; the last of a whole body succeeds
  std::map<std::string, Served> files;
  std::string requested;
  std::size_t chunk = 0;
  std::string closed;  // S, C and R for session, connection and request, in order
};
Services services;

}  // namespace

HttpHandle OpenHttpSession(const char*) { return services.opensSession ? 'S' : kNoHttpHandle; }
void SetHttpTimeouts(HttpHandle, std::uint32_t milliseconds) { EXPECT_EQ(milliseconds, 10000U); }
HttpHandle ConnectHttp(HttpHandle, const std::string& host, std::uint16_t, const std::string&,
                       const std::string&) {
  return host == "nowhere" ? kNoHttpHandle : 'C';
}
HttpHandle OpenHttpGet(HttpHandle, const std::string& path) {
  services.requested = path;
  services.chunk = 0;
  return 'R';
}
void SendHttpRequest(HttpHandle) {}
std::optional<std::string> QueryHttpField(HttpHandle, HttpField field, std::size_t) {
  return field == HttpField::kStatusCode ? "200" : services.files[services.requested].length;
}
HttpFailure QueryHttpFailure(HttpHandle) { return HttpFailure::kNone; }
std::optional<std::string> QueryHttpRedirect(HttpHandle) { return std::nullopt; }
std::uint32_t QueryHttpDataAvailable(HttpHandle) {
  const Served& file = services.files[services.requested];
  if (services.chunk == file.chunks.size()) return file.breaks ? 1 : 0;
  return static_cast<std::uint32_t>(file.chunks[services.chunk].size());
}
bool ReadHttp(HttpHandle, void* buffer, std::uint32_t size, std::uint32_t& read) {
  const Served& file = services.files[services.requested];
  read = 0;
  if (services.chunk == file.chunks.size()) return !file.breaks;
  const std::string& chunk = file.chunks[services.chunk++];
  read = std::min(size, static_cast<std::uint32_t>(chunk.size()));
  std::memcpy(buffer, chunk.data(), read);
  return !services.readsFail || (services.chunk == file.chunks.size() && !file.breaks);
}
void CloseHttpHandle(HttpHandle handle) { services.closed += static_cast<char>(handle); }

// A run happens at once, on the thread that starts it.
ThreadHandle StartThread(void (*entry)()) {
  entry();
  return 1;
}
void CloseThreadHandle(ThreadHandle) {}

}  // namespace velmora::platform

namespace velmora::test {
namespace {

using Lines = std::vector<std::string>;
using platform::services;

class ServiceFailure : public EngineTest {
 protected:
  ServiceFailure() { services = platform::Services(); }
  static void ServeList(const std::string& list) {
    services.files["/hashlist.dat"] = {std::to_string(list.size()), {list}};
  }
  static Lines ErrorBox(const char* text) {
    return {FormatText("box 40010 %s|%s", texts::kErrorCaption, text)};
  }
};

TEST_F(ServiceFailure, HandlesAreClosedOnceAndInOrder) {
  services.opensSession = false;
  EXPECT_TRUE(UpdateFiles());
  EXPECT_EQ(services.closed, "");
  EXPECT_EQ(EventsOf("box"), ErrorBox(texts::kNoInternet));
  services.opensSession = true;
  ServeList("");
  EXPECT_TRUE(UpdateFiles());
  EXPECT_EQ(services.closed, "RCS");
  // A failed download leaves its request to the end of the run.
  ServeList(FileLine("a", "1"));
  EXPECT_TRUE(UpdateFiles());
  EXPECT_EQ(services.closed, "RCSRRCS");

  // A new connection first closes what the last one left.
  services.closed.clear();
  EXPECT_TRUE(ConnectServer());
  services.files["/hashlist.dat"] = {"100", {}, true};
  EXPECT_TRUE(ConnectServer());
  EXPECT_EQ(services.closed, "RCSR");
  EXPECT_EQ(UpdateSet.Count(), 0U);
}

TEST_F(ServiceFailure, BodiesThatBreakOrRunOver) {
  const std::string content = "0123456789";
  const struct {
    platform::Served served;
    bool succeeds;
    std::string logged;
  } cases[] = {
      {{"10", {"0123", "45678", "9"}}, true, "Update Success : file f "},
      {{"10", {"0123", "45"}, true}, false, "InternetReadFile() :: f : 6"},
      {{"5", {"012", "345", "6789"}}, false, "f : IndicatedSize:5 ActualRead:6"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.logged);
    ResetDialog();
    for (const char* file : {"f", "VelmoraUpdate.cvc"}) std::filesystem::remove(file);
    ServeList(FileLine("f", content));
    services.files["/f"] = test.served;
    EXPECT_TRUE(UpdateFiles());
    EXPECT_EQ(EventsOf("box"), test.succeeds ? Lines{} : ErrorBox(texts::kConnectionLost));
    EXPECT_EQ(LogMessagesWith(test.logged).size(), 1U) << ReadFile("session.log");
    EXPECT_EQ(ReadFile("f"), test.succeeds ? content : "(none)");
  }
}

// A failed read that returned bytes is repeated for the rest.
TEST_F(ServiceFailure, ProbeReadsOnUntilAReadFailsWithNothing) {
  services.readsFail = true;
  services.files = {{"/whole", {"10", {"0123", "45", "678"}}},
                    {"/broken", {"10", {"0123", "45"}, true}}};
  std::int32_t status = 0;
  std::int32_t length = 0;
  ProbeClient client("agent");
  ASSERT_TRUE(client.Connect("host"));
  EXPECT_STREQ(client.FetchBody("/whole", &status, &length), "012345678");
  EXPECT_EQ(status, 200);
  EXPECT_EQ(length, 10);
  EXPECT_EQ(client.FetchBody("/broken"), nullptr);
  client.Close();
  EXPECT_EQ(services.closed, "RRCS");
  EXPECT_FALSE(client.Connect("nowhere"));
}

}  // namespace
}  // namespace velmora::test

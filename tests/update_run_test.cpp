#include "engine/update_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "base/text.h"
#include "base/texts.h"
#include "engine/install.h"
#include "engine/record_set.h"
#include "engine/update_state.h"
#include "engine/verify_cache.h"
#include "platform/files.h"
#include "settings/patcher_settings.h"
#include "support/recording_dialog.h"
#include "support/workspace.h"
#include "ui/update_dialog.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

std::string Checking(int index, int total, const std::string& path) {
  return FormatText("status %s %d / %d \n%s", texts::kChecking, index, total, path.c_str());
}

std::string Removing(int index, int total, const std::string& path) {
  return FormatText("status %s %d / %d \n%s", texts::kRemoving, index, total, path.c_str());
}

std::string ErrorBox(const std::string& text) {
  return FormatText("box 40010 %s|%s", texts::kErrorCaption, text.c_str());
}

std::string NotOnServerBox(const std::string& path) {
  return ErrorBox(FormatText(texts::kNotOnServer, path.c_str()));
}

// What every run shows up to its first pass, and what it shows at its end.
const Lines kStart = {"enable 1001 0", "range 1002 0 1",
                      "step 1002 1",   "position 1002 0",
                      "enable 1000 0", std::string("status ") + texts::kConnecting};
const Lines kEnterPasses = {"position 1002 0", "enable 1000 1", "caption 1000 CancelUpdate"};
const Lines kCompletedFirst = {std::string("status ") + texts::kCompleted, "enable 1001 1",
                               "enable 1007 1"};
const Lines kCancelled = {std::string("status ") + texts::kCancelled, "enable 1000 0"};
const Lines kClosing = {"caption 1000 UpdateFiles", "enable 1000 1"};

Lines Joined(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// What a record shows: its head, the file bar, and the bar's moves during a download.
Lines Record(int index, int total, const std::string& path, int size, const Lines& download = {}) {
  const std::string text = std::to_string(size);
  return Joined({{Checking(index, total, path), "range 1005 0 " + text, "step 1005 1"},
                 download,
                 {"position 1005 " + text, "stepit 1002"}});
}

std::string CorrectHash(const std::string& content) {
  return "Correct Hash : " + Sha1(content) + " [local] vs " + Sha1(content) + " [reference]";
}

class UpdateRun : public EngineTest {
 protected:
  // Presses the Update button when the dialog sees `event`.
  static void CancelAt(const std::string& event) {
    Dialog().onEvent = [event](const std::string& seen) {
      if (seen == event) {
        EXPECT_EQ(UpdateDialogHandlers().command(1000), 0);
      }
    };
  }
  // Empties the folder and forgets what the dialog saw.
  static void StartAnew() {
    for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
    ResetDialog();
    RestartRequested = 0;
  }
};

TEST_F(UpdateRun, FirstInstallationShowsAndLogsEveryStep) {
  WriteFile("old.tmp", "x");
  WriteFile("g.dat", "good and long");
  WriteFile("ok.dat", "good");
  const std::string packed = Compressed("packed content");
  const auto packedSize = static_cast<int>(packed.size());
  Serve({{"/hashlist.dat", FileLine("ok.dat", "good") + FileLine("g.dat", "good and long") +
                               FileLine("sub\\new1.dat", "fresh") +
                               CompressedLine("packed.dat", "packed content") +
                               "DEL : old.tmp\r\n" + "EXE : bin\\Game.exe\n"},
         {"/sub/new1.dat", "fresh"},
         {"/packed.dat.compressed", packed}});
  ASSERT_TRUE(Run());

  const std::string received = "position 1005 " + std::to_string(packedSize);
  EXPECT_EQ(Dialog().events, Joined({kStart,
                                     kEnterPasses,
                                     {"range 1002 0 5", "step 1002 1"},
                                     {Removing(0, 1, "old.tmp"), "stepit 1002"},
                                     Record(0, 4, "g.dat", 13),
                                     Record(1, 4, "ok.dat", 4),
                                     Record(2, 4, "packed.dat", packedSize, {received}),
                                     Record(3, 4, "sub\\new1.dat", 5, {"position 1005 5"}),
                                     kCompletedFirst,
                                     kClosing}));
  Lines logged = LogMessages();
  for (std::string& message : logged) {  // numbers of handles
    if (message.starts_with("Internet")) message = message.substr(0, message.rfind(" = "));
  }
  const std::string status = FormatText(texts::kLogListStatus, 200);
  EXPECT_EQ(
      logged,
      (Lines{"UpdateFiles : Entering FileUpdate Thread.",
             "Internet : Trying connect to [Address : 127.0.0.1 Port: " +
                 std::to_string(server_->port()) + "] (User: Psw:)",
             "InternetOpen() : SUCCESS : Status", "InternetConnect() : SUCCESS : Status",
             "requested information file : /hashlist.dat", status.substr(0, status.size() - 1),
             CorrectHash("good and long"), CorrectHash("good"),
             "Couldn't find File : File packed.dat will be update. ", CorrectHash(packed),
             "Update Success : file packed.dat ",
             "Couldn't find File : File sub\\new1.dat will be update. ", CorrectHash("fresh"),
             "Update Success : file sub\\new1.dat ", "GetMissingFile() : Update Completed."}));
  EXPECT_EQ(FilesHere(), (Files{{"g.dat", "good and long"},
                                {"ok.dat", "good"},
                                {"packed.dat", "packed content"},
                                {"sub/new1.dat", "fresh"}}));
  EXPECT_EQ(UpdateState, kEnded);
  EXPECT_EQ(Settings.ClientExe, "bin\\Game.exe");
  // One connection serves the whole run.
  for (const ServedRequest& request : server_->Requests()) EXPECT_EQ(request.connection, 1);
}

TEST_F(UpdateRun, VouchedFilesAreNeitherReadNorRequested) {
  Publish({{"a.dat", "good"}, {"b.dat", "bb"}});
  ASSERT_TRUE(Run());
  WriteFile("a.dat", "changed by the player");
  fs::remove("b.dat");
  fs::remove("session.log");
  ASSERT_TRUE(Run());
  EXPECT_EQ(FilesHere(), (Files{{"a.dat", "changed by the player"}, {"b.dat", "bb"}}));
  EXPECT_TRUE(LogMessagesWith("a.dat").empty());
  EXPECT_EQ(LogMessagesWith("b.dat"), (Lines{"Couldn't find File : File b.dat will be update. ",
                                             "Update Success : file b.dat "}));
  EXPECT_EQ(RequestedPaths(),
            (Lines{"/hashlist.dat", "/a.dat", "/b.dat", "/hashlist.dat", "/b.dat"}));
}

TEST_F(UpdateRun, ListOfRemovalsStepsTheFullBar) {
  WriteFile("a", "x");
  Publish({}, "DEL : a\nDEL : gone.dat\n");
  ASSERT_TRUE(Run());
  EXPECT_EQ(Dialog().events,
            Joined({kStart,
                    kEnterPasses,
                    {"move 1002 1"},
                    {Removing(0, 2, "a"), "stepit 1002", Removing(1, 2, "gone.dat"), "stepit 1002"},
                    kCompletedFirst,
                    kClosing}));
  EXPECT_EQ(LogMessagesWith("gone.dat"),
            Lines{"[Error] RemoveFiles( gone.dat ) Couldn't delete this file. "});
  EXPECT_TRUE(FilesHere().empty());
}

// The record that is worked on is finished, and what was verified up to then is in the cache. After
// the last record nobody looks for a cancel any more.
// One form of removal takes only a file, the other only a folder: a list can replace one by the
// other, and keep the removal for players who come later.
TEST_F(UpdateRun, FileAndFolderTakeEachOthersPlaces) {
  const Files others = {{"swap/ab", "o"}, {"b/swap/a", "o"}, {"a", "o"}};  // similar, and not meant
  const struct {
    Files before;
    std::string removal, path, request;
  } cases[] = {
      {{{"swap/a", "old"}}, "DEL : swap\\a, R\n", "swap\\a\\x", "/swap/a/x"},
      {{{"swap/a/x", "old"}, {"swap/a/d/own", "o"}}, "DEL : swap\\a\\\n", "swap\\a", "/swap/a"},
  };
  for (const auto& [before, removal, path, request] : cases) {
    Files after = others;
    after[request.substr(1)] = "new";
    for (const bool isDone : {false, true}) {
      StartAnew();
      Files installed = isDone ? after : others;
      if (!isDone) installed.insert(before.begin(), before.end());
      for (const auto& [name, content] : installed) WriteFile(name, content);
      Publish({{path, "new"}}, removal);
      for (int start = 1; start <= 2; ++start) {
        EXPECT_TRUE(Run());
        EXPECT_EQ(FilesHere(), after) << removal << start;
      }
      const Lines requested = isDone ? Lines{"/hashlist.dat", "/hashlist.dat"}
                                     : Lines{"/hashlist.dat", request, "/hashlist.dat"};
      EXPECT_EQ(RequestedPaths(), requested) << removal;
    }
  }
}

TEST_F(UpdateRun, CancelTakesEffectAtTheNextRecord) {
  const std::vector<Lines> steps = {{Removing(0, 2, "x"), "stepit 1002"},
                                    {Removing(1, 2, "yy"), "stepit 1002"},
                                    Record(0, 2, "a", 1, {"position 1005 1"}),
                                    Record(1, 2, "bb", 1, {"position 1005 1"})};
  const Files left[] = {{{"yy", "y"}}, {}, {{"a", "1"}}, {{"a", "1"}, {"bb", "2"}}};
  Lines shown;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    SCOPED_TRACE(i);
    const bool completes = i + 1 == steps.size();
    Lines last = steps[i];
    last.insert(last.begin() + 1, "enable 1000 0");
    StartAnew();
    WriteFile("x", "x");
    WriteFile("yy", "y");
    Publish({{"a", "1"}, {"bb", "2"}}, "DEL : x\nDEL : yy\n");
    CancelAt(steps[i].front());
    ASSERT_TRUE(Run());
    EXPECT_EQ(Dialog().events, Joined({kStart,
                                       kEnterPasses,
                                       {"range 1002 0 4", "step 1002 1"},
                                       shown,
                                       last,
                                       completes ? kCompletedFirst : kCancelled,
                                       kClosing}));
    EXPECT_EQ(FilesHere(), left[i]);
    EXPECT_EQ(UpdateState, kEnded);
    EXPECT_EQ(LogMessagesWith("Cancelled by User").size(), completes ? 0U : 1U);
    Dialog().onEvent = nullptr;
    ASSERT_TRUE(Run());
    EXPECT_EQ(FilesHere(), left[3]);
    EXPECT_EQ(RequestedPaths().size(), 4U);  // the list twice, each file once
    shown = Joined({shown, steps[i]});
  }
}

TEST_F(UpdateRun, FailuresAtTheConnection) {
  WriteFile(kCacheFile, "kept H 1 H 1 0\r\n");
  const auto fails = [this](const std::string& box, const std::string& logged) {
    for (FileRecordSet* earlier : {&UpdateSet, &RemoveSet}) earlier->InsertRecord({});
    ResetDialog();
    fs::remove("session.log");
    ASSERT_TRUE(Run());
    EXPECT_EQ(Dialog().events, Joined({kStart, {box}, kClosing}));
    EXPECT_FALSE(LogMessagesWith(logged).empty()) << ReadFile("session.log");
    EXPECT_EQ(UpdateState, kNotRunning);
    EXPECT_EQ(ReadFile(kCacheFile), "kept H 1 H 1 0\r\n");
  };
  fails(ErrorBox(texts::kNoServer), "Couldn't connect to :");
  const struct {
    Reply reply;
    const char* logged;
  } cases[] = {
      {Raw("", "FILE : a"), "no usable Content-Length : none"},
      {Raw("Transfer-Encoding: chunked\r\n", "8\r\nFILE : a\r\n0\r\n\r\n"),
       "no usable Content-Length : none"},
      {Raw("Content-Length: -5\r\n", "FILE : a"), ": code 200"},
      {{"garbage\r\n\r\n", Reply::End::kClose}, ": code "},
      {Status(404), ": code 404 "},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.reply.bytes);
    Serve([&test](const ServedRequest&) { return test.reply; });
    fails(NotOnServerBox("/hashlist.dat"), test.logged);
    EXPECT_EQ(UpdateSet.Count() + RemoveSet.Count(), 0U);
  }
  EXPECT_EQ(LogMessagesWith(": code 404 ").size(), 2U);
  server_.reset();  // refused
  fails(NotOnServerBox("/hashlist.dat"), ": code 0");
  EXPECT_EQ(LogMessagesWith("STATUS_CODE").size(), 2U);
}

// The records of what came count, also that of the last line, wherever it is cut. A length that is
// no number announces an empty list.
TEST_F(UpdateRun, ListThatEndsEarlyCountsAsFarAsItCame) {
  const std::string files = FileLine("a.dat", "new") + FileLine("b.dat", "new");
  const std::string removal = "DEL : data\\old.tmp\r\n";
  const Files both = {{"data/kept", "x"}, {"data/old.tmp", "x"}};
  const struct {
    std::string came;
    Files left;
    const char* length = "1000";
  } cases[] = {
      {files.substr(0, files.size() - 2),
       {{"a.dat", "new"}, {"b.dat", "new"}, {"data/kept", "x"}, {"data/old.tmp", "x"}}},
      {removal.substr(0, 6), both},
      {removal.substr(0, 10), {}},
      {removal.substr(0, 18), {{"data/kept", "x"}}},
      {"DEL : data\\old.tmp" + std::string("\0x\r\n", 4) + removal, {{"data/kept", "x"}}},
      {removal, both, "abc"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.came);
    StartAnew();
    for (const char* file : {"data/old.tmp", "data/kept"}) WriteFile(file, "x");
    Serve([&](const ServedRequest& request) {
      const std::string length = std::string("Content-Length: ") + test.length + "\r\n";
      return request.path != "/hashlist.dat" ? Ok("new") : Raw(length, test.came);
    });
    ASSERT_TRUE(Run());
    EXPECT_EQ(FilesHere(), test.left);
    EXPECT_EQ(UpdateState, kEnded);
  }
}

// Each way in which a download can fail, with what the player and the log are told.
TEST_F(UpdateRun, FailuresOfADownload) {
  const std::string good = "0123456789";
  const std::string lost = ErrorBox(texts::kConnectionLost);
  const std::string plain = FileLine("d\\f.dat", good);
  const std::string stream = Compressed(good);
  const std::string tooShort =
      "[Error] Download Failed(Insufficient File data has been read):: d\\f.dat : IndicatedSize:";
  const std::string spaces = "d\\" + std::string(90, ' ') + "x";  // three bytes each in a request
  const auto packed = [](const std::string& bytes, const std::string& size) {
    return "FILE : d\\f.dat.compressed, " + Sha1(bytes) + ", 10, X, " + size + "\n";
  };
  const auto announced = [](const std::string& length, const std::string& body) {
    return Raw("Content-Length: " + length + "\r\n", body);
  };
  const struct {
    std::string line;
    Reply reply;
    std::string box;
    std::string logged;
  } cases[] = {
      {plain, Status(404), NotOnServerBox("d\\f.dat"), ": code 404 file = d\\f.dat "},
      {plain, announced("10", "01234"), lost, tooShort + "10 ActualRead:5"},
      {plain, Raw("Content-Length: 10\r\n", "01234", Reply::End::kReset), lost,
       tooShort + "10 ActualRead:"},
      {plain, Raw("", good), lost, tooShort},
      {plain, announced("-10", good), lost, tooShort},
      {plain, announced("abc", good), lost, tooShort + "0 ActualRead:10"},
      {plain, announced("2147483647", good), lost, tooShort + "2147483647 ActualRead:10"},
      {plain, Ok("0123456780"), ErrorBox(texts::kWrongData),
       "Error Invalid Hash : file d\\f.dat Hash is " + Sha1(good) + " "},
      {plain, Ok(""), ErrorBox(texts::kWrongData), "Error Invalid Hash : file d\\f"},
      {packed(good, "10"), Ok(good), ErrorBox(texts::kExpandFailed),
       "Error uncompress failed : file d\\f.dat "},
      {packed(stream, "9"), Ok(stream), ErrorBox(texts::kExpandFailed), "Error uncompress failed"},
      {packed(stream, "-1"), Ok(stream), lost, "Couldn't allocate -1 bytes : File d\\f.dat "},
      {FileLine(spaces, good), Ok(good), NotOnServerBox(spaces), "its path is too long : file d"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.line + test.reply.bytes);
    StartAnew();
    WriteFile("d/f.dat", "before");
    Serve([&](const ServedRequest& request) {
      if (request.path == "/a") return Ok("1");
      return request.path != "/hashlist.dat" ? test.reply
                                             : Ok(FileLine("a", "1") + test.line +
                                                  FileLine("z\\" + std::string(99, 'z'), good));
    });
    ASSERT_TRUE(Run());
    EXPECT_EQ(EventsOf("box"), Lines{test.box});
    EXPECT_FALSE(LogMessagesWith(test.logged).empty()) << ReadFile("session.log");
    // The failed record doesn't step the bar, those after it are left alone, the old file stays.
    EXPECT_EQ(EventsOf("stepit").size(), 1U);
    EXPECT_EQ(FilesHere(), (Files{{"a", "1"}, {"d/f.dat", "before"}}));
    EXPECT_EQ(ReadFile(kCacheFile), CacheEntry("a", "1"));
    EXPECT_EQ(UpdateState, kNotRunning);
    const Lines end = Joined({{test.box, "enable 1000 0"}, kClosing});
    EXPECT_TRUE(std::equal(end.rbegin(), end.rend(), Dialog().events.rbegin()));
  }
}

// Nothing is half there at any moment: a reader who opened the old file keeps reading it, and what
// a killed patcher left is removed.
TEST_F(UpdateRun, FilesAreReplacedInOneStep) {
  WriteFile("old.dat", "old and long");
  fs::create_hard_link("old.dat", "other name");
  WriteFile("single.dat", "old");
  for (const char* left : {kUnfinishedFile, "e/_VelmoraUpdate.new", kCacheFileAside}) {
    WriteFile(left, "half of somethi");
  }
  WriteFile(kUnfinishedFolders, "e\\\nnot\\there\\\nha");  // the last line is cut
  WriteFile("ha_VelmoraUpdate.new", "the player's");
  std::ifstream reader("single.dat", std::ios::binary);
  Publish({{"old.dat", "new"}, {"single.dat", "other"}, {"d\\new.dat", "third"}});
  ASSERT_TRUE(Run());
  EXPECT_EQ(FilesHere(), (Files{{"old.dat", "new"},
                                {"other name", "new"},  // in place
                                {"single.dat", "other"},
                                {"ha_VelmoraUpdate.new", "the player's"},
                                {"d/new.dat", "third"}}));
#ifndef _WIN32  // there a reader keeps a file from being replaced, and it is written in place
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "old");
#endif
  EXPECT_TRUE(EventsOf("box").empty());
}

// A stream may expand to less than its size, and a plain file gets the listed one. The list's
// transfer size doesn't count. The second byte of 0x95 0x5C is a slash to the server, and part of
// the name on disk.
TEST_F(UpdateRun, DownloadsByWhatTheServerSays) {
  const std::string stream = Compressed("short");
  const std::string list = "FILE : bb.compressed, " + Sha1(stream) + ", 999, X, 100\n" +
                           "FILE : c c.dat, " + Md5("123") + ", x, X, 5\n" +
                           FileLine("f\\\x95\x5C.dat", "");
  Serve([&](const ServedRequest& request) {
    if (request.path == "/hashlist.dat") return Ok(list);
    if (request.path == "/bb.compressed") return Ok(stream);
    if (request.path == "/c%20c.dat") return Ok("123");
    const bool isDoubleByte = request.path.starts_with("/f/") && request.path.ends_with("/.dat");
    return isDoubleByte ? Ok("") : Status(404);
  });
  ASSERT_TRUE(Run());
  EXPECT_EQ(UpdateState, kEnded);
  EXPECT_TRUE(platform::FileExists("f\\\x95\x5C.dat"));
  EXPECT_EQ(ReadFile("bb"), "short");
  EXPECT_EQ(ReadFile("c c.dat"), std::string("123\0\0", 5));
}

TEST_F(UpdateRun, ReplacedPatcherOrSettingsFileEndsTheRun) {
  const std::string program = "update program has been updated. need to run new patcher.";
  const struct {
    std::string path;
    std::string settingsPath;
    std::string logged;  // nothing if the run goes on
  } cases[] = {
      {"VelmoraUpdate.exe", "./VelmoraUpdate.dat", program},
      {"old\\VelmoraUpdate.exe.bak", "./VelmoraUpdate.dat", program},
      {"conf\\VelmoraUpdate.dat", "VelmoraUpdate.dat",
       "data reference file has been updated. need to reboot patch "},
      // The settings file's own spelling must be part of the path.
      {"VelmoraUpdate.dat", "./VelmoraUpdate.dat", ""},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.path);
    StartAnew();
    Settings.SettingsPath = test.settingsPath;
    const bool restarts = !test.logged.empty();
    const std::string after(test.path.size() + 3, 'z');
    Publish({{test.path, "new"}, {after, "z"}});
    ASSERT_TRUE(Run());
    EXPECT_EQ(RestartRequested, restarts ? 1U : 0U);
    EXPECT_EQ(UpdateState, restarts ? kRunning : kEnded);
    EXPECT_EQ(fs::exists(after), !restarts);
    if (!restarts) continue;
    EXPECT_EQ(LogMessagesWith("has been updated"), Lines{test.logged});
    EXPECT_EQ(
        Dialog().events,
        Joined({kStart,
                kEnterPasses,
                {"range 1002 0 2", "step 1002 1"},
                {Checking(0, 2, test.path), "range 1005 0 3", "step 1005 1", "position 1005 3"},
                {FormatText("box 40040 VelmoraUpdate|%s", texts::kPatcherUpdated), "close"},
                {"enable 1000 0"},
                kClosing}));
    EXPECT_EQ(ReadFile(kCacheFile), CacheEntry(test.path, "new"));
    // A patcher that is right already asks for nothing.
    RestartRequested = 0;
    ASSERT_TRUE(Run());
    EXPECT_EQ(RestartRequested, 0U);
  }
}

TEST_F(UpdateRun, RestartWinsOverACancelAndAFailureToo) {
  Publish({{"VelmoraUpdate.exe", "new"}});
  CancelAt("position 1005 3");
  ASSERT_TRUE(Run());
  EXPECT_EQ(RestartRequested, 1U);
  EXPECT_EQ(UpdateState, kCancelAsked);

  StartAnew();
  Serve({{"/hashlist.dat", FileLine("a", "1") + FileLine("bb", "2")}, {"/a", "wrong"}});
  CancelAt(Checking(0, 2, "a"));
  ASSERT_TRUE(Run());
  EXPECT_EQ(UpdateState, kNotRunning);
  EXPECT_EQ(EventsOf("box"), Lines{ErrorBox(texts::kWrongData)});
  EXPECT_TRUE(LogMessagesWith("Cancelled").empty());
}

TEST_F(UpdateRun, RecheckIsOfferedOnce) {
  const auto command = [](int control) {
    const int result = UpdateDialogHandlers().command(control);
    WaitForRunEnd();
    return result;
  };
  Publish({{"a", "1"}});
  ASSERT_TRUE(Run());
  EXPECT_EQ(EventsOf("enable 1007"), Lines{"enable 1007 1"});

  // The damaged file is found, since the cache is gone; the button stays disabled at the end.
  WriteFile("a", "damaged");
  ResetDialog();
  EXPECT_EQ(command(1007), 0);
  EXPECT_EQ(ReadFile("a"), "1");
  EXPECT_EQ(RecheckPending, 0);
  EXPECT_EQ(EventsOf("enable 1007"), Lines{"enable 1007 0"});
  EXPECT_EQ(EventsOf("enable 1001"), (Lines{"enable 1001 0", "enable 1001 1"}));

  // A re-check that fails stays pending; the run that completes later clears it.
  ResetDialog();
  Settings.ServerPort = 1;
  EXPECT_EQ(command(1007), 0);
  EXPECT_EQ(RecheckPending, 1);
  Settings.ServerPort = server_->port();
  EXPECT_EQ(command(1000), 0);
  EXPECT_EQ(RecheckPending, 0);
  EXPECT_EQ(EventsOf("enable 1007"), (Lines{"enable 1007 0", "enable 1007 0"}));
  // And the next one, started by the Update button, enables it.
  EXPECT_EQ(command(1000), 0);
  EXPECT_EQ(EventsOf("enable 1007").back(), "enable 1007 1");
}

TEST_F(UpdateRun, ASecondRunIsRefusedWhileOneLives) {
  Publish({{"a", "1"}});
  WriteFile(kCacheFile, "kept H 1 H 1 0\r\n");
  std::vector<int> results;
  Dialog().onEvent = [&](const std::string& seen) {
    if (seen != Checking(0, 1, "a")) return;
    UpdateState = kNotRunning;  // so that the Update button doesn't cancel
    for (const int control : {1000, 1007}) {
      results.push_back(UpdateDialogHandlers().command(control));
    }
    EXPECT_EQ(ReadFile(kCacheFile), "kept H 1 H 1 0\r\n");
  };
  ASSERT_TRUE(Run());
  EXPECT_EQ(results, (std::vector<int>{-1, -1}));
  EXPECT_EQ(RecheckPending, 0);
  EXPECT_EQ(EventsOf("enable 1001 0").size(), 1U);
}

}  // namespace
}  // namespace velmora::test

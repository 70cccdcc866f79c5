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

using Lines = std::vector<std::string>;

const std::string kHost = "127.0.0.1";

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
const Lines kCancelled = {std::string("status ") + texts::kCancelled};
const Lines kHandled = {"enable 1000 0"};
const Lines kClosing = {"caption 1000 UpdateFiles", "enable 1000 1"};

Lines Joined(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A whole record: its head, the file bar, and what a download of `chunks` moves.
Lines Record(int index, int total, const std::string& path, int size, const Lines& download = {}) {
  const std::string text = std::to_string(size);
  return Joined({{Checking(index, total, path), "range 1005 0 " + text, "step 1005 1"},
                 download,
                 {"position 1005 " + text, "stepit 1002"}});
}

Lines Connected(const std::string& list, int status, int port) {
  return {"UpdateFiles : Entering FileUpdate Thread.",
          FormatText("Internet : Trying connect to [Address : %s Port: %d] (User: Psw:)",
                     kHost.c_str(), port),
          "InternetOpen() : SUCCESS : Status = N",
          "InternetConnect() : SUCCESS : Status = N",
          "requested information file : " + list,
          FormatText(texts::kLogListStatus, status)
              .substr(0, FormatText(texts::kLogListStatus, status).size() - 1)};
}

// The log with the numbers of handles hidden.
Lines Log() {
  Lines messages = LogMessages();
  for (std::string& message : messages) {
    const std::size_t at = message.find("SUCCESS : Status = ");
    if (at != std::string::npos) message = message.substr(0, at) + "SUCCESS : Status = N";
  }
  return messages;
}

std::string CorrectHash(const std::string& content) {
  return "Correct Hash : " + Sha1(content) + " [local] vs " + Sha1(content) + " [reference]";
}

class UpdateRun : public EngineTest {
 protected:
  // Asks for a cancel, as the Update button does, when the dialog sees `event`.
  static void CancelAt(const std::string& event) {
    Dialog().onEvent = [event](const std::string& seen) {
      if (seen == event) UpdateState = kCancelAsked;
    };
  }
};

TEST_F(UpdateRun, FirstInstallationShowsAndLogsEveryStep) {
  WriteFile("old.tmp", "x");
  WriteFile("good.dat", "good");
  Serve({{"/hashlist.dat", FileLine("good.dat", "good") + FileLine("sub\\new1.dat", "fresh") +
                               CompressedLine("packed.dat", "packed content") +
                               "DEL : old.tmp\r\n" + "EXE : bin\\Game.exe\n"},
         {"/sub/new1.dat", "fresh"},
         {"/packed.dat.compressed", Compressed("packed content")}});
  ASSERT_TRUE(Run());

  const int packedSize = static_cast<int>(Compressed("packed content").size());
  EXPECT_EQ(Dialog().events, Joined({kStart,
                                     kEnterPasses,
                                     {"range 1002 0 4", "step 1002 1"},
                                     {Removing(0, 1, "old.tmp"), "stepit 1002"},
                                     Record(0, 3, "good.dat", 4),
                                     Record(1, 3, "packed.dat", packedSize,
                                            {"position 1005 " + std::to_string(packedSize)}),
                                     Record(2, 3, "sub\\new1.dat", 5, {"position 1005 5"}),
                                     kCompletedFirst,
                                     kClosing}));
  EXPECT_EQ(
      Log(),
      Joined({Connected("/hashlist.dat", 200, Settings.ServerPort),
              {CorrectHash("good"), "Couldn't find File : File packed.dat will be update. ",
               CorrectHash(Compressed("packed content")), "Update Success : file packed.dat ",
               "Couldn't find File : File sub\\new1.dat will be update. ", CorrectHash("fresh"),
               "Update Success : file sub\\new1.dat ", "GetMissingFile() : Update Completed."}}));
  EXPECT_EQ(FilesHere(), (std::map<std::string, std::string>{{"good.dat", "good"},
                                                             {"packed.dat", "packed content"},
                                                             {"sub/new1.dat", "fresh"}}));
  EXPECT_EQ(UpdateState, kEnded);
  EXPECT_EQ(Settings.ClientExe, "bin\\Game.exe");
  EXPECT_EQ(ReadFile("VelmoraUpdate.cvc"),
            "good.dat " + Sha1("good") + " 4 " + Sha1("good") + " 4 0\r\n" + "packed.dat " +
                Sha1(Compressed("packed content")) + " " + std::to_string(packedSize) + " " +
                Sha1("packed content") + " 14 1\r\n" + "sub\\new1.dat " + Sha1("fresh") + " 5 " +
                Sha1("fresh") + " 5 0\r\n");
  // One connection serves the whole run.
  for (const ServedRequest& request : server_->Requests()) EXPECT_EQ(request.connection, 1);
}

TEST_F(UpdateRun, VouchedFilesAreNeitherReadNorRequested) {
  const std::string list = FileLine("a.dat", "good") + FileLine("b.dat", "bb");
  Serve({{"/hashlist.dat", list}, {"/a.dat", "good"}, {"/b.dat", "bb"}});
  ASSERT_TRUE(Run());
  WriteFile("a.dat", "changed by the player");
  std::filesystem::remove("b.dat");
  std::filesystem::remove("session.log");
  ASSERT_TRUE(Run());
  EXPECT_EQ(ReadFile("a.dat"), "changed by the player");
  EXPECT_EQ(ReadFile("b.dat"), "bb");
  EXPECT_TRUE(LogMessagesWith("a.dat").empty());
  EXPECT_EQ(LogMessagesWith("b.dat"), (Lines{"Couldn't find File : File b.dat will be update. ",
                                             "Update Success : file b.dat "}));
  EXPECT_EQ(RequestedPaths(),
            (Lines{"/hashlist.dat", "/a.dat", "/b.dat", "/hashlist.dat", "/b.dat"}));
}

TEST_F(UpdateRun, ListOfRemovalsStepsTheFullBar) {
  WriteFile("a", "x");
  Serve({{"/hashlist.dat", "DEL : a\nDEL : gone.dat\n"}});
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

TEST_F(UpdateRun, CancelTakesEffectAtTheNextRecord) {
  const std::string list = "DEL : x\nDEL : yy\n" + FileLine("a", "1") + FileLine("bb", "2");
  const struct {
    std::string at;
    Lines shown;  // behind the overall bar's range
    std::map<std::string, std::string> files;
    bool completes;
  } cases[] = {
      {Removing(0, 2, "x"), {Removing(0, 2, "x"), "stepit 1002"}, {{"yy", "y"}}, false},
      // During the last removal: the next pass sees it at its first record.
      {Removing(1, 2, "yy"),
       {Removing(0, 2, "x"), "stepit 1002", Removing(1, 2, "yy"), "stepit 1002"},
       {},
       false},
      {Checking(0, 2, "a"),
       Joined({{Removing(0, 2, "x"), "stepit 1002", Removing(1, 2, "yy"), "stepit 1002"},
               Record(0, 2, "a", 1, {"position 1005 1"})}),
       {{"a", "1"}},
       false},
      // During the last record nobody looks any more.
      {Checking(1, 2, "bb"),
       Joined({{Removing(0, 2, "x"), "stepit 1002", Removing(1, 2, "yy"), "stepit 1002"},
               Record(0, 2, "a", 1, {"position 1005 1"}),
               Record(1, 2, "bb", 1, {"position 1005 1"})}),
       {{"a", "1"}, {"bb", "2"}},
       true},
  };
  for (const auto& test : cases) {
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
      std::filesystem::remove_all(entry);
    }
    WriteFile("x", "x");
    WriteFile("yy", "y");
    ResetDialog();
    CancelAt(test.at);
    Serve({{"/hashlist.dat", list}, {"/a", "1"}, {"/bb", "2"}});
    ASSERT_TRUE(Run());
    EXPECT_EQ(Dialog().events, Joined({kStart,
                                       kEnterPasses,
                                       {"range 1002 0 4", "step 1002 1"},
                                       test.shown,
                                       test.completes ? kCompletedFirst : kCancelled,
                                       test.completes ? Lines{} : kHandled,
                                       kClosing}))
        << test.at;
    EXPECT_EQ(FilesHere(), test.files);
    EXPECT_EQ(UpdateState, kEnded);
    EXPECT_EQ(LogMessagesWith("Cancelled by User").size(), test.completes ? 0U : 1U);
  }
}

// What was verified up to the cancel is in the cache, and the next run completes.
TEST_F(UpdateRun, CancelledRunKeepsItsCache) {
  Serve({{"/hashlist.dat", FileLine("a", "1") + FileLine("bb", "2")}, {"/a", "1"}, {"/bb", "2"}});
  CancelAt(Checking(0, 2, "a"));
  ASSERT_TRUE(Run());
  EXPECT_EQ(ReadFile(kCacheFile), "a " + Sha1("1") + " 1 " + Sha1("1") + " 1 0\r\n");
  Dialog().onEvent = nullptr;
  ASSERT_TRUE(Run());
  EXPECT_EQ(RequestedPaths(), (Lines{"/hashlist.dat", "/a", "/hashlist.dat", "/bb"}));
  EXPECT_EQ(Dialog().events.back(), "enable 1000 1");
  EXPECT_EQ(EventsOf("enable 1001").back(), "enable 1001 1");
}

TEST_F(UpdateRun, FailuresAtTheConnection) {
  WriteFile(kCacheFile, "kept H 1 H 1 0\r\n");
  const auto fails = [this](const std::string& box, const std::string& logged) {
    ResetDialog();
    std::filesystem::remove("session.log");
    ASSERT_TRUE(Run());
    EXPECT_EQ(Dialog().events, Joined({kStart, {box}, kClosing}));
    EXPECT_FALSE(LogMessagesWith(logged).empty()) << ReadFile("session.log");
    EXPECT_EQ(UpdateState, kNotRunning);
    EXPECT_EQ(ReadFile(kCacheFile), "kept H 1 H 1 0\r\n");
    EXPECT_EQ(UpdateSet.Count() + RemoveSet.Count(), 0U);
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
    for (FileRecordSet* earlier : {&UpdateSet, &RemoveSet}) earlier->InsertRecord({});
    Serve([&test](const ServedRequest&) { return test.reply; });
    fails(NotOnServerBox("/hashlist.dat"), test.logged);
  }
  EXPECT_EQ(LogMessagesWith(": code 404 ").size(), 2U);
  server_.reset();  // refused
  fails(NotOnServerBox("/hashlist.dat"), ": code 0");
  EXPECT_EQ(LogMessagesWith("STATUS_CODE").size(), 2U);
}

TEST_F(UpdateRun, LengthOfTheListThatIsNoNumberIsAnEmptyList) {
  Serve([](const ServedRequest&) { return Raw("Content-Length: abc\r\n", "EXE : never.exe\n"); });
  ASSERT_TRUE(Run());
  EXPECT_EQ(UpdateState, kEnded);
  EXPECT_TRUE(EventsOf("box").empty());
  EXPECT_NE(Settings.ClientExe, "never.exe");
}

// The records of what came count, also that of the last line, wherever it is cut.
TEST_F(UpdateRun, ListThatEndsEarlyCountsAsFarAsItCame) {
  const std::string files = FileLine("a.dat", "new") + FileLine("b.dat", "new");
  const std::string removal = "DEL : data\\old.tmp\r\n";
  const struct {
    std::string came;
    std::map<std::string, std::string> left;
  } cases[] = {
      {files.substr(0, files.size() - 2),
       {{"a.dat", "new"}, {"b.dat", "new"}, {"data/kept", "x"}, {"data/old.tmp", "x"}}},
      {removal.substr(0, 6), {{"data/kept", "x"}, {"data/old.tmp", "x"}}},
      {removal.substr(0, 10), {}},
      {removal.substr(0, 18), {{"data/kept", "x"}}},
      {"DEL : data\\old.tmp" + std::string("\0x\r\n", 4) + removal, {{"data/kept", "x"}}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.came);
    for (const char* file : {"data/old.tmp", "data/kept"}) WriteFile(file, "x");
    Serve([&](const ServedRequest& request) {
      return request.path != "/hashlist.dat" ? Ok("new")
                                             : Raw("Content-Length: 1000\r\n", test.came);
    });
    ASSERT_TRUE(Run());
    EXPECT_EQ(FilesHere(), test.left);
    for (const auto& [file, content] : test.left) std::filesystem::remove(file);
    std::filesystem::remove(kCacheFile);
  }
}

// Each way in which a download can fail, with what the player and the log are told.
TEST_F(UpdateRun, FailuresOfADownload) {
  const std::string good = "0123456789";
  const std::string lost = ErrorBox(texts::kConnectionLost);
  const auto fileLine = FileLine("d\\f.dat", good);
  const std::string tooLong =
      "[Error] Download Failed(Insufficient File data has been read):: d\\f.dat : IndicatedSize:";
  const auto packed = [&good](const std::string& bytes, const char* size) {
    return "FILE : d\\f.dat.compressed, " + Sha1(bytes) + ", 10, X, " + size + "\n";
  };
  const std::string stream = Compressed(good);
  const auto start = good.substr(0, 5);
  const auto length = [](const char* text) {
    return std::string("Content-Length: ") + text + "\r\n";
  };
  const struct {
    std::string line;
    Reply reply;
    std::string box;
    std::string logged;
  } cases[] = {
      {fileLine, Status(404), NotOnServerBox("d\\f.dat"), ": code 404 file = d\\f.dat "},
      {fileLine, Raw(length("10"), start), lost, tooLong + "10 ActualRead:5"},
      {fileLine, Raw(length("10"), start, Reply::End::kReset), lost, tooLong + "10 ActualRead:"},
      {fileLine, Raw("", good), lost, tooLong},
      {fileLine, Raw(length("-10"), good), lost, tooLong},
      {fileLine, Raw(length("abc"), good), lost, tooLong + "0 ActualRead:10"},
      {fileLine, Raw(length("2147483647"), good), lost, tooLong + "2147483647 ActualRead:10"},
      {fileLine, Ok("0123456780"), ErrorBox(texts::kWrongData),
       "Error Invalid Hash : file d\\f.dat Hash is " + Sha1(good) + " "},
      {fileLine, Ok(""), ErrorBox(texts::kWrongData), "Error Invalid Hash : file d\\f"},
      {packed(good, "10"), Ok(good), ErrorBox(texts::kExpandFailed),
       "Error uncompress failed : file d\\f.dat "},
      {packed(stream, "9"), Ok(stream), ErrorBox(texts::kExpandFailed), "Error uncompress failed"},
      {packed(stream, "-1"), Ok(stream), lost, "Couldn't allocate -1 bytes : File d\\f.dat "}};
  for (const auto& test : cases) {
    SCOPED_TRACE(test.line + test.reply.bytes);
    ResetDialog();
    std::filesystem::remove("session.log");
    WriteFile("d/f.dat", "before");
    Serve([&test](const ServedRequest& request) {
      return request.path == "/hashlist.dat"
                 ? Ok(FileLine("a", "1") + test.line + FileLine("z\\behind.dat", "z"))
             : request.path == "/a" ? Ok("1")
                                    : test.reply;
    });
    ASSERT_TRUE(Run());
    EXPECT_EQ(EventsOf("box"), Lines{test.box});
    EXPECT_FALSE(LogMessagesWith(test.logged).empty()) << ReadFile("session.log");
    // The failed record's bar doesn't step, the ones behind it are not looked at, the old file
    // stays.
    EXPECT_EQ(EventsOf("stepit").size(), 1U);
    EXPECT_EQ(FilesHere(), (std::map<std::string, std::string>{{"a", "1"}, {"d/f.dat", "before"}}));
    EXPECT_EQ(UpdateState, kNotRunning);
    const Lines end = Joined({kHandled, kClosing});
    EXPECT_TRUE(std::equal(end.rbegin(), end.rend(), Dialog().events.rbegin()));
    EXPECT_EQ(ReadFile(kCacheFile).substr(0, 2), "a ");
    EXPECT_EQ(EventsOf("enable 1001"), Lines{"enable 1001 0"});
    std::filesystem::remove(kCacheFile);
    std::filesystem::remove("a");
  }
}

TEST_F(UpdateRun, FailuresToInstall) {
  const auto serve = [this](const std::string& path) {
    Serve([path](const ServedRequest& request) {
      return Ok(request.path == "/hashlist.dat" ? FileLine(path, "new") : "new");
    });
  };
  WriteFile("file", "a file in the way");
  serve("file\\below.dat");
  ASSERT_TRUE(Run());
  ASSERT_EQ(EventsOf("box").size(), 1U);
  EXPECT_TRUE(EventsOf("box")[0].starts_with(ErrorBox("").substr(0, 18)));
  EXPECT_FALSE(LogMessagesWith("MakeSureDirectoryPathExists() : file file\\below.dat ").empty());
  EXPECT_EQ(ReadFile("file"), "a file in the way");

  ResetDialog();
  std::filesystem::create_directories("folder/inside");
  serve("folder");
  ASSERT_TRUE(Run());
  ASSERT_EQ(EventsOf("box").size(), 1U);
  EXPECT_FALSE(LogMessagesWith(" CreateFile() : file folder : Err = ").empty());
  EXPECT_TRUE(std::filesystem::is_directory("folder/inside"));
  EXPECT_EQ(ReadFile(kCacheFile), "(none)");
}

// Nothing is half there at any moment: a reader who opened the old file keeps reading it, and what
// a killed patcher left goes.
TEST_F(UpdateRun, FilesAreReplacedInOneStep) {
  WriteFile("old.dat", "old and long");
  std::filesystem::create_hard_link("old.dat", "other name");
  WriteFile("single.dat", "old");
  for (const char* left : {kUnfinishedFile, "e/_VelmoraUpdate.new", kCacheFileAside}) {
    WriteFile(left, "half of somethi");
  }
  WriteFile(kUnfinishedFolders, "e\\\nnot\\there\\\nha");  // the last line is cut
  WriteFile("ha_VelmoraUpdate.new", "the player's");
  std::ifstream reader("single.dat", std::ios::binary);
  Serve({{"/hashlist.dat", FileLine("old.dat", "new") + FileLine("single.dat", "other") +
                               FileLine("d\\new.dat", "third")},
         {"/old.dat", "new"},
         {"/single.dat", "other"},
         {"/d/new.dat", "third"}});
  ASSERT_TRUE(Run());
  EXPECT_EQ(FilesHere(),
            (std::map<std::string, std::string>{{"old.dat", "new"},
                                                {"other name", "new"},  // in place
                                                {"single.dat", "other"},
                                                {"ha_VelmoraUpdate.new", "the player's"},
                                                {"d/new.dat", "third"}}));
#ifndef _WIN32  // there a reader keeps a file from being replaced, and it is written in place
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "old");
#endif
  EXPECT_TRUE(EventsOf("box").empty());
}

TEST_F(UpdateRun, DownloadsByWhatTheServerSays) {
  // The Content-Length counts and not the list's transfer size; a stream may expand to less than
  // its size; a plain file gets the listed size.
  const std::string stream = Compressed("short");
  Serve(
      {{"/hashlist.dat", "FILE : a, " + Sha1("12345") + ", 999, X, 5\n" + "FILE : bb.compressed, " +
                             Sha1(stream) + ", x, X, 100\n" + "FILE : c c.dat, " + Md5("blank") +
                             ", 5, X, 5\n" + "FILE : dddd.dat, " + Sha1("123") + ", 3, X, 5\n" +
                             "FILE : eeeeee.dat, " + Sha1("") + ", 0, X, 0\n"},
       {"/a", "12345"},
       {"/bb.compressed", stream},
       {"/c%20c.dat", "blank"},
       {"/dddd.dat", "123"},
       {"/eeeeee.dat", ""}});
  ASSERT_TRUE(Run());
  EXPECT_EQ(FilesHere(),
            (std::map<std::string, std::string>{{"a", "12345"},
                                                {"bb", "short"},
                                                {"c c.dat", "blank"},
                                                {"dddd.dat", std::string("123\0\0", 5)},
                                                {"eeeeee.dat", ""}}));
  EXPECT_EQ(UpdateState, kEnded);
}

TEST_F(UpdateRun, DoubleByteNamesAndRequests) {
  // The second byte of 0x95 0x5C is a backslash to the request, and part of the name on disk.
  Serve([](const ServedRequest& request) {
    if (request.path == "/hashlist.dat") return Ok(FileLine("d\\\x95\x5C.dat", "hyou"));
    return request.path.starts_with("/d/") && request.path.ends_with("/.dat") ? Ok("hyou")
                                                                              : Status(404);
  });
  ASSERT_TRUE(Run());
  EXPECT_TRUE(platform::FileExists("d\\\x95\x5C.dat"));
  EXPECT_EQ(FilesHere().size(), 1U);
}

TEST_F(UpdateRun, RequestPathThatDoesNotFitIsRefused) {
  const std::string path(250, 'p');
  Settings.DataPath = "/base/path";
  Serve({{"/base/path/hashlist.dat", FileLine(path, "x")}, {"/base/path/" + path, "x"}});
  ASSERT_TRUE(Run());
  EXPECT_EQ(RequestedPaths(), Lines{"/base/path/hashlist.dat"});
  EXPECT_FALSE(LogMessagesWith("its path is too long").empty());
  EXPECT_EQ(EventsOf("box").size(), 1U);
  EXPECT_EQ(UpdateState, kNotRunning);
}

TEST_F(UpdateRun, ReplacedPatcherOrSettingsFileEndsTheRun) {
  const std::string restart = FormatText("box 40040 VelmoraUpdate|%s", texts::kPatcherUpdated);
  const struct {
    std::string path;
    std::string settingsPath;
    std::string served;
    bool restarts;
    std::string logged;
  } cases[] = {
      {"VelmoraUpdate.exe", "./VelmoraUpdate.dat", "/VelmoraUpdate.exe", true,
       "update program has been updated. need to run new patcher."},
      {"old\\VelmoraUpdate.exe.bak", "./VelmoraUpdate.dat", "/old/VelmoraUpdate.exe.bak", true,
       "update program has been updated. need to run new patcher."},
      {"conf\\VelmoraUpdate.dat", "VelmoraUpdate.dat", "/conf/VelmoraUpdate.dat", true,
       "data reference file has been updated. need to reboot patch "},
      // The settings file's own spelling must stand in the path.
      {"VelmoraUpdate.dat", "./VelmoraUpdate.dat", "/VelmoraUpdate.dat", false, ""},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.path);
    ResetDialog();
    RestartRequested = 0;
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
      std::filesystem::remove_all(entry);
    }
    Settings.SettingsPath = test.settingsPath;
    const std::string behind(test.path.size() + 3, 'z');
    Serve({{"/hashlist.dat", FileLine(test.path, "new") + FileLine(behind, "z")},
           {test.served, "new"},
           {"/" + behind, "z"}});
    ASSERT_TRUE(Run());
    EXPECT_EQ(RestartRequested, test.restarts ? 1U : 0U);
    EXPECT_EQ(UpdateState, test.restarts ? kRunning : kEnded);
    EXPECT_EQ(std::filesystem::exists(behind), !test.restarts);
    if (!test.restarts) continue;
    EXPECT_FALSE(LogMessagesWith(test.logged).empty());
    EXPECT_EQ(
        Dialog().events,
        Joined({kStart,
                kEnterPasses,
                {"range 1002 0 2", "step 1002 1"},
                {Checking(0, 2, test.path), "range 1005 0 3", "step 1005 1", "position 1005 3"},
                {restart, "close"},
                kHandled,
                kClosing}));
    // What was installed is in the cache.
    EXPECT_EQ(ReadFile(kCacheFile).substr(0, test.path.size()), test.path);
    // A patcher that is right already asks for nothing.
    RestartRequested = 0;
    ASSERT_TRUE(Run());
    EXPECT_EQ(RestartRequested, 0U);
  }
}

TEST_F(UpdateRun, RestartWinsOverACancelAndAFailureToo) {
  Serve({{"/hashlist.dat", FileLine("VelmoraUpdate.exe", "new")}, {"/VelmoraUpdate.exe", "new"}});
  CancelAt("position 1005 3");
  ASSERT_TRUE(Run());
  EXPECT_EQ(RestartRequested, 1U);
  EXPECT_EQ(UpdateState, kCancelAsked);
  EXPECT_TRUE(LogMessagesWith("Cancelled").empty());

  RestartRequested = 0;
  ResetDialog();
  Serve({{"/hashlist.dat", FileLine("a", "1") + FileLine("bb", "2")}, {"/a", "wrong"}});
  CancelAt(Checking(0, 2, "a"));
  ASSERT_TRUE(Run());
  EXPECT_EQ(UpdateState, kNotRunning);
  EXPECT_EQ(EventsOf("box"), Lines{ErrorBox(texts::kWrongData)});
  EXPECT_TRUE(LogMessagesWith("Cancelled").empty());
}

TEST_F(UpdateRun, RecheckIsOfferedOnce) {
  const auto handlers = UpdateDialogHandlers();
  const auto command = [&handlers](int control) {
    const int result = handlers.command(control);
    WaitForRunEnd();
    return result;
  };
  Serve({{"/hashlist.dat", FileLine("a", "1")}, {"/a", "1"}});
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
  const std::uint16_t port = server_->port();
  Settings.ServerPort = 1;
  EXPECT_EQ(command(1007), 0);
  EXPECT_EQ(RecheckPending, 1);
  Settings.ServerPort = port;
  EXPECT_EQ(command(1000), 0);
  EXPECT_EQ(RecheckPending, 0);
  EXPECT_EQ(EventsOf("enable 1007"), (Lines{"enable 1007 0", "enable 1007 0"}));
  // And the next one, started by the Update button, enables it.
  EXPECT_EQ(command(1000), 0);
  EXPECT_EQ(EventsOf("enable 1007").back(), "enable 1007 1");
}

TEST_F(UpdateRun, ASecondRunIsRefusedWhileOneLives) {
  const auto handlers = UpdateDialogHandlers();
  int second = 1;
  int recheck = 1;
  Serve({{"/hashlist.dat", FileLine("a", "1")}, {"/a", "1"}});
  WriteFile(kCacheFile, "kept H 1 H 1 0\r\n");
  bool cacheKept = false;
  Dialog().onEvent = [&](const std::string& seen) {
    if (seen != Checking(0, 1, "a")) return;
    UpdateState = kNotRunning;  // so that the Update button doesn't cancel
    second = handlers.command(1000);
    recheck = handlers.command(1007);
    cacheKept = ReadFile(kCacheFile) != "(none)";
  };
  ASSERT_TRUE(Run());
  EXPECT_EQ(second, -1);
  EXPECT_EQ(recheck, -1);
  EXPECT_TRUE(cacheKept);
  EXPECT_EQ(RecheckPending, 0);
  EXPECT_EQ(EventsOf("enable 1001 0").size(), 1U);
}

TEST_F(UpdateRun, UpdateButtonAsksForACancelOnceInState1) {
  const auto handlers = UpdateDialogHandlers();
  Serve({{"/hashlist.dat", FileLine("a", "1") + FileLine("bb", "2")}, {"/a", "1"}, {"/bb", "2"}});
  Dialog().onEvent = [&](const std::string& seen) {
    if (seen == Checking(0, 2, "a")) {
      EXPECT_EQ(handlers.command(1000), 0);
    }
  };
  ASSERT_TRUE(Run());
  EXPECT_EQ(EventsOf("enable 1000"), (Lines{"enable 1000 0", "enable 1000 1", "enable 1000 0",
                                            "enable 1000 0", "enable 1000 1"}));
  EXPECT_EQ(EventsOf(std::string("status ") + texts::kCancelled).size(), 1U);
}

}  // namespace
}  // namespace velmora::test

// The Windows program from its start to the end of its last process.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/win32/control_host.h"
#include "support/loopback_server.h"
#include "support/patcher_windows.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

constexpr char kPatcher[] = "VelmoraUpdate.exe";
constexpr char kCopy[] = "_VelmoraUpdate.exe";
// The buttons after a run that has completed, and after one that hasn't.
constexpr char kCompleted[] = "[UpdateFiles] [ゲーム開始]";
constexpr char kFailed[] = "[UpdateFiles] (ゲーム開始)";

// A program of the build, which lies beside this one.
fs::path Built(const std::string& name) {
  std::array<wchar_t, MAX_PATH> test{};
  GetModuleFileNameW(nullptr, test.data(), static_cast<DWORD>(test.size()));
  return fs::path(test.data()).replace_filename(name);
}

// Where Wine keeps its load order of the libraries of the temporary copy.
constexpr char kLoadOrder[] = "Software\\Wine\\AppDefaults\\_VelmoraUpdate.exe\\DllOverrides";

class WindowsChain : public testing::Test {
 protected:
  void SetUp() override {
    // Wine's desktop starts with the first window, and must not end with a process of the test.
    GetDesktopWindow();
    RegDeleteTreeA(HKEY_CURRENT_USER, kLoadOrder);
    std::string program = ReadFile(Built(kPatcher));
    // Windows 7 to 10 ignore the code page in the program's manifest, which Wine would use.
    if (GetACP() != 932) program.replace(program.find(">ja-JP<"), 6, ">     ");
    WriteFile(kPatcher, program);
  }
  void TearDown() override {
    RegDeleteTreeA(HKEY_CURRENT_USER, kLoadOrder);
    if (HasFailure()) std::cout << ReadFile("session.log");
  }

  // Sets where Wine loads a library from for the temporary copy: from nowhere (""), or from its
  // file, if there is one ("native,builtin"), as Windows does.
  static void SetLoadOrder(const std::string& library, const std::string& order) {
    EXPECT_EQ(RegSetKeyValueA(HKEY_CURRENT_USER, kLoadOrder, library.c_str(), REG_SZ, order.c_str(),
                              static_cast<DWORD>(order.size() + 1)),
              ERROR_SUCCESS);
  }
  void Serve(LoopbackServer::Answer answer) {
    server_ = std::make_unique<LoopbackServer>(std::move(answer));
    WriteFile("VelmoraUpdate.dat", "[Setting]\r\nServerAddress=" + Host() +
                                       "\r\nInformation=http://" + Host() + "/news.html\r\n");
  }
  void Serve(std::map<std::string, std::string> files) {
    Serve(LoopbackServer::Serving(std::move(files)));
  }
  [[nodiscard]] std::string Host() const { return "127.0.0.1:" + std::to_string(server_->port()); }
  [[nodiscard]] std::ptrdiff_t RequestsFor(const std::string& path) const {
    return std::ranges::count(server_->Requests(), path, &ServedRequest::path);
  }

  [[nodiscard]] PatcherDialog Open(const std::string& options = "",
                                   const std::string& program = kPatcher) {
    chain_.Start(program, options);
    return PatcherDialog(chain_);
  }
  // Presses until a run has asked for its list: for a moment after its last sign, a run still
  // prevents another one.
  [[nodiscard]] bool StartRun(const std::function<void()>& press) const {
    const auto before = RequestsFor("/hashlist.dat");
    const auto isStarted = [&] { return RequestsFor("/hashlist.dat") > before; };
    for (int presses = 0; presses < 5 && !isStarted(); ++presses) {
      press();
      WaitUntil(isStarted, kPatience / 5);
    }
    return isStarted();
  }
  // Closes the dialog and expects all processes of the chain to end as they should.
  void CloseAndExpectTheEnd(const PatcherDialog& dialog) {
    dialog.Close();
    ExpectTheEnd();
  }
  void ExpectTheEnd() {
    EXPECT_TRUE(chain_.WaitForEnd());
    EXPECT_FALSE(fs::exists(kCopy));
    const Lines log = LogMessages();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.front(), "==== LogFile Initialized. ====");
    EXPECT_EQ(log.back(), "Deleted temporary files.");
  }

  TemporaryFolder folder_;
  std::unique_ptr<LoopbackServer> server_;
  ProcessChain chain_;
};

TEST_F(WindowsChain, NothingToUpdate) {
  Serve({{"/hashlist.dat", ""}});
  const PatcherDialog dialog = Open("/I id /H http://" + Host() + "/nowhere.html");
  EXPECT_TRUE(
      dialog.WaitFor("<アップデート完了> 1 0 hidden[UpdateFiles] [ゲーム開始] [再チェック] "
                     "[ゲームオプション設定] (スクリーンショット)"));
  EXPECT_TRUE(fs::exists(kCopy));
  EXPECT_TRUE(WaitUntil([this] { return RequestsFor("/nowhere.html") == 1; }));
  EXPECT_EQ(RequestsFor("/news.html"), 0);

  CloseAndExpectTheEnd(dialog);
  const Lines log = LogMessages();
  EXPECT_EQ(log[1], "Executing : _VelmoraUpdate.exe");
  EXPECT_EQ(LogMessagesWith("ID = id").size(), 1U);
  EXPECT_EQ(Lines(log.end() - 4, log.end()),
            (Lines{"Destroying Window : ", "Execute : Cleaning temporary files.",
                   "Delete temporary files to close.", "Deleted temporary files."}));
}

TEST_F(WindowsChain, SecondStartMeetsTheMessageAndTheFirstStays) {
  Serve({{"/hashlist.dat", ""}});
  const PatcherDialog dialog = Open();
  ASSERT_TRUE(dialog.WaitFor(kCompleted));

  ProcessChain second;
  second.Start(kPatcher);
  EXPECT_EQ(AnswerBox(second), "エラー: 既に動作中です。\n同時に2個以上起動することは出来ません。");
  EXPECT_TRUE(second.WaitForEnd());
  const Lines log = LogMessages();
  EXPECT_EQ(*(log.end() - 2), "Error CopyFile() : Already exists same application ");
  EXPECT_TRUE(log.back().starts_with("Reason of the system : 32 ")) << log.back();

  EXPECT_TRUE(dialog.IsOpen());
  CloseAndExpectTheEnd(dialog);
}

// Games and their add-ons bring libraries with the names of the system's.
TEST_F(WindowsChain, LibrariesBesideTheProgramStayOut) {
  Serve({{"/hashlist.dat", FileLine("data\\a.dat", "a")}, {"/data/a.dat", "a"}});
  for (const std::string name : {"wininet", "imagehlp", "dbghelp"}) {
    fs::copy_file(Built("stray_library.dll"), name + ".dll");
    SetLoadOrder(name, "native,builtin");
  }
  const PatcherDialog dialog = Open();
  ASSERT_TRUE(dialog.WaitFor(kCompleted));
  CloseAndExpectTheEnd(dialog);
  EXPECT_EQ(ReadFile("loaded.txt"), "(none)");
}

// A 32-bit program has enough memory for large files only if its header says so.
TEST_F(WindowsChain, AddressesAbove2GiB) {
  const std::string program = ReadFile(kPatcher);
  const std::size_t signature = program.find(std::string("PE\0\0", sizeof IMAGE_NT_SIGNATURE));
  IMAGE_FILE_HEADER header{};
  program.copy(reinterpret_cast<char*>(&header), sizeof header,
               signature + sizeof IMAGE_NT_SIGNATURE);
  EXPECT_NE(header.Characteristics & IMAGE_FILE_LARGE_ADDRESS_AWARE, 0);
}

// The path of the program goes without quotes, as some launchers write it, and nothing in it is an
// option. The second byte of the character 表 is a backslash, which the request turns into a slash.
TEST_F(WindowsChain, DoubleByteCharactersInPaths) {
  Serve({{"/hashlist.dat", FileLine("data\\日本 表.txt", "名前")},
         {"/data/%93%FA%96%7B%20%95/.txt", "名前"}});
  fs::create_directories(L"日本/clean");
  fs::copy_file(kPatcher, L"日本/clean/VelmoraUpdate.exe");
  const PatcherDialog dialog = Open("", "日本/clean/VelmoraUpdate.exe");
  ASSERT_TRUE(dialog.WaitFor(kCompleted));
  CloseAndExpectTheEnd(dialog);
  EXPECT_EQ(LogMessagesWith("オプションの指定はありません。").size(), 1U);
  EXPECT_EQ(ReadFile(L"data/日本 表.txt"), "名前");
}

TEST_F(WindowsChain, NewPatcherRunsWithThePlayersOptions) {
  const std::string next = ReadFile(Built("marked_patcher.exe"));
  Serve({{"/list2.dat", FileLine("other.dat", "a") + FileLine(kPatcher, next)},
         {"/VelmoraUpdate.exe", next},
         {"/other.dat", "a"}});
  const PatcherDialog old = Open("/D list2.dat /I id7");
  ASSERT_EQ(AnswerBox(chain_),
            "VelmoraUpdate: アップデートプログラムが更新されました。\n"
            "アップデートプログラムを再起動します。");
  EXPECT_TRUE(WaitUntil([&] { return !old.IsOpen(); }));

  const PatcherDialog dialog(chain_);
  ASSERT_TRUE(dialog.WaitFor(kCompleted));
  CloseAndExpectTheEnd(dialog);
  EXPECT_TRUE(ReadFile(kPatcher) == next);
  EXPECT_EQ(ReadFile("other.dat"), "a");
  EXPECT_EQ(ReadFile("edition.txt"),
            "next edition: /R /D list2.dat /I id7\n"
            "next edition: /D list2.dat /I id7\n"
            "next edition: /C /D list2.dat /I id7\n");
}

// The hidden button cancels a run, which ends before the next file, and starts another run.
TEST_F(WindowsChain, UpdateCommandCancelsAndStartsAgain) {
  const auto goOn = std::make_shared<std::atomic<bool>>(false);
  Serve([goOn](const ServedRequest& request) {
    if (request.path == "/hashlist.dat") {
      return Ok(FileLine("a.dat", "a") + FileLine("b.dat", "b"));
    }
    if (request.path == "/a.dat") WaitUntil([&] { return goOn->load(); });
    return Ok(request.path.substr(1, 1));
  });
  const PatcherDialog dialog = Open();
  ASSERT_TRUE(dialog.WaitFor("<確認中  0 / 2 \na.dat>"));
  ASSERT_TRUE(dialog.WaitFor("[CancelUpdate]"));
  dialog.Command(Control::kUpdateButton);
  EXPECT_TRUE(dialog.WaitFor("hidden("));
  *goOn = true;
  ASSERT_TRUE(dialog.WaitFor("<キャンセルしました。\n>"));
  ASSERT_TRUE(dialog.WaitFor(kFailed));
  EXPECT_EQ(ReadFile("a.dat"), "a");
  EXPECT_EQ(RequestsFor("/b.dat"), 0);
  EXPECT_EQ(LogMessagesWith("Update Cancelled by User").size(), 1U);

  ASSERT_TRUE(StartRun([&] { dialog.Command(Control::kUpdateButton); }));
  ASSERT_TRUE(dialog.WaitFor(kCompleted));
  EXPECT_EQ(ReadFile("b.dat"), "b");
  EXPECT_EQ(RequestsFor("/a.dat"), 1);
  CloseAndExpectTheEnd(dialog);
}

TEST_F(WindowsChain, RecheckReadsEveryFileOnce) {
  Serve({{"/hashlist.dat", FileLine("a.dat", "good")}, {"/a.dat", "good"}, {"/news.html", ""}});
  const PatcherDialog dialog = Open();
  ASSERT_TRUE(dialog.WaitFor("[UpdateFiles] [ゲーム開始] [再チェック]"));
  EXPECT_TRUE(WaitUntil([] { return fs::exists("VelmoraUpdate.cvc"); }));

  // The cache vouches for the file, so only a re-check can find the change.
  WriteFile("a.dat", "evil");
  ASSERT_TRUE(StartRun([&] { dialog.Command(Control::kUpdateButton); }));
  ASSERT_TRUE(dialog.WaitFor(kCompleted));
  EXPECT_EQ(ReadFile("a.dat"), "evil");

  EXPECT_TRUE(dialog.TabTo(Control::kRecheckButton));
  ASSERT_TRUE(StartRun([&] { EXPECT_TRUE(dialog.Press(VK_SPACE)); }));
  EXPECT_TRUE(WaitUntil([] { return ReadFile("a.dat") == "good"; }));
  EXPECT_TRUE(dialog.WaitFor("[ゲーム開始] (再チェック)"));
  EXPECT_FALSE(dialog.Click(Control::kRecheckButton));
  EXPECT_TRUE(dialog.TabTo(Control::kStartGameButton)) << "no focus, so the keyboard is dead";
  CloseAndExpectTheEnd(dialog);
  EXPECT_EQ(RequestsFor("/news.html"), 1);
}

// Also in a folder whose name the code page can't hold, and which isn't mistaken for another one.
TEST_F(WindowsChain, GameGetsItsDirectoryAndItsId) {
  const std::string game = ReadFile(Built("stub_game.exe"));
  const fs::path top = fs::current_path();
  const fs::path other = top / L"Volkner Spiele";
  fs::create_directory(other);
  fs::copy_file(kPatcher, other / kPatcher);
  for (const wchar_t* const folder : {L"Spiele", L"Völkner Spiele"}) {
    fs::create_directory(top / folder);
    fs::current_path(top / folder);
    fs::copy_file(top / kPatcher, kPatcher);
    Serve({{"/hashlist.dat", CompressedLine("bin\\Game.exe", game) + "EXE : \\bin\\Game.exe\r\n"},
           {"/bin/Game.exe.compressed", Compressed(game)}});
    const PatcherDialog dialog = Open("/Iplayer1");
    ASSERT_TRUE(dialog.WaitFor(kCompleted));
    EXPECT_TRUE(dialog.Click(Control::kStartGameButton));
    ExpectTheEnd();
    EXPECT_EQ(ReadFile("bin/started.txt"), "-id player1");
  }
  fs::remove(other / kPatcher);
  EXPECT_TRUE(fs::is_empty(other));
}

TEST_F(WindowsChain, CloseDuringADownload) {
  Serve([](const ServedRequest& request) {
    if (request.path == "/hashlist.dat") return Ok(FileLine("a.dat", "0123456789"));
    return Raw("Content-Length: 10\r\n", "0123", Reply::End::kStall);
  });
  WriteFile("VelmoraUpdate.cvc", "kept H 1 H 1 0\r\n");
  const PatcherDialog dialog = Open();
  ASSERT_TRUE(dialog.WaitFor("> 0 4 hidden[CancelUpdate] (ゲーム開始)"));
  const ULONGLONG start = GetTickCount64();
  CloseAndExpectTheEnd(dialog);
  EXPECT_LT(GetTickCount64() - start, 6000U);  // nothing waits for the transfer
  EXPECT_EQ(ReadFile("VelmoraUpdate.cvc"), "kept H 1 H 1 0\r\n");
  EXPECT_FALSE(fs::exists("a.dat"));
}

// One failure after the other; each leaves the dialog ready for the next run.
TEST_F(WindowsChain, FailedDownloads) {
  Serve([run = 0U](const ServedRequest& request) mutable {
    if (request.path == "/hashlist.dat") return Ok(FileLine("日本\\ファイル.dat", "good"));
    if (request.path == "/news.html") return Ok("");
    const std::array replies = {Status(404), Ok("evil"), Raw("Content-Length: 4\r\n", "cut"),
                                Ok("good")};
    return replies.at(run++);
  });
  const PatcherDialog dialog = Open();
  for (const std::string text : {"サーバー上のファイルが見つかりませんでした。\n"
                                 "File : 日本\\ファイル.dat\n"
                                 "メンテナンス中の可能性があります。",
                                 "ファイルデータが一致しません",
                                 "ダウンロードサーバとの接続が切れました。\n"
                                 "時間を置いて本プログラムを再実行してください。"}) {
    ASSERT_EQ(AnswerBox(chain_), "エラー: " + text);
    ASSERT_TRUE(dialog.WaitFor(kFailed));
    EXPECT_FALSE(fs::exists(L"日本/ファイル.dat"));
    ASSERT_TRUE(StartRun([&] { dialog.Command(Control::kUpdateButton); }));
  }
  ASSERT_TRUE(dialog.WaitFor(kCompleted));
  EXPECT_EQ(ReadFile(L"日本/ファイル.dat"), "good");
  CloseAndExpectTheEnd(dialog);
}

WNDPROC original = nullptr;
LRESULT CALLBACK PassOn(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  return CallWindowProcW(original, window, message, wParam, lParam);
}

TEST(ControlHost, IsKnownWhenItsWindowIsSubclassed) {
  platform::AtlAxWinInit();
  const HWND host = CreateWindowA("AtlAxWin71", "{8856F961-340A-11D0-A96B-00C04FD705A2}", WS_POPUP,
                                  0, 0, 9, 9, nullptr, nullptr, nullptr, nullptr);
  original = reinterpret_cast<WNDPROC>(
      SetWindowLongPtrW(host, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(PassOn)));
  IUnknown* const control = platform::GetHostedControl(host);
  ASSERT_NE(control, nullptr);
  control->Release();
  EXPECT_TRUE(DestroyWindow(host));
}

// Without its pane there is no dialog, and no process that goes on without one.
TEST_F(WindowsChain, NoBrowserControl) {
  Serve({{"/hashlist.dat", FileLine("a.dat", "a")}, {"/a.dat", "a"}});
  SetLoadOrder("ieframe", "");
  chain_.Start(kPatcher);
  ExpectTheEnd();
  EXPECT_EQ(RequestsFor("/hashlist.dat"), 0);
  EXPECT_FALSE(fs::exists("a.dat"));
}

}  // namespace
}  // namespace velmora::test

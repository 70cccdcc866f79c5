// The Windows program from its start to the end of its last process, with its windows read and its
// buttons pressed from outside.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <list>
#include <map>
#include <memory>
#include <sstream>
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
constexpr char kErrorCaption[] = "エラー";
constexpr char kCompleted[] = "アップデート完了";
constexpr char kPatcherUpdated[] =
    "アップデートプログラムが更新されました。\nアップデートプログラムを再起動します。";

constexpr int kUpdate = 1000;
constexpr int kStartGame = 1001;
constexpr int kOverallBar = 1002;
constexpr int kFileBar = 1005;
constexpr int kRecheck = 1007;
constexpr int kStatusLine = 1008;
constexpr int kOptions = 1009;
constexpr int kScreenshots = 1011;

// A program of the build, as the environment or else the build names it.
std::string BuiltProgram(const char* variable, const std::string& builtPath) {
  const char* const given = std::getenv(variable);
  const std::string path = given != nullptr ? given : builtPath;
  return path.starts_with('/') ? "Z:" + path : path;  // where Wine shows the system's own files
}

std::string Program() { return BuiltProgram("VELMORA_PROGRAM", VELMORA_PROGRAM); }
std::string MarkedProgram() {
  return BuiltProgram("VELMORA_MARKED_PROGRAM", VELMORA_MARKED_PROGRAM);
}
std::string StrayLibrary() { return BuiltProgram("VELMORA_STRAY_LIBRARY", VELMORA_STRAY_LIBRARY); }
std::string StubGame() { return BuiltProgram("VELMORA_STUB_GAME", VELMORA_STUB_GAME); }

// Wine's setting of where the programs of one name take a library from: nowhere (""), or first from
// its file ("native,builtin"), as Windows does. It goes with the object, and with Wine itself.
class LibraryOverride {
 public:
  LibraryOverride(const std::string& program, const std::string& library, const std::string& order)
      : key_("Software\\Wine\\AppDefaults\\" + program) {
    HKEY overrides = nullptr;
    EXPECT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, (key_ + "\\DllOverrides").c_str(), 0, nullptr,
                              REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &overrides, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExA(overrides, library.c_str(), 0, REG_SZ,
                             reinterpret_cast<const BYTE*>(order.c_str()),
                             static_cast<DWORD>(order.size() + 1)),
              ERROR_SUCCESS);
    RegCloseKey(overrides);
  }
  ~LibraryOverride() { RegDeleteTreeA(HKEY_CURRENT_USER, key_.c_str()); }
  LibraryOverride(const LibraryOverride&) = delete;
  LibraryOverride& operator=(const LibraryOverride&) = delete;

 private:
  std::string key_;
};

// The program as Windows 7 to 10 take it, which know no code page of a program's own.
std::string WithoutCodePage(std::string program) {
  const std::string setting = ">ja-JP</activeCodePage>";
  const std::size_t at = program.find(setting);
  EXPECT_NE(at, std::string::npos);
  return program.replace(at, setting.find('<'), ">     ");
}

class WindowsChain : public testing::Test {
 protected:
  void SetUp() override {
    // Wine's desktop begins with the first window, and must not end with a process of the test.
    GetDesktopWindow();
    fs::copy_file(Program(), kPatcher);
    if (GetACP() != 932) WriteFile(kPatcher, WithoutCodePage(ReadFile(kPatcher)));
  }

  // What can't be seen any more when the folder has gone.
  void TearDown() override {
    if (!HasFailure()) return;
    std::cout << ReadFile("session.log");
    if (server_ == nullptr) return;
    for (const ServedRequest& request : server_->Requests()) std::cout << request.path << "\n";
  }

  void Serve(LoopbackServer::Answer answer) {
    server_ = std::make_unique<LoopbackServer>(std::move(answer));
    WriteFile("VelmoraUpdate.dat", SettingsText());
  }
  void Serve(std::map<std::string, std::string> files) {
    Serve(LoopbackServer::Serving(std::move(files)));
  }
  std::string Host() const { return "127.0.0.1:" + std::to_string(server_->port()); }
  std::string SettingsText() const {
    return "[Setting]\r\nServerAddress=" + Host() + "\r\nInformation=http://" + Host() +
           "/news.html\r\n";
  }
  std::ptrdiff_t RequestsFor(const std::string& path) const {
    const auto requests = server_->Requests();
    return std::count_if(requests.begin(), requests.end(),
                         [&path](const ServedRequest& request) { return request.path == path; });
  }

  // Presses until a run has asked for its list: a run ends a moment after its last sign, and up to
  // then a press starts no other one.
  bool StartRun(const std::function<void()>& press) const {
    constexpr int kPresses = 5;
    const auto before = RequestsFor("/hashlist.dat");
    for (int i = 0; i < kPresses; ++i) {
      press();
      if (WaitUntil([&] { return RequestsFor("/hashlist.dat") > before; }, kPatience / kPresses)) {
        return true;
      }
    }
    return false;
  }

  // Closes the dialog and sees all processes of the chain end in order.
  void CloseAndExpectTheEnd(const PatcherDialog& dialog) {
    dialog.Close();
    EXPECT_TRUE(dialog.WaitForClosed());
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
  void ExpectBox(const std::string& caption, const std::string& text) {
    const auto box = WaitForBox(chain_);
    ASSERT_TRUE(box);
    EXPECT_EQ(box->caption, caption);
    EXPECT_EQ(box->text, text);
    EXPECT_TRUE(Answer(*box));
  }

  // The way of a player from the start of the patcher to the game.
  void PlayFromHere() {
    // A game that comes with the update can be started at once.
    const std::string game = ReadFile(StubGame());
    Serve({{"/hashlist.dat", CompressedLine("bin\\Game.exe", game) + "EXE : \\bin\\Game.exe\r\n"},
           {"/bin/Game.exe.compressed", Compressed(game)}});
    chain_.Start(kPatcher, "/Iplayer1");
    const PatcherDialog dialog(chain_);
    ASSERT_TRUE(dialog.WaitForEnabled(kStartGame, true));
    EXPECT_TRUE(dialog.Click(kStartGame));
    EXPECT_TRUE(dialog.WaitForClosed());
    ExpectTheEnd();

    std::istringstream started(ReadFile("bin/Game.exe.started"));
    std::string commandLine;
    std::string directory;
    std::getline(started, commandLine);
    std::getline(started, directory);
    EXPECT_EQ(commandLine, "-id player1");
    EXPECT_TRUE(fs::equivalent(directory, "bin")) << directory;
  }

  TemporaryFolder folder_;
  std::unique_ptr<LoopbackServer> server_;
  ProcessChain chain_;
};

TEST_F(WindowsChain, NothingToUpdate) {
  Serve({{"/hashlist.dat", ""}});
  chain_.Start(kPatcher, "/I id");
  const PatcherDialog dialog(chain_);
  ASSERT_TRUE(dialog.IsOpen());
  EXPECT_TRUE(dialog.WaitForEnabled(kStartGame, true));
  ASSERT_TRUE(dialog.WaitForText(kStatusLine, kCompleted));
  EXPECT_TRUE(dialog.WaitForEnabled(kRecheck, true));
  EXPECT_EQ(dialog.BarPosition(kOverallBar), 1);
  EXPECT_EQ(dialog.Text(kStartGame), "ゲーム開始");
  EXPECT_TRUE(dialog.IsEnabled(kOptions));
  EXPECT_FALSE(dialog.IsEnabled(kScreenshots));
  EXPECT_FALSE(dialog.IsVisible(kUpdate));
  EXPECT_TRUE(fs::exists(kCopy));

  CloseAndExpectTheEnd(dialog);
  const Lines log = LogMessages();
  EXPECT_EQ(log[1], "Executing : _VelmoraUpdate.exe");
  EXPECT_EQ(LogMessagesWith("ID = id").size(), 1U);
  const Lines end(log.end() - 4, log.end());
  EXPECT_EQ(end, (Lines{"Destroying Window : ", "Execute : Cleaning temporary files.",
                        "Delete temporary files to close.", "Deleted temporary files."}));
}

TEST_F(WindowsChain, SecondStartMeetsTheMessageAndTheFirstStays) {
  Serve({{"/hashlist.dat", ""}});
  chain_.Start(kPatcher);
  const PatcherDialog dialog(chain_);
  ASSERT_TRUE(dialog.WaitForEnabled(kStartGame, true));

  ProcessChain second;
  second.Start(kPatcher);
  const auto box = WaitForBox(second);
  ASSERT_TRUE(box);
  EXPECT_EQ(box->caption, kErrorCaption);
  EXPECT_EQ(box->text, "既に動作中です。\n同時に2個以上起動することは出来ません。");
  EXPECT_TRUE(Answer(*box));
  EXPECT_TRUE(second.WaitForEnd());
  const Lines log = LogMessages();
  EXPECT_EQ(*(log.end() - 2), "Error CopyFile() : Already exists same application ");
  EXPECT_TRUE(log.back().starts_with("Reason of the system : 32 ")) << log.back();

  EXPECT_TRUE(dialog.IsOpen());
  CloseAndExpectTheEnd(dialog);
}

// As a launcher does it that writes no quotes; nothing in the path is an option.
TEST_F(WindowsChain, StartedByAPathWithDoubleByteCharacters) {
  Serve({{"/hashlist.dat", ""}});
  fs::create_directories(L"日本/clean");
  fs::copy_file(kPatcher, L"日本/clean/VelmoraUpdate.exe");
  chain_.Start("日本/clean/VelmoraUpdate.exe");
  const PatcherDialog dialog(chain_);
  ASSERT_TRUE(dialog.WaitForText(kStatusLine, kCompleted));
  EXPECT_EQ(LogMessagesWith("オプションの指定はありません。").size(), 1U);
  CloseAndExpectTheEnd(dialog);
}

// Games and their additions bring libraries by the names of the system's.
TEST_F(WindowsChain, LibrariesBesideTheProgramStayOut) {
  Serve({{"/hashlist.dat", FileLine("data\\a.dat", "a")}, {"/data/a.dat", "a"}});
  std::list<LibraryOverride> fromFiles;
  for (const std::string name : {"wininet", "imagehlp", "dbghelp"}) {
    fs::copy_file(StrayLibrary(), name + ".dll");
    fromFiles.emplace_back(kCopy, name, "native,builtin");
  }
  chain_.Start(kPatcher);
  const PatcherDialog dialog(chain_);
  ASSERT_TRUE(dialog.WaitForText(kStatusLine, kCompleted));
  CloseAndExpectTheEnd(dialog);
  EXPECT_EQ(ReadFile("loaded.txt"), "(none)");
}

// A 32-bit program has room for large files only if its head says so.
TEST_F(WindowsChain, AddressesAbove2GiB) {
  const std::string program = ReadFile(kPatcher);
  const auto* const start = reinterpret_cast<const IMAGE_DOS_HEADER*>(program.data());
  IMAGE_FILE_HEADER head{};
  program.copy(reinterpret_cast<char*>(&head), sizeof head,
               static_cast<std::size_t>(start->e_lfanew) + sizeof IMAGE_NT_SIGNATURE);
  EXPECT_NE(head.Characteristics & IMAGE_FILE_LARGE_ADDRESS_AWARE, 0);
}

// The second byte of the last character of the double-byte name is a backslash to the request.
TEST_F(WindowsChain, FirstInstallationOfATree) {
  const std::string large(300000, 'L');
  Serve({{"/hashlist.dat", FileLine("readme with blanks.txt", "read me") +
                               CompressedLine("data\\maps\\large.dat", large) +
                               FileLine("data\\日本 表.txt", "名前")},
         {"/readme%20with%20blanks.txt", "read me"},
         {"/data/maps/large.dat.compressed", Compressed(large)},
         {"/data/%93%FA%96%7B%20%95/.txt", "名前"}});
  chain_.Start(kPatcher);
  const PatcherDialog dialog(chain_);
  ASSERT_TRUE(dialog.WaitForText(kStatusLine, kCompleted));
  EXPECT_EQ(dialog.BarPosition(kOverallBar), 3);
  CloseAndExpectTheEnd(dialog);
  EXPECT_EQ(ReadFile("readme with blanks.txt"), "read me");
  EXPECT_TRUE(ReadFile("data/maps/large.dat") == large);
  EXPECT_EQ(ReadFile(L"data/日本 表.txt"), "名前");
}

TEST_F(WindowsChain, NewPatcherRunsWithThePlayersOptions) {
  const std::string next = ReadFile(MarkedProgram());
  Serve({{"/list2.dat", FileLine("aa.dat", "a") + FileLine(kPatcher, next) +
                            FileLine("behind-the-patcher.dat", "b")},
         {"/VelmoraUpdate.exe", next},
         {"/aa.dat", "a"},
         {"/behind-the-patcher.dat", "b"}});
  chain_.Start(kPatcher, "/D list2.dat /I id7");
  const PatcherDialog old(chain_);
  ASSERT_NO_FATAL_FAILURE(ExpectBox("VelmoraUpdate", kPatcherUpdated));
  EXPECT_TRUE(old.WaitForClosed());

  const PatcherDialog dialog(chain_);
  ASSERT_TRUE(dialog.WaitForText(kStatusLine, kCompleted));
  CloseAndExpectTheEnd(dialog);
  EXPECT_TRUE(ReadFile(kPatcher) == next);
  EXPECT_EQ(ReadFile("behind-the-patcher.dat"), "b");
  EXPECT_EQ(ReadFile("edition.txt"),
            "next edition: /R /D list2.dat /I id7\n"
            "next edition: /D list2.dat /I id7\n"
            "next edition: /C /D list2.dat /I id7\n");
}

// The hidden button cancels a run, which ends in front of the next file, and starts another one.
TEST_F(WindowsChain, UpdateCommandCancelsAndStartsAgain) {
  const auto goOn = std::make_shared<std::atomic<bool>>(false);
  Serve([goOn](const ServedRequest& request) {
    if (request.path == "/hashlist.dat") {
      return Ok(FileLine("a.dat", "a") + FileLine("b.dat", "b"));
    }
    if (request.path == "/a.dat") WaitUntil([&] { return goOn->load(); });
    return Ok(request.path.substr(1, 1));
  });
  chain_.Start(kPatcher);
  const PatcherDialog dialog(chain_);
  ASSERT_TRUE(dialog.WaitForText(kStatusLine, "確認中  0 / 2 \na.dat"));
  ASSERT_TRUE(dialog.WaitForText(kUpdate, "CancelUpdate"));
  EXPECT_TRUE(dialog.WaitForEnabled(kUpdate, true));
  dialog.Command(kUpdate);
  EXPECT_TRUE(dialog.WaitForEnabled(kUpdate, false));
  *goOn = true;
  ASSERT_TRUE(dialog.WaitForText(kStatusLine, "キャンセルしました。\n"));
  ASSERT_TRUE(dialog.WaitForText(kUpdate, "UpdateFiles"));
  EXPECT_TRUE(dialog.WaitForEnabled(kUpdate, true));
  EXPECT_FALSE(dialog.IsEnabled(kStartGame));
  EXPECT_EQ(ReadFile("a.dat"), "a");
  EXPECT_EQ(RequestsFor("/b.dat"), 0);
  EXPECT_EQ(LogMessagesWith("Update Cancelled by User").size(), 1U);

  ASSERT_TRUE(StartRun([&] { dialog.Command(kUpdate); }));
  ASSERT_TRUE(dialog.WaitForText(kStatusLine, kCompleted));
  EXPECT_TRUE(dialog.WaitForEnabled(kStartGame, true));
  EXPECT_EQ(ReadFile("b.dat"), "b");
  EXPECT_EQ(RequestsFor("/a.dat"), 1);
  CloseAndExpectTheEnd(dialog);
}

TEST_F(WindowsChain, RecheckReadsEveryFileOnce) {
  Serve({{"/hashlist.dat", FileLine("a.dat", "good")}, {"/a.dat", "good"}});
  chain_.Start(kPatcher);
  const PatcherDialog dialog(chain_);
  ASSERT_TRUE(dialog.WaitForEnabled(kRecheck, true));
  ASSERT_TRUE(dialog.WaitForText(kUpdate, "UpdateFiles"));
  EXPECT_TRUE(WaitUntil([] { return fs::exists("VelmoraUpdate.cvc"); }));

  // The cache vouches for the file, so only a re-check can find it out.
  WriteFile("a.dat", "evil");
  ASSERT_TRUE(StartRun([&] { dialog.Command(kUpdate); }));
  ASSERT_TRUE(dialog.WaitForText(kStatusLine, kCompleted));
  EXPECT_EQ(ReadFile("a.dat"), "evil");

  EXPECT_TRUE(dialog.WaitForEnabled(kStartGame, true));
  ASSERT_TRUE(dialog.WaitForText(kUpdate, "UpdateFiles"));
  EXPECT_TRUE(dialog.TabTo(kRecheck));
  ASSERT_TRUE(StartRun([&] { EXPECT_TRUE(dialog.Press(VK_SPACE)); }));
  EXPECT_TRUE(WaitUntil([] { return ReadFile("a.dat") == "good"; }));
  EXPECT_TRUE(dialog.WaitForEnabled(kStartGame, true));
  EXPECT_FALSE(dialog.IsEnabled(kRecheck));
  EXPECT_FALSE(dialog.Click(kRecheck));
  EXPECT_TRUE(dialog.TabTo(kStartGame)) << "the button that had the focus took the keyboard along";
  CloseAndExpectTheEnd(dialog);
}

// In a folder whose name the code page can't hold, too, and a neighbour isn't taken for it.
TEST_F(WindowsChain, GameGetsItsDirectoryAndItsId) {
  const fs::path top = fs::current_path();
  for (const wchar_t* const folder : {L"Spiele", L"Völkner Spiele"}) {
    fs::create_directories(top / folder);
    fs::create_directories(top / L"Volkner Spiele");
    fs::copy_file(Program(), top / folder / kPatcher);
    fs::copy_file(Program(), top / L"Volkner Spiele" / kPatcher,
                  fs::copy_options::overwrite_existing);
    fs::current_path(top / folder);
    PlayFromHere();
    fs::current_path(top);
  }
  fs::remove(top / L"Volkner Spiele" / kPatcher);
  EXPECT_TRUE(fs::is_empty(top / L"Volkner Spiele"));
}

TEST_F(WindowsChain, CloseDuringADownload) {
  Serve([](const ServedRequest& request) {
    if (request.path == "/hashlist.dat") return Ok(FileLine("a.dat", "0123456789"));
    return Raw("Content-Length: 10\r\n", "0123", Reply::End::kStall);
  });
  WriteFile("VelmoraUpdate.cvc", "kept H 1 H 1 0\r\n");
  chain_.Start(kPatcher);
  const PatcherDialog dialog(chain_);
  ASSERT_TRUE(dialog.WaitForBarPosition(kFileBar, 4));
  EXPECT_FALSE(dialog.IsEnabled(kStartGame));
  const ULONGLONG start = GetTickCount64();
  CloseAndExpectTheEnd(dialog);
  EXPECT_LT(GetTickCount64() - start, 6000U);  // nobody waits for the transfer
  EXPECT_EQ(ReadFile("VelmoraUpdate.cvc"), "kept H 1 H 1 0\r\n");
  EXPECT_FALSE(fs::exists("a.dat"));
}

TEST_F(WindowsChain, ServerThatIsGone) {
  Serve({{"/hashlist.dat", ""}});
  server_.reset();
  chain_.Start(kPatcher);
  const PatcherDialog dialog(chain_);
  ASSERT_NO_FATAL_FAILURE(ExpectBox(kErrorCaption,
                                    "サーバー上のファイルが見つかりませんでした。\n"
                                    "File : /hashlist.dat\nメンテナンス中の可能性があります。"));
  ASSERT_TRUE(dialog.WaitForText(kUpdate, "UpdateFiles"));
  EXPECT_FALSE(dialog.IsEnabled(kStartGame));
  CloseAndExpectTheEnd(dialog);
}

// One failure after the other; each leaves the dialog ready for the next run.
TEST_F(WindowsChain, FilesThatCannotBeHad) {
  const Lines bodies = {"gone", "evil", "cut", "good"};
  Serve([bodies, run = 0U](const ServedRequest& request) mutable {
    if (request.path == "/hashlist.dat") return Ok(FileLine("日本\\ファイル.dat", "good"));
    if (request.path == "/news.html") return Ok("");
    const std::string body = bodies.at(run++);
    if (body == "gone") return Status(404);
    return body == "cut" ? Raw("Content-Length: 4\r\n", body) : Ok(body);
  });
  chain_.Start(kPatcher);
  const PatcherDialog dialog(chain_);
  for (const std::string text : {"サーバー上のファイルが見つかりませんでした。\n"
                                 "File : 日本\\ファイル.dat\n"
                                 "メンテナンス中の可能性があります。",
                                 "ファイルデータが一致しません",
                                 "ダウンロードサーバとの接続が切れました。\n"
                                 "時間を置いて本プログラムを再実行してください。"}) {
    ASSERT_NO_FATAL_FAILURE(ExpectBox(kErrorCaption, text));
    ASSERT_TRUE(dialog.WaitForText(kUpdate, "UpdateFiles"));
    EXPECT_TRUE(dialog.WaitForEnabled(kUpdate, true));
    EXPECT_FALSE(dialog.IsEnabled(kStartGame));
    EXPECT_FALSE(fs::exists(L"日本/ファイル.dat"));
    ASSERT_TRUE(StartRun([&] { dialog.Command(kUpdate); }));
  }
  ASSERT_TRUE(dialog.WaitForText(kStatusLine, kCompleted));
  EXPECT_EQ(ReadFile(L"日本/ファイル.dat"), "good");
  CloseAndExpectTheEnd(dialog);
}

TEST_F(WindowsChain, PageIsAskedForOnce) {
  Serve({{"/hashlist.dat", ""}, {"/news.html", "<html><body>News</body></html>"}});
  chain_.Start(kPatcher);
  const PatcherDialog dialog(chain_);
  EXPECT_TRUE(WaitUntil([this] { return RequestsFor("/news.html") > 0; }));
  EXPECT_TRUE(dialog.WaitForEnabled(kStartGame, true));
  // A re-check starts a run, and no page.
  ASSERT_TRUE(dialog.WaitForEnabled(kRecheck, true));
  ASSERT_TRUE(StartRun([&] { EXPECT_TRUE(dialog.Click(kRecheck)); }));
  EXPECT_TRUE(dialog.WaitForEnabled(kStartGame, true));
  CloseAndExpectTheEnd(dialog);
  EXPECT_EQ(RequestsFor("/news.html"), 1);
}

TEST_F(WindowsChain, PageThatIsMissing) {
  Serve({{"/hashlist.dat", FileLine("a.dat", "a")}, {"/a.dat", "a"}});
  chain_.Start(kPatcher, "/H http://" + Host() + "/nowhere.html");
  const PatcherDialog dialog(chain_);
  EXPECT_TRUE(WaitUntil([this] { return RequestsFor("/nowhere.html") > 0; }));
  ASSERT_TRUE(dialog.WaitForText(kStatusLine, kCompleted));
  EXPECT_TRUE(dialog.WaitForEnabled(kStartGame, true));
  CloseAndExpectTheEnd(dialog);
  EXPECT_EQ(RequestsFor("/news.html"), 0);
}

LRESULT CALLBACK PassOn(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  return CallWindowProcW(reinterpret_cast<WNDPROC>(GetPropA(window, "below")), window, message,
                         wParam, lParam);
}

TEST(ControlHost, IsKnownBehindTheProcedureOfATool) {
  platform::AtlAxWinInit();
  const HWND host = CreateWindowA("AtlAxWin71", "{8856F961-340A-11D0-A96B-00C04FD705A2}", WS_POPUP,
                                  0, 0, 9, 9, nullptr, nullptr, nullptr, nullptr);
  SetPropA(host, "below", reinterpret_cast<HANDLE>(GetWindowLongPtrW(host, GWLP_WNDPROC)));
  SetWindowLongPtrW(host, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(PassOn));
  IUnknown* const control = platform::GetHostedControl(host);
  ASSERT_NE(control, nullptr);
  control->Release();
  EXPECT_TRUE(DestroyWindow(host));
}

// No dialog without its pane, and no process that stays behind for want of one.
TEST_F(WindowsChain, NoBrowserControlToBeHad) {
  Serve({{"/hashlist.dat", FileLine("a.dat", "a")}, {"/a.dat", "a"}});
  const LibraryOverride hidden(kCopy, "ieframe", "");
  chain_.Start(kPatcher);
  ExpectTheEnd();
  EXPECT_EQ(RequestsFor("/hashlist.dat"), 0);
  EXPECT_FALSE(fs::exists("a.dat"));
}

}  // namespace
}  // namespace velmora::test

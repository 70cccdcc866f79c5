// The desktop program from its start to the end of its last process: in a window, with a real
// browser in its pane, and by the keyboard alone.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "support/desktop_session.h"
#include "support/loopback_server.h"
#include "support/workspace.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

constexpr char kPatcher[] = "VelmoraUpdate.exe";
constexpr char kCompleted[] = "<アップデート完了> [スクリーンショット] (DirectX診断) [再チェック] ";
constexpr char kPage[] =
    "<title>News</title><body style='background:#2468ac'>"
    "<a href=more.html>more</a> <a href=own.html target=_blank>own</a>";
constexpr char kPageColor[] = "#2468AC";

class DesktopChain : public testing::Test {
 protected:
  static void SetUpTestSuite() { session = std::make_unique<DesktopSession>(); }
  static void TearDownTestSuite() { session.reset(); }

  DesktopChain() {
    fs::copy_file(VELMORA_PROGRAM, kPatcher);
    fs::create_directory("Screenshot");
  }
  ~DesktopChain() override {
    if (HasFailure()) std::cout << ReadWindows() << ReadFile("session.log");
    if (patcher_ == 0) return;
    kill(patcher_, SIGTERM);
    EXPECT_EQ(WaitForProgram(patcher_), 0);
  }

  void Serve(LoopbackServer::Answer answer) {
    server_ = std::make_unique<LoopbackServer>([answer](const ServedRequest& request) {
      return request.path == "/news.html" ? Ok(kPage) : answer(request);
    });
    WriteFile("VelmoraUpdate.dat", "[Setting]\r\nServerAddress=" + Host() +
                                       "\r\nInformation=http://" + Host() + "/news.html\r\n");
  }
  void Serve(Files files) { Serve(LoopbackServer::Serving(std::move(files))); }
  [[nodiscard]] std::string Host() const { return "127.0.0.1:" + std::to_string(server_->port()); }
  [[nodiscard]] std::ptrdiff_t RequestsFor(const std::string& path) const {
    return std::ranges::count(server_->Requests(), path, &ServedRequest::path);
  }

  void Start(const Lines& options = {}) {
    Lines words = {std::string("./") + kPatcher};
    words.insert(words.end(), options.begin(), options.end());
    patcher_ = StartProgram(words);
  }
  void ExpectTheEnd() {
    EXPECT_EQ(WaitForProgram(std::exchange(patcher_, 0)), 0);
    EXPECT_FALSE(fs::exists("_VelmoraUpdate.exe"));
    EXPECT_EQ(LogMessages().back(), "Deleted temporary files.");
  }
  void CloseAndExpectTheEnd() {
    PressKey("alt+F4");
    ExpectTheEnd();
  }
  // Presses Tab until the focus is there.
  static testing::AssertionResult TabTo(const std::string& control) {
    for (int presses = 0; presses < 20; ++presses) {
      for (int looks = 0; looks < 10; ++looks) {
        if (ReadWindows().find("*" + control) != std::string::npos) {
          return testing::AssertionSuccess();
        }
        platform::Pause(20);
      }
      PressKey("Tab");
    }
    return testing::AssertionFailure() << "no key leads to " << control << ":\n" << ReadWindows();
  }
  static bool PaneBecomes(const std::string& color) {
    return WaitUntil([&] { return PaneColor() == color; });
  }

  static std::unique_ptr<DesktopSession> session;
  TemporaryFolder folder_;
  std::unique_ptr<LoopbackServer> server_;
  pid_t patcher_ = 0;
};

std::unique_ptr<DesktopSession> DesktopChain::session;

// The page arrives and is rendered; the keys go around in the template's order; and nothing of the
// page is kept.
TEST_F(DesktopChain, PageAndButtonsOfACompletedRun) {
  Serve(Files{{"/hashlist.dat", FileLine("data\\a.dat", "a")}, {"/data/a.dat", "a"}});
  Start({"/I", "id"});
  EXPECT_TRUE(Shows("VELMORA アップデート  1.12: "));
  EXPECT_TRUE(Shows("ファイル 100% 全体 100% " + std::string(kCompleted) +
                    "*[ゲームオプション設定] [ゲーム開始] "));
  EXPECT_EQ(ReadFile("data/a.dat"), "a");
  EXPECT_TRUE(PaneBecomes(kPageColor)) << PaneColor();

  for (const std::string next : {"[スクリーンショット]", "[ゲーム開始]", "[再チェック]"}) {
    EXPECT_TRUE(TabTo(next));
  }
  // Escape does nothing, and a re-check neither leaves the keyboard dead nor loads the page again.
  PressKey("Escape");
  WriteFile("data/a.dat", "b");
  PressKey("space");
  EXPECT_TRUE(WaitUntil([&] { return ReadFile("data/a.dat") == "a"; }));
  EXPECT_TRUE(Shows("<アップデート完了> [スクリーンショット] (DirectX診断) (再チェック) "));
  EXPECT_TRUE(TabTo("[ゲーム開始]"));
  EXPECT_EQ(RequestsFor("/news.html"), 1);
  CloseAndExpectTheEnd();

  for (const fs::path& file : fs::recursive_directory_iterator(session->home())) {
    EXPECT_EQ(ReadFile(file).find("127.0.0.1"), std::string::npos) << file;
    EXPECT_NE(file.extension(), ".sqlite") << file;
  }
}

// By the keyboard, as all of it. The browser is a script that keeps what it was called with.
TEST_F(DesktopChain, LinksStayInThePaneAndWindowsGoToTheBrowser) {
  const std::string opened = fs::current_path() / "opened.txt";
  WriteFile(session->home() / ".local/applications/browser.desktop",
            "[Desktop Entry]\nType=Application\nName=Browser\nMimeType=x-scheme-handler/http;\n"
            "Exec=sh -c 'echo %u >" +
                opened + "'\n");
  WriteFile(session->home() / ".config/mimeapps.list",
            "[Default Applications]\nx-scheme-handler/http=browser.desktop\n");
  Serve(Files{{"/hashlist.dat", ""}, {"/more.html", "<body style='background:#135799'>"}});
  Start({"/H", Host() + "/news.html"});
  ASSERT_TRUE(PaneBecomes(kPageColor)) << PaneColor();
  for (const std::string key : {"F6", "Tab", "Tab", "Return"}) PressKey(key);
  EXPECT_TRUE(WaitUntil([&] { return ReadFile(opened) == "http://" + Host() + "/own.html\n"; }));
  for (const std::string key : {"shift+Tab", "Return"}) PressKey(key);
  EXPECT_TRUE(PaneBecomes("#135799")) << PaneColor();
  EXPECT_EQ(RequestsFor("/own.html"), 0);
  PressKey("F6");
  EXPECT_TRUE(Shows("*["));
  CloseAndExpectTheEnd();
}

TEST_F(DesktopChain, CancelAndGoOn) {
  const auto goOn = std::make_shared<std::atomic<bool>>(false);
  Serve([goOn](const ServedRequest& request) {
    if (request.path == "/hashlist.dat") {
      return Ok(FileLine("a.dat", "a") + FileLine("b.dat", "b"));
    }
    while (request.path == "/a.dat" && !*goOn) platform::Pause(10);
    return Ok(request.path.substr(1, 1));
  });
  Start();
  ASSERT_TRUE(Shows("<確認中  0 / 2 \na.dat> "));
  ASSERT_TRUE(Shows("(再チェック) *[ゲームオプション設定] (ゲーム開始)"));
  PressKey("alt+u");
  ASSERT_TRUE(Shows("<Cancelling when this file is done.>"));
  *goOn = true;
  ASSERT_TRUE(Shows("<キャンセルしました。> "));
  EXPECT_EQ(RequestsFor("/b.dat"), 0);
  ASSERT_TRUE(WaitUntil([&] {
    PressKey("alt+u");
    return RequestsFor("/hashlist.dat") == 2;
  }));
  EXPECT_TRUE(Shows(kCompleted));
  EXPECT_EQ(ReadFile("b.dat"), "b");
  CloseAndExpectTheEnd();
}

// A box blocks the worker and not the window, which is drawn behind it but takes no input.
TEST_F(DesktopChain, BoxIsAnsweredAndTheRunFails) {
  Serve(Files{{"/hashlist.dat", FileLine("a.dat", "a")}});
  Start();
  ASSERT_TRUE(
      Shows("エラー: サーバー上のファイルが見つかりませんでした。\nFile : a.dat\n"
            "メンテナンス中の可能性があります。: "));
  EXPECT_TRUE(PaneBecomes(kPageColor)) << PaneColor();
  EXPECT_EQ(LogMessagesWith("Update Failed").size(), 0U);
  PressKey("Return");
  EXPECT_TRUE(WaitUntil([] { return ReadWindows().find("エラー") == std::string::npos; }));
  EXPECT_TRUE(Shows("(再チェック) *[ゲームオプション設定] (ゲーム開始)"));
  CloseAndExpectTheEnd();
}

TEST_F(DesktopChain, NewPatcherKeepsTheDisplayAndStartsTheGame) {
  const std::string next = ReadFile(VELMORA_MARKED_PROGRAM);
  Serve(Files{{"/hashlist.dat", FileLine(kPatcher, next) + "EXE : \\Game.exe\r\n"},
              {"/VelmoraUpdate.exe", next}});
  WriteFile("Game.exe", "#!/bin/sh\necho \"$DISPLAY $*\" >started.txt\n");
  fs::permissions("Game.exe", fs::perms::owner_all);
  Start({"/I", "id7"});
  ASSERT_TRUE(
      Shows("VelmoraUpdate: アップデートプログラムが更新されました。\n"
            "アップデートプログラムを再起動します。"));
  PressKey("Escape");
  ASSERT_TRUE(WaitUntil([] { return ReadWindows().empty(); }));
  ASSERT_TRUE(Shows("[ゲーム開始]"));
  EXPECT_TRUE(TabTo("[ゲーム開始]"));
  PressKey("Return");
  ExpectTheEnd();
  EXPECT_TRUE(WaitUntil([] { return fs::exists("started.txt"); }));
  EXPECT_EQ(ReadFile("started.txt"), std::string(std::getenv("DISPLAY")) + " -id id7\n");
  EXPECT_EQ(ReadFile("edition.txt"),
            "next edition: /R /I id7\nnext edition: /I id7\nnext edition: /C /I id7\n");
}

TEST_F(DesktopChain, CloseDuringADownloadAndSecondStart) {
  Serve([](const ServedRequest& request) {
    if (request.path == "/hashlist.dat") return Ok(FileLine("a.dat", "0123456789"));
    return Raw("Content-Length: 10\r\n", "0123", Reply::End::kStall);
  });
  Start();
  ASSERT_TRUE(Shows("ファイル 40% 全体 0% "));
  const pid_t second = StartProgram({"./VelmoraUpdate.exe"});
  ASSERT_TRUE(Shows("エラー: 既に動作中です。\n同時に2個以上起動することは出来ません。"));
  PressKey("Return");
  EXPECT_EQ(WaitForProgram(second), 0);

  const std::uint32_t start = platform::TickCount();
  CloseAndExpectTheEnd();
  EXPECT_LT(platform::TickCount() - start, 6000U);  // nothing waits for the transfer
  EXPECT_FALSE(fs::exists("a.dat"));
}

// Neither a page that can't be had nor one that crashes concerns the patcher.
TEST_F(DesktopChain, PageThatFailsLeavesAnEmptyPane) {
  Serve(Files{{"/hashlist.dat", ""}});
  Start();
  ASSERT_TRUE(PaneBecomes(kPageColor)) << PaneColor();
  EXPECT_TRUE(KillBelow(patcher_, "WebKitWebProces"));
  EXPECT_TRUE(WaitUntil([] { return PaneColor() != kPageColor; }));
  EXPECT_TRUE(Shows(kCompleted));
  CloseAndExpectTheEnd();

  Start({"/H", "http://" + Host() + "/missing.html"});
  EXPECT_TRUE(WaitUntil([&] { return RequestsFor("/missing.html") == 1; }));
  EXPECT_TRUE(Shows(kCompleted));
  EXPECT_NE(PaneColor(), "#FFFFFF");
  CloseAndExpectTheEnd();
}

// WebKit aborts the program if its sandbox doesn't start. The update goes on in the same process,
// without the page.
TEST_F(DesktopChain, EngineThatCannotStartLeavesAnEmptyPane) {
  ASSERT_EQ(mount("/bin/false", "/usr/bin/bwrap", nullptr, MS_BIND, nullptr), 0);
  Serve(Files{{"/hashlist.dat", FileLine("a.dat", "a")}, {"/a.dat", "a"}});
  Start({"/I", "id 7"});
  EXPECT_TRUE(WaitUntil([] { return LogMessagesWith("Update Completed").size() == 2; }));
  EXPECT_TRUE(Shows(kCompleted));
  EXPECT_EQ(RequestsFor("/news.html"), 0);
  EXPECT_EQ(LogMessagesWith("ID = id").size(), 2U);
  CloseAndExpectTheEnd();
  EXPECT_EQ(umount("/usr/bin/bwrap"), 0);
}

TEST_F(DesktopChain, WithoutADisplaySaysSo) {
  Serve(Files{{"/hashlist.dat", ""}});
  EXPECT_EQ(std::system("DISPLAY= ./VelmoraUpdate.exe 2>errors.txt"), 0);
  EXPECT_TRUE(ReadFile("errors.txt").starts_with("VelmoraUpdate: there is no display"));
  EXPECT_EQ(LogMessages().back(), "Deleted temporary files.");
}

}  // namespace
}  // namespace velmora::test

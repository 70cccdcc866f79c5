#include "support/desktop_session.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "platform/clock.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kPatience = 15'000;  // milliseconds
constexpr char kApplication[] = "velmora-update";

// The first line that a program writes to a descriptor of its own, named in its arguments.
std::string FirstLine(int descriptor) {
  std::string line;
  for (char c = 0; read(descriptor, &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

std::string OutputOf(const std::string& command) {
  std::string output;
  FILE* const pipe = popen(command.c_str(), "r");
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) output += static_cast<char>(c);
  pclose(pipe);
  return output;
}

template <typename Object>
struct Unref {
  void operator()(Object* object) const { g_object_unref(object); }
};
using Accessible = std::unique_ptr<AtspiAccessible, Unref<AtspiAccessible>>;

std::vector<Accessible> ChildrenOf(AtspiAccessible* parent) {
  std::vector<Accessible> children;
  const int count = atspi_accessible_get_child_count(parent, nullptr);
  for (int i = 0; i < count; ++i) {
    if (auto* const child = atspi_accessible_get_child_at_index(parent, i, nullptr)) {
      children.emplace_back(child);
    }
  }
  return children;
}

std::string NameOf(AtspiAccessible* object) {
  char* const name = atspi_accessible_get_name(object, nullptr);
  std::string result = name == nullptr ? "" : name;
  g_free(name);
  return result;
}

bool Has(AtspiAccessible* object, AtspiStateType state) {
  AtspiStateSet* const states = atspi_accessible_get_state_set(object);
  const bool result = states != nullptr && atspi_state_set_contains(states, state) == TRUE;
  if (states != nullptr) g_object_unref(states);
  return result;
}

std::string Percent(AtspiAccessible* bar) {
  AtspiValue* const value = atspi_accessible_get_value_iface(bar);
  if (value == nullptr) return "?";
  const double share = atspi_value_get_current_value(value, nullptr);
  g_object_unref(value);
  return NameOf(bar) + " " + std::to_string(static_cast<int>(share * 100 + 0.5)) + "%";
}

std::string Read(AtspiAccessible* object);

std::string ReadChildren(AtspiAccessible* object) {
  std::string text;
  for (const Accessible& child : ChildrenOf(object)) text += Read(child.get());
  return text;
}

std::string Read(AtspiAccessible* object) {
  if (!Has(object, ATSPI_STATE_VISIBLE)) return "";
  const std::string focus = Has(object, ATSPI_STATE_FOCUSED) ? "*" : "";
  const std::string name = NameOf(object);
  switch (atspi_accessible_get_role(object, nullptr)) {
    case ATSPI_ROLE_FRAME:
    case ATSPI_ROLE_WINDOW:
    case ATSPI_ROLE_DIALOG:
    case ATSPI_ROLE_ALERT:
      return name + ": " + ReadChildren(object) + "\n";
    case ATSPI_ROLE_PUSH_BUTTON:
      return focus + (Has(object, ATSPI_STATE_SENSITIVE) ? "[" + name + "] " : "(" + name + ") ");
    case ATSPI_ROLE_PROGRESS_BAR:
      return Percent(object) + " ";
    case ATSPI_ROLE_LABEL:
      return name.empty() || name == "GtkLabel" ? ""
                                                : "<" + name + "> ";  // GTK's name for an empty one
    case ATSPI_ROLE_DOCUMENT_WEB:
      return focus + "{" + name + "} ";
    default:
      return focus + ReadChildren(object);
  }
}

}  // namespace

pid_t StartProgram(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
  execvp(arguments[0], arguments.data());
  _exit(127);
}

int WaitForProgram(pid_t program) {
  int status = 0;
  const bool ended = WaitUntil([&] { return waitpid(program, &status, WNOHANG) == program; });
  if (ended) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  kill(program, SIGKILL);
  waitpid(program, nullptr, 0);
  return -1;
}

bool KillBelow(pid_t program, const std::string& name) {
  const fs::path process = fs::path("/proc") / std::to_string(program);
  std::ifstream children(process / "task" / std::to_string(program) / "children");
  bool found = ReadFile(process / "comm") == name + "\n" && kill(program, SIGKILL) == 0;
  for (pid_t child = 0; children >> child;) found = KillBelow(child, name) || found;
  return found;
}

bool WaitUntil(const std::function<bool()>& condition) {
  const std::uint32_t start = platform::TickCount();
  while (!condition()) {
    if (platform::TickCount() - start > kPatience) return false;
    platform::Pause(20);
  }
  return true;
}

DesktopSession::DesktopSession()
    : home_(fs::temp_directory_path() / ("velmora-home-" + std::to_string(getpid()))) {
  fs::create_directories(home_ / "run");
  fs::permissions(home_ / "run", fs::perms::owner_all);
  for (const auto& [name, value] :
       std::map<std::string, std::string>{{"HOME", home_},
                                          {"XDG_RUNTIME_DIR", home_ / "run"},
                                          {"XDG_CONFIG_HOME", home_ / ".config"},
                                          {"XDG_DATA_HOME", home_ / ".local"},
                                          {"XDG_CACHE_HOME", home_ / ".cache"},
                                          {"GSK_RENDERER", "cairo"},
                                          {"LIBGL_ALWAYS_SOFTWARE", "1"},
                                          {"GDK_BACKEND", "x11"}}) {
    setenv(name.c_str(), value.c_str(), 1);
  }
  int report[2];
  EXPECT_EQ(pipe(report), 0);
  const std::string descriptor = std::to_string(report[1]);
  children_.push_back(StartProgram({"Xvfb", "-displayfd", descriptor, "-screen", "0", "1400x900x24",
                                    "-noreset", "-nolisten", "tcp"}));
  setenv("DISPLAY", (":" + FirstLine(report[0])).c_str(), 1);
  children_.push_back(StartProgram(
      {"dbus-daemon", "--session", "--nofork", "--nosyslog", "--print-address=" + descriptor}));
  setenv("DBUS_SESSION_BUS_ADDRESS", FirstLine(report[0]).c_str(), 1);
  children_.push_back(StartProgram({"openbox"}));
  EXPECT_TRUE(WaitUntil([] {
    return OutputOf("xprop -root _NET_SUPPORTING_WM_CHECK").find("window id") != std::string::npos;
  })) << "no window manager";
  close(report[0]);
  close(report[1]);
  EXPECT_EQ(atspi_init(), 0);
}

DesktopSession::~DesktopSession() {
  for (const pid_t child : children_) {
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
  }
  std::error_code ignored;
  fs::remove_all(home_, ignored);
}

void PressKey(const std::string& key) { OutputOf("xdotool key " + key); }

std::string PaneColor() {
  const std::string found =
      OutputOf("xdotool search --onlyvisible --name VELMORA getwindowgeometry --shell 2>/dev/null");
  const auto number = [&](const std::string& name) {
    const std::size_t at = found.find(name + "=");
    return at == std::string::npos ? 0 : std::atoi(found.c_str() + at + name.size() + 1);
  };
  const int x = number("X") + number("WIDTH") / 8;
  const int y = number("Y") + number("HEIGHT") / 8;
  const std::string pixel = OutputOf("import -window root -crop 1x1+" + std::to_string(x) + "+" +
                                     std::to_string(y) + " -depth 8 txt:- 2>/dev/null");
  const std::size_t at = pixel.find(" #");
  return at == std::string::npos ? "" : pixel.substr(at + 1, 7);
}

std::string ReadWindows() {
  std::string text;
  const Accessible desktop(atspi_get_desktop(0));
  // News for the cache would arrive in a main loop, which this process doesn't have.
  atspi_accessible_set_cache_mask(desktop.get(), ATSPI_CACHE_NONE);
  for (const Accessible& application : ChildrenOf(desktop.get())) {
    if (NameOf(application.get()) == kApplication) text += ReadChildren(application.get());
  }
  return text;
}

testing::AssertionResult Shows(const std::string& part) {
  std::string found;
  const bool isShown = WaitUntil([&] {
    found = ReadWindows();
    return found.find(part) != std::string::npos;
  });
  if (isShown) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "instead of \"" << part << "\" it shows:\n" << found;
}

}  // namespace velmora::test

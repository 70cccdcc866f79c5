// Runs a fuzz target without libFuzzer: every file of the folders given, and then a fixed number of
// mutations of them, the same ones at every run.
//
//   replay MUTATIONS FOLDER...
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "harness.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestInput = 4096;

std::string current;

// What failed, in a form that can be made a file of: printf '%b' gives it back.
void ShowInput(int signal) {
  std::fprintf(stderr, "input: ");
  for (const char c : current) {
    const auto byte = static_cast<unsigned char>(c);
    std::fprintf(stderr, byte >= 0x20 && byte < 0x7F && byte != '\\' ? "%c" : "\\0%03o", byte);
  }
  std::fprintf(stderr, "\n");
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

void Run(std::string input) {
  current = std::move(input);
  // An exact copy, so that a sanitizer sees a read beyond its end.
  const std::vector<char> bytes(current.begin(), current.end());
  velmora::fuzz::CheckInput({bytes.data(), bytes.size()});
}

std::vector<std::string> FilesIn(char** folders, char** end) {
  std::map<fs::path, std::string> files;
  for (; folders != end; ++folders) {
    if (!fs::is_directory(*folders)) continue;
    for (const auto& entry : fs::directory_iterator(*folders)) {
      files[entry.path()] = velmora::fuzz::ReadFile(entry.path()).value_or("");
    }
  }
  std::vector<std::string> inputs;
  for (const auto& [path, input] : files) inputs.push_back(input);
  return inputs;
}

class Mutator {
 public:
  explicit Mutator(const std::vector<std::string>& seeds) : seeds_(seeds) {}

  std::string Next() {
    std::string text = AnySeed();
    for (std::size_t steps = 1 + Below(4); steps > 0; --steps) Change(text);
    text.resize(std::min(text.size(), kLongestInput));
    return text;
  }

 private:
  // From 0 to limit - 1; 0 for a limit of 0. Not the library's distributions, which differ.
  std::size_t Below(std::size_t limit) { return limit == 0 ? 0 : random_() % limit; }
  const std::string& AnySeed() { return seeds_[Below(seeds_.size())]; }

  char AnyByte() {
    static constexpr char kTelling[] =
        " \t\r\n,.:;/\\*?[]!#%@\"=0129aA\x1A\x7F\x81\x83\x5C\xE3\xFF";
    return Below(4) != 0 ? kTelling[Below(sizeof kTelling)] : static_cast<char>(Below(256));
  }

  void Change(std::string& text) {
    const std::size_t at = Below(text.size() + 1);
    const std::size_t length = Below(std::min<std::size_t>(text.size() - at, 16) + 1);
    const std::size_t kind = Below(5);
    if (kind == 0) text.replace(at, Below(2), 1, AnyByte());
    if (kind == 1) text.erase(at, length);
    if (kind == 2) text.insert(at, text.substr(at, length));
    if (kind == 3) text.insert(at, Below(16) == 0 ? 250 + Below(20) : Below(8), AnyByte());
    if (kind == 4) text.replace(at, text.size() - at, AnySeed(), 0, Below(kLongestInput));
  }

  const std::vector<std::string>& seeds_;
  std::mt19937 random_{20260101};
};

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> files = FilesIn(arguments + std::min(count, 2), arguments + count);
  if (files.empty()) return 2;
  for (const int signal : {SIGABRT, SIGSEGV}) std::signal(signal, ShowInput);
  Run("");
  for (const std::string& file : files) Run(file);
  Mutator mutator(files);
  const int mutations = std::atoi(arguments[1]);
  for (int i = 0; i < mutations; ++i) Run(mutator.Next());
  std::printf("%zu inputs and %d mutations of them\n", files.size(), mutations);
  return 0;
}

// Runs a fuzz target without libFuzzer: every file of the folders given, and then a fixed number of
// mutations of them, the same ones at every run.
//
//   replay MUTATIONS FOLDER...

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

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
    const bool plain = byte >= 0x20 && byte < 0x7F && byte != '\\';
    std::fprintf(stderr, plain ? "%c" : "\\0%03o", byte);
  }
  std::fprintf(stderr, "\n");
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

void Run(std::string input) {
  current = std::move(input);
  // An exact copy, so that a sanitizer sees a read behind its end.
  const std::vector<std::uint8_t> bytes(current.begin(), current.end());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

std::vector<std::string> FilesBelow(const std::vector<fs::path>& folders) {
  std::vector<fs::path> paths;
  for (const fs::path& folder : folders) {
    if (!fs::is_directory(folder)) continue;
    for (const auto& entry : fs::directory_iterator(folder)) paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  std::vector<std::string> files;
  for (const fs::path& path : paths) {
    std::ifstream file(path, std::ios::binary);
    files.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return files;
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
    if (Below(4) != 0) return kTelling[Below(sizeof kTelling)];
    return static_cast<char>(Below(256));
  }

  void Change(std::string& text) {
    const std::size_t at = Below(text.size() + 1);
    const std::size_t length = Below(std::min<std::size_t>(text.size() - at, 16) + 1);
    switch (Below(7)) {
      case 0:
        text.insert(at, 1, AnyByte());
        break;
      case 1:
        if (at < text.size()) text[at] = AnyByte();
        break;
      case 2:
        if (at < text.size()) text[at] = static_cast<char>(text[at] ^ (1 << Below(8)));
        break;
      case 3:
        text.erase(at, length);
        break;
      case 4:
        text.insert(at, text.substr(at, length));
        break;
      case 5:
        text.insert(at, Below(16) == 0 ? 250 + Below(20) : Below(8), AnyByte());
        break;
      default: {
        const std::string& other = AnySeed();
        text.resize(at);
        text += other.substr(Below(other.size() + 1));
      }
    }
  }

  const std::vector<std::string>& seeds_;
  std::mt19937 random_{20260101};
};

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) {
    std::fprintf(stderr, "usage: %s MUTATIONS FOLDER...\n", arguments[0]);
    return 2;
  }
  std::signal(SIGABRT, ShowInput);
  std::signal(SIGSEGV, ShowInput);
  const std::vector<std::string> files = FilesBelow({arguments + 2, arguments + count});
  if (files.empty()) {
    std::fprintf(stderr, "no input in the folders\n");
    return 1;
  }
  Run("");
  for (const std::string& file : files) Run(file);
  Mutator mutator(files);
  const int mutations = std::atoi(arguments[1]);
  for (int i = 0; i < mutations; ++i) Run(mutator.Next());
  std::printf("%zu inputs and %d mutations of them\n", files.size(), mutations);
  return 0;
}

// One program for all fuzz targets. In preset `fuzz` it is libFuzzer's, and the environment
// variable VELMORA_TARGET names the target. Elsewhere its argument does, and it runs the target's
// seeds, its earlier findings and 10,000 mutations of them, the same ones each time.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <random>

#include "support/workspace.h"
#include "targets.h"

namespace velmora::fuzz {

void Require(bool holds, std::string_view property, std::string_view detail) {
  if (holds) return;
  std::cerr << "property doesn't hold: " << property << "\n  for: " << detail << '\n';
  std::abort();
}

std::string_view TakeUntil(std::string_view end, std::string_view& rest) {
  const std::string_view part = rest.substr(0, rest.find(end));
  rest.remove_prefix(std::min(part.size() + end.size(), rest.size()));
  return part;
}

std::vector<std::string_view> LinesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) lines.push_back(TakeUntil("\n", text));
  return lines;
}

namespace {

Target* TargetNamed(const std::string& name) {
  static const std::map<std::string, Target*> kTargets = {
      {"command_line", CheckCommandLine},     {"download", CheckDownload},
      {"ignore_rules", CheckIgnoreRules},     {"paths", CheckPaths},
      {"payload_check", CheckPayload},        {"program_file", CheckProgramFile},
      {"reference_list", CheckReferenceList}, {"settings", CheckSettings},
      {"verify_cache", CheckVerifyCache},     {"zlib_blocks", CheckZlibBlocks}};
  // Targets write small files for each input: into memory unless another place is asked for.
  if (std::filesystem::is_directory("/dev/shm")) setenv("TMPDIR", "/dev/shm", 0);
  return kTargets.at(name);
}

}  // namespace
}  // namespace velmora::fuzz

using namespace velmora::fuzz;

#ifdef VELMORA_FUZZ
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static Target* const target = TargetNamed(std::getenv("VELMORA_TARGET"));
  target({reinterpret_cast<const char*>(data), size});
  return 0;
}
#else
static std::string Mutated(const std::vector<std::string>& seeds, std::mt19937& random) {
  constexpr std::size_t kLongestInput = 4096;
  static const std::string kTelling = " \t\r\n,.:;/\\*?[]!#%@\"=0129aA\x1A\x7F\x81\x83\xE3\xFF";
  // The library's distributions would differ from one library to the next.
  const auto below = [&random](std::size_t limit) { return random() % limit; };
  std::string text = seeds[below(seeds.size())];
  for (std::size_t steps = 1 + below(4); steps > 0; --steps) {
    const bool isTelling = below(4) != 0;
    const char byte = isTelling ? kTelling[below(kTelling.size())] : static_cast<char>(random());
    const std::size_t at = below(text.size() + 1);
    const std::size_t length = below(std::min<std::size_t>(text.size() - at, 16) + 1);
    const std::size_t kind = below(5);
    if (kind == 0) text.replace(at, below(2), 1, byte);
    if (kind == 1) text.erase(at, length);
    if (kind == 2) text.insert(at, text.substr(at, length));
    if (kind == 3) text.insert(at, below(16) == 0 ? 250 + below(20) : below(8), byte);
    if (kind == 4) text.replace(at, text.npos, seeds[below(seeds.size())], 0, below(kLongestInput));
  }
  return text.substr(0, kLongestInput);
}

int main(int count, char** arguments) {
  namespace fs = std::filesystem;
  const std::string name = count > 1 ? arguments[1] : "";
  Target* const target = TargetNamed(name);
  std::vector<std::string> inputs;
  for (const std::string folder : {"/seeds/", "/findings/"}) {
    const fs::path path = VELMORA_FUZZ_FOLDER + folder + name;
    if (!fs::is_directory(path)) continue;
    fs::current_path(path);
    for (const auto& [file, input] : velmora::test::FilesHere()) inputs.push_back(input);
  }
  const std::vector<std::string> seeds = inputs;
  std::mt19937 random(20260101);
  inputs.emplace_back();
  for (int i = 0; i < 10000; ++i) inputs.push_back(Mutated(seeds, random));
  const fs::path last = fs::temp_directory_path() / ("velmora-fuzz-" + name);
  for (const std::string& input : inputs) {
    velmora::test::WriteFile(last, input);  // stays there if the process ends
    // An exact copy, so that a sanitizer sees a read beyond its end.
    const std::vector<char> bytes(input.begin(), input.end());
    target({bytes.data(), bytes.size()});
  }
  fs::remove(last);
}
#endif

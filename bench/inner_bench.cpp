// Single parts: nanoseconds for each record, bytes for each second.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/record_set.h"
#include "engine/reference_list.h"
#include "engine/verify_cache.h"
#include "engine/verify_hash.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/url.h"
#include "publish/lint/lint.h"
#include "settings/session_log.h"

namespace velmora {
namespace {

// A folder for the cache and the log.
const bool inFolder = [] {
  const auto folder = std::filesystem::temp_directory_path() / "velmora-inner-bench";
  std::filesystem::create_directories(folder);
  std::filesystem::current_path(folder);
  return true;
}();

std::string List(std::int64_t records) {
  std::string text;
  for (std::int64_t i = 0; i < records; ++i) {
    char line[256];
    const auto number = static_cast<unsigned>(i);
    std::snprintf(line, sizeof line, "FILE : data\\maps\\f%07u.dat, %040X, 100, %040X, 100\n",
                  number, number, number);
    text += line;
  }
  return text;
}

void Fill(FileRecordSet& set, const std::string& text) {
  FileRecordSet removals;
  std::string clientExe;
  set.Clear();
  ParseReferenceList(text, set, removals, clientExe, [](std::string_view) {});
}

void ParseList(benchmark::State& state) {
  const std::string text = List(state.range(0));
  FileRecordSet set;
  for (auto _ : state) Fill(set, text);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ParseList)->Arg(1'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

void WalkSet(benchmark::State& state) {
  FileRecordSet set;
  Fill(set, List(state.range(0)));
  for (auto _ : state) {
    for (const FileRecord& record : set) benchmark::DoNotOptimize(record.path.data());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(WalkSet)->Arg(1'000)->Arg(100'000);

void CacheSaveAndLoad(benchmark::State& state) {
  FileRecordSet set;
  Fill(set, List(state.range(0)));
  for (const FileRecord& record : set) RememberVerified(record);
  for (auto _ : state) {
    SaveVerifyCache();
    LoadVerifyCache();
  }
  VerifyCache.Clear();
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(CacheSaveAndLoad)->Arg(1'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

void CacheLookUp(benchmark::State& state) {
  FileRecordSet set;
  Fill(set, List(state.range(0)));
  std::vector<FileRecord> records;
  for (const FileRecord& record : set) {
    RememberVerified(record);
    records.push_back(record);
  }
  for (auto _ : state) {
    for (const FileRecord& record : records) benchmark::DoNotOptimize(IsVerifiedUnchanged(record));
  }
  VerifyCache.Clear();
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(CacheLookUp)->Arg(1'000)->Arg(100'000);

void HashBlock(benchmark::State& state) {
  const std::string block(static_cast<std::size_t>(state.range(0)), 'x');
  const std::string reference(static_cast<std::size_t>(state.range(1)), '0');
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        VerifyHash(block.data(), static_cast<std::uint32_t>(block.size()), reference));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(HashBlock)->ArgsProduct({{100, 1 << 24}, {40, 32}});

void WriteLog(benchmark::State& state) {
  InitSessionLog();
  for (auto _ : state) LogMessage("Correct Hash : %s [local] vs %s [reference]\n", "A", "A");
  InitSessionLog();
}
BENCHMARK(WriteLog);

void TestFile(benchmark::State& state) {
  platform::OutputFile("some.dat", platform::OutputFile::Mode::kReplace);
  for (auto _ : state) benchmark::DoNotOptimize(platform::FileExists("some.dat"));
}
BENCHMARK(TestFile);

void CanonicalizePath(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(platform::CanonicalizeUrlPath("data/maps/a map with blanks.dat",
                                                           platform::Canonicalize::kUnsafe, 260));
  }
}
BENCHMARK(CanonicalizePath);

void MatchPattern(benchmark::State& state) {
  const std::string path = "data\\maps\\some\\where\\a map of the north.dat";
  for (auto _ : state)
    benchmark::DoNotOptimize(platform::MatchPathPattern(path, "*map*south*.dat"));
}
BENCHMARK(MatchPattern);

void Lint(benchmark::State& state) {
  const std::string text = List(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(publish::LintList(text, {}).size());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Lint)->Arg(1'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace velmora

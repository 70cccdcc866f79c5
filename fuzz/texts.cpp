// Targets for texts: command lines, settings, paths, lists, the cache's file, ignore rules; and for
// programs.
#include <fnmatch.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "base/ascii.h"
#include "base/text.h"
#include "base/text_mode.h"
#include "engine/reference_list.h"
#include "engine/verify_cache.h"
#include "platform/paths.h"
#include "platform/posix/native_path.h"
#include "process/command_line.h"
#include "publish/build/ignore_rules.h"
#include "publish/lint/lint.h"
#include "publish/lint/program_file.h"
#include "publish/lint/settings.h"
#include "settings/mirror_selection.h"
#include "settings/patcher_settings.h"
#include "settings/settings_store.h"
#include "support/workspace.h"
#include "targets.h"

namespace velmora::fuzz {
using namespace platform;
using namespace publish;

constexpr auto kNone = std::string_view::npos;

// Both scans of a command line: what they take from it is part of it.
void CheckCommandLine(std::string_view input) {
  const test::TemporaryFolder folder;
  Settings = PatcherSettings();
  const std::string line(input);
  ScanSettingsPath(line);
  static_cast<void>(ScanOptions(line));
  for (const std::string& value :
       {Settings.SettingsPath, Settings.DataFile, Settings.InformationUrl, Settings.LaunchId}) {
    Require(value.size() <= 259 && line.find(value) != kNone, "a value of the line", line);
  }
  Require(line.ends_with(ArgumentTail), "its end is handed on", line);
  Require(WholeOptions(line, 99).size() <= 99 && line.starts_with(WholeOptions(line, 99)), "cut",
          line);
}

// The value of the first line of this key that patchers read; empty if there is none.
static std::string ListedValue(std::string_view file, std::string_view key) {
  const SettingLines found = SettingLinesOf(file);
  for (const SettingLine& line : found.lines) {
    const bool isRead = line.place == SettingPlace::kRead && EqualWithoutCase(line.key, key);
    if (isRead) return std::string(CutText(line.value, 255));
  }
  return {};
}

// A settings file and its URLs: no value that it doesn't hold, and no mirror without a host. The
// linter sees the same values, and tells if there is no server.
void CheckSettings(std::string_view input) {
  const test::TemporaryFolder folder;
  Settings.SettingsPath = "VelmoraUpdate.dat";
  const std::string file(input);
  test::WriteFile(Settings.SettingsPath, file);
  const std::string value = ReadSetting("BaseURL1");
  Require(value.size() <= 255 && value.find_first_of(std::string_view("\r\n\0", 3)) == kNone &&
              file.find(value) != kNone,
          "a value is part of a line, at most 255 bytes", value);
  ReadMirrors();
  for (std::size_t i = 0; i < Mirrors.count; ++i) {
    Require(!Mirrors.entries[i].host.empty(), "a mirror has a host", file);
  }
  Require(ListedValue(file, "BaseURL1") == value, "the value that the linter sees", value);
  const auto findings = LintWithoutList({.settings = Settings.SettingsPath});
  const bool hasError = std::ranges::any_of(
      findings, [](const LintFinding& f) { return f.rule->severity == Severity::kError; });
  ReadSettings();
  Require(hasError || Mirrors.count > 0 || !Settings.ServerHost.empty(), "no server", file);
}

// A program: what follows it doesn't matter, and what is too short for a header is none.
void CheckProgramFile(std::string_view input) {
  const test::TemporaryFolder folder;
  test::WriteFile("program", std::string(input));
  if (!WhyNotAProgram("program").empty()) return;
  Require(input.starts_with("#!") || input.size() > 64, "a program", input);
  test::WriteFile("program", std::string(input) + "\n");
  Require(WhyNotAProgram("program").empty(), "a program and more", input);
}

// By a table of which beginning of the pattern takes which beginning of the path.
static bool Matches(std::string_view path, std::string_view pattern) {
  std::vector<std::string_view> text;
  for (const std::string_view character : Characters(path)) text.push_back(character);
  std::vector<bool> takes(text.size() + 1, false);
  takes[0] = true;
  for (const std::string_view wanted : Characters(pattern)) {
    std::vector<bool> next(text.size() + 1, wanted == "*" && takes[0]);
    for (std::size_t i = 1; i <= text.size(); ++i) {
      const bool isSame =
          wanted.size() == 1 ? EqualWithoutCase(wanted, text[i - 1]) : wanted == text[i - 1];
      next[i] = wanted == "*" ? takes[i] || next[i - 1] : takes[i - 1] && (wanted == "?" || isSame);
    }
    takes = next;
  }
  return takes.back();
}

// Three lines: a path, a wildcard pattern and a name.
void CheckPaths(std::string_view rest) {
  const std::string path(TakeUntil("\n", rest));
  std::string_view patterns = TakeUntil("\n", rest);
  const std::string pattern(patterns);
  bool matches = pattern == "*.*";
  while (!patterns.empty()) {
    std::string_view one = TakeUntil(";", patterns);
    while (one.starts_with(' ')) one.remove_prefix(1);
    matches = matches || Matches(path, one);
  }
  Require(MatchPathPattern(path, pattern) == matches, "a match", path + " ~ " + pattern);
  const std::string joined = JoinPath(path, std::string(rest)).value_or("");
  Require(joined.size() <= 259 && joined.ends_with(LastPathElement(joined)) &&
              joined.starts_with(WithoutLastPathElement(joined)),
          "a joined path fits and can be split", joined);
  const std::string native = NativePath(path);
  Require(native.find("//") == kNone && native.find("/./") == kNone, "the native path", path);
}

static std::string LinesFor(const FileRecordSet& records) {
  std::string lines;
  for (const FileRecord& record : records) lines += CacheLine(record);
  return lines;
}

static ListLine Scanned(const std::string& line, char (&words)[6][512]) {
  std::sscanf(line.c_str(),
              "%511s : %511[^,\r\n], %511[^,\r\n], %511[^,\r\n], %511[^,\r\n], %511[^,\r\n ]",
              words[0], words[1], words[2], words[3], words[4], words[5]);
  return {words[0], {words[1], words[2], words[3], words[4], words[5]}};
}

// A reference list: what enters the sets, and what the linter says of it.
void CheckReferenceList(std::string_view text) {
  FileRecordSet sets[2];
  std::string client = "unchanged";
  std::size_t refused = 0;
  ParseReferenceList(text, sets[0], sets[1], client, [&](std::string_view) { ++refused; });

  FileRecordSet expected[2];
  std::string expectedClient = "unchanged";
  std::size_t overLimit = 0;
  for (const std::string_view line : LinesOf(text.substr(0, text.find('\0')))) {
    if (line.size() > 511) break;
    char words[6][512] = {};
    const ListLine naive = Scanned(std::string(line), words);
    const ListLine scanned = ScanListLine(line);
    Require(scanned.keyword == naive.keyword && scanned.fields == naive.fields, "a scan", line);
    const bool isFile = naive.keyword == "FILE";
    if (!isFile && naive.keyword != "DEL" && naive.keyword != "EXE") continue;
    if (!IsWithinLimits(naive)) {
      ++overLimit;
    } else if (naive.keyword == "EXE") {
      expectedClient = naive.fields[0];
    } else {
      expected[isFile ? 0 : 1].InsertRecord(isFile ? UpdateRecord(naive) : RemoveRecord(naive));
    }
  }
  for (const std::size_t i : {0U, 1U}) {
    Require(LinesFor(sets[i]) == LinesFor(expected[i]), "the records", LinesFor(sets[i]));
  }
  Require(client == expectedClient, "the last client counts", client);
  Require(refused == overLimit, "each line over a limit is refused, no other", text);

  const std::vector<LintFinding> findings = LintList(text, {});
  Require(std::ranges::is_sorted(findings, {}, &LintFinding::line), "findings in order", text);
  Require(refused == 0 || !findings.empty(), "the linter finds what patchers refuse", text);
}

static std::map<std::string, FileRecord> CacheEntries(std::string_view bytes) {
  std::map<std::string, FileRecord> entries;
  bytes = bytes.substr(0, bytes.find('\x1A'));
  for (const std::string_view line : LinesOf(bytes)) {
    const bool hasEnd = line.data() + line.size() < bytes.data() + bytes.size();
    if (line.size() > (hasEnd && line.ends_with('\r') ? 256U : 255U)) break;
    std::istringstream rest(std::string(line.substr(0, line.find('\0'))));
    std::string words[6];
    for (std::string& word : words) rest >> word;
    const bool fits = words[1].size() <= 63 && words[2].size() <= 31 && words[3].size() <= 63 &&
                      words[4].size() <= 31 && words[5].size() <= 2;
    if (words[0].empty() || !fits) continue;
    const bool compressed = ToNumber(words[5]) != 0;
    entries.try_emplace(words[0],
                        FileRecord{words[0], words[1], words[2], words[3], words[4], compressed});
  }
  return entries;
}

// The cache's file: what it vouches for, and what is saved of it.
void CheckVerifyCache(std::string_view bytes) {
  const test::TemporaryFolder folder;
  test::WriteFile(kCacheFile, std::string(bytes));
  VerifyCache.Clear();
  LoadVerifyCache();
  const auto entries = CacheEntries(bytes);
  std::string saved;
  for (const auto& [path, record] : entries) {
    saved += EncodeTextMode(CacheLine(record));
    Require(IsVerifiedUnchanged(record), "an entry is believed", path);
    FileRecord other = record;
    other.contentHash += 'x';
    Require(!IsVerifiedUnchanged(other), "nothing else is", path);
  }
  Require(VerifyCache.Count() == entries.size(), "as many entries as the file has", bytes);
  SaveVerifyCache();
  Require(VerifyCache.Count() == 0, "saving empties the cache", bytes);
  Require(entries.empty() || test::ReadFile(kCacheFile) == saved, "saved in byte order", saved);
}

// Compares a rule with the C library's matcher, if it means the same to both: plain sets, no two
// stars beside each other, and few of them, since the library tries all their combinations.
static void CheckRule(const std::string& rule, const std::string& path) {
  const std::size_t set = rule.find('[');
  const std::size_t first = std::min(rule.find_first_not_of("!^", set + 1), set + 2);
  const bool isEndless = set != kNone && rule.find(']', first + 1) == kNone;
  const bool isPlain =
      rule.find_first_not_of('/') != kNone && !rule.ends_with(' ') && !rule.ends_with('/') &&
      !rule.starts_with('!') && !rule.starts_with('\xEF') && rule.find("**") == kNone &&
      std::count(rule.begin(), rule.end(), '*') <= 4 &&
      (rule + path).find_first_of(std::string_view("#\r\0", 3)) == kNone &&
      (set == kNone || (rule.find('[', set + 1) == kNone && rule.find_first_of("\\/:.=") == kNone));
  if (!isPlain) return;
  const bool isTied = rule.find('/') != kNone;
  const std::string text = isTied ? path : path.substr(path.rfind('/') + 1);
  const char* const pattern = rule.c_str() + (rule.starts_with('/') ? 1 : 0);
  const bool matches = !isEndless && fnmatch(pattern, text.c_str(), FNM_PATHNAME) == 0;
  Require(IgnoreRules(rule).Ignores(path, false) == matches, "a rule", rule + " ~ " + path);
}

// Paths, an empty line and ignore rules: each against the C library's matcher, and all together, of
// which the last one that matches counts.
void CheckIgnoreRules(std::string_view rules) {
  const std::string_view paths = TakeUntil("\n\n", rules);
  // What means something at the start of a text or a rule can come there when a rule stands alone.
  const bool isPlainText =
      rules.find("\xEF\xBB\xBF") == kNone && rules.find("!#") == kNone && rules.find("!!") == kNone;
  for (const std::string_view line : LinesOf(paths)) {
    const std::string path(line);
    bool isIgnored = path == kIgnoreName;
    if (isIgnored || path.size() > 256) continue;
    for (const std::string_view rule : LinesOf(rules)) {
      if (rule.size() > 256) return;
      CheckRule(std::string(rule), path);
      const bool takesBack = rule.starts_with('!');
      if (IgnoreRules(rule.substr(takesBack ? 1 : 0)).Ignores(path, true)) isIgnored = !takesBack;
    }
    Require(!isPlainText || IgnoreRules(rules).Ignores(path, true) == isIgnored, "the last", path);
  }
}

}  // namespace velmora::fuzz

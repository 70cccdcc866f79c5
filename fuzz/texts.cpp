// Targets for texts: command lines, settings, URLs, paths, lists, the cache's file, ignore rules.
#include <fnmatch.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include "base/ascii.h"
#include "base/text.h"
#include "base/text_mode.h"
#include "engine/reference_list.h"
#include "engine/request_path.h"
#include "engine/verify_cache.h"
#include "platform/paths.h"
#include "platform/posix/native_path.h"
#include "process/command_line.h"
#include "publish/build/ignore_rules.h"
#include "publish/common/published_list.h"
#include "publish/common/shown_text.h"
#include "publish/lint/lint.h"
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
  test::WriteFile(kTemporaryCopy, "copy");
  Settings = PatcherSettings();
  const std::string line(input);
  ScanSettingsPath(line);
  const bool ends = ScanOptions(line) == ScanResult::kEndProcess;
  for (const std::string& value :
       {Settings.SettingsPath, Settings.DataFile, Settings.InformationUrl, Settings.LaunchId}) {
    Require(value.size() <= 259 && line.find(value) != kNone, "a value of the line", line);
  }
  Require(line.ends_with(ArgumentTail), "its end is handed on", line);
  Require(!ends || test::ReadFile(kTemporaryCopy) != "copy", "/C deletes the copy", line);
  Require(WholeOptions(line, 99).size() <= 99 && line.starts_with(WholeOptions(line, 99)), "cut",
          line);
}

// A settings file: no value that it doesn't hold, and the first section counts.
void CheckSettings(std::string_view input) {
  const test::TemporaryFolder folder;
  Settings.SettingsPath = "VelmoraUpdate.dat";
  const auto valueIn = [](const std::string& file) {
    test::WriteFile(Settings.SettingsPath, file);
    return ReadSetting("BaseURL1");
  };
  const std::string file(input);
  const std::string value = valueIn(file);
  Require(value.size() <= 255 && value.find_first_of(std::string_view("\r\n\0", 3)) == kNone &&
              file.find(value) != kNone,
          "a value is part of a line, at most 255 bytes", value);
  ReadMirrors();
  for (std::size_t i = 0; i < Mirrors.count; ++i) {
    Require(!Mirrors.entries[i].host.empty(), "a mirror has a host", file);
  }
  const std::string more = "]\r\nBaseURL1=http://other/";
  Require(valueIn(file + "\r\n[Other" + more) == value, "another section", file);
  Require(value.empty() || valueIn(file + "\r\n[Setting" + more) == value, "the first", file);
}

static std::string Whole(const UrlParts& url) {
  return url.scheme + "://" + url.user + ':' + url.password + '@' + url.host + ':' +
         std::to_string(url.port) + url.path + url.extra;
}

static std::string Escaped(std::string_view path, bool spacesOnly) {
  std::string escaped;
  for (const char c : path) {
    const bool isUnsafe = c < 0x20 || std::string_view("<>\"{}|\\^[]`&\x7F").find(c) != kNone;
    const bool stays = c != ' ' && (spacesOnly || !isUnsafe);
    escaped += stays ? std::string(1, c) : FormatText("%%%02X", static_cast<unsigned char>(c));
  }
  return escaped;
}

// A URL, and the path of a request.
void CheckUrl(std::string_view input) {
  FileRecord record;
  std::string& text = record.path = input;
  const auto parts = CrackUrl(text);
  if (parts && !parts->host.empty()) {
    const auto again = CrackUrl(Whole(*parts));
    Require(Whole(again.value()) == Whole(*parts), "put together, the parts are the same", text);
  }
  for (const auto mode : {Canonicalize::kUnsafe, Canonicalize::kSpacesOnly}) {
    const std::string escaped = Escaped(text, mode == Canonicalize::kSpacesOnly);
    Require(!CanonicalizeUrlPath(text, mode, escaped.size()), "a path that doesn't fit", text);
    Require(CanonicalizeUrlPath(text, mode, escaped.size() + 1) == escaped, "escapes", text);
  }
  for (const bool compressed : {false, true}) {
    record.compressed = compressed;
    std::string path = text;
    std::replace(path.begin(), path.end(), '\\', '/');
    path = "/data/" + Escaped(path, false) + (record.compressed ? ".compressed" : "");
    Require(RequestPath("/data", record).value_or("") == (path.size() < 260 ? path : ""),
            "a request", text);
  }
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

static std::string NormalPath(std::string_view path) {
  std::string slashes;
  for (const std::string_view c : Characters(path)) slashes += c == "\\" ? "/" : c;
  return std::filesystem::path(slashes).lexically_normal();
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
  // After a slash, which is this system's root, names are in UTF-8.
  if (path.empty() || path[0] == '/') return;
  std::string native = NativePath(path);
  std::string normal = path.find('\0') == kNone ? NormalPath(path) : "";
  for (std::string* const text : {&native, &normal}) {
    while (text->size() > 1 && text->ends_with('/')) text->pop_back();
  }
  Require(native == normal, "the native path", path);
}

struct Before {
  bool operator()(const FileRecord& a, const FileRecord& b) const {
    if (a.path.find("VelmoraUpdate") != kNone) return true;
    return a.path.size() != b.path.size() ? a.path.size() < b.path.size() : a.path < b.path;
  }
};

// The library's tree looks for the place of a record by the same comparisons and keeps its balance
// by the same rules, so that its order is the same even where the comparison is no ordering. That
// is true of this library and this use alone; the program can't rely on it.
using LibrarySet = std::set<FileRecord, Before>;

static std::string LinesFor(const auto& records) {
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

// A reference list: what enters the sets, and in which order.
void CheckReferenceList(std::string_view text) {
  FileRecordSet sets[2];
  std::string client = "unchanged";
  std::size_t refused = 0;
  ParseReferenceList(text, sets[0], sets[1], client, [&](std::string_view) { ++refused; });

  LibrarySet expected[2];
  std::string expectedClient = "unchanged";
  for (const std::string_view line : LinesOf(text.substr(0, text.find('\0')))) {
    if (line.size() > 511) break;
    char words[6][512] = {};
    const ListLine naive = Scanned(std::string(line), words);
    const ListLine scanned = ScanListLine(line);
    Require(scanned.keyword == naive.keyword && scanned.fields == naive.fields, "a scan", line);
    const bool isFile = naive.keyword == "FILE";
    if (!isFile && naive.keyword != "DEL" && naive.keyword != "EXE") continue;
    if (!IsWithinLimits(naive)) {
      --refused;
    } else if (naive.keyword == "EXE") {
      expectedClient = naive.fields[0];
    } else {
      expected[isFile ? 0 : 1].insert(isFile ? UpdateRecord(naive) : RemoveRecord(naive));
    }
  }
  for (const std::size_t i : {0U, 1U}) {
    Require(LinesFor(sets[i]) == LinesFor(expected[i]), "the order", LinesFor(sets[i]));
    Require(sets[i].Count() == expected[i].size(), "the count is the set's", text);
  }
  Require(client == expectedClient, "the last client counts", client);
  Require(refused == 0, "each line over a limit is refused, no other", text);
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

// A list for the linter: where its findings are, and which of them end or shorten a patcher's list.
void CheckLint(std::string_view text) {
  const std::size_t lines = LinesOf(text).size() + 1;
  const PublishedList list(text);
  bool isRead = true;
  std::size_t line = 0;
  for (const LintFinding& finding : LintList(text, {})) {
    Require(line <= finding.line && finding.line <= lines, "findings in order", text);
    line = finding.line;
    const std::string shown = ShownText(finding.subject) + ShownText(finding.detail);
    Require(std::none_of(shown.begin(), shown.end(), IsControl), "shown on one line", shown);
    const Rule rule = finding.rule->id;
    isRead = isRead && rule != Rule::kLineTooLong && rule != Rule::kNulByte &&
             rule != Rule::kFieldTooLong && rule != Rule::kPathTooLong &&
             rule != Rule::kTooManyCommas;
  }
  Require(!isRead || (list.isReadWhole && list.refused.empty()), "what patchers refuse", text);
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

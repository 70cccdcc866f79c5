#include "publish/lint/settings.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <utility>

#include "base/ascii.h"
#include "base/text.h"
#include "publish/common/nearest_word.h"
#include "publish/common/publish_error.h"
#include "publish/common/published_list.h"
#include "settings/mirror_selection.h"
#include "settings/patcher_settings.h"
#include "settings/settings_store.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSection = "Setting";
constexpr std::string_view kMirrorKey = "BaseURL";

std::string MirrorKey(int number) { return std::string(kMirrorKey) + std::to_string(number); }

std::vector<std::string> KeysOfPatchers() {
  std::vector<std::string> keys = {"ServerAddress", "FTPUserName", "FTPPassword", "GameServer",
                                   "Data",          "Information", "DataFile"};
  for (int n = 1; n <= kMaxMirrors; ++n) keys.push_back(MirrorKey(n));
  return keys;
}

// --- Lines, as patchers take them apart.

// White space, and what DOS programs end a text with.
std::string_view WithoutSpace(std::string_view text) { return Trimmed(text, " \t\n\v\f\r\x1A"); }

// Cuts the next line off a text that isn't empty.
std::string_view TakeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
  const std::string_view line = text.substr(0, end);
  const std::size_t next = text.substr(end).starts_with("\r\n") ? end + 2 : end + 1;
  text.remove_prefix(std::min(next, text.size()));
  return WithoutSpace(line);
}

std::optional<std::string_view> SectionName(std::string_view line) {
  const std::size_t end = line.rfind(']');
  if (!line.starts_with('[') || end == std::string_view::npos) return std::nullopt;
  return WithoutSpace(line.substr(1, end - 1));
}

// Patchers know only the first form, but read no key from the others either.
bool IsComment(std::string_view line) {
  return line.starts_with(';') || line.starts_with('#') || line.starts_with("//");
}

std::string_view ValueOf(std::string_view text) {
  std::string_view value = WithoutSpace(text);
  value = value.substr(0, value.find('\0'));
  const bool isQuoted = value.size() >= 2 && value.front() == value.back() &&
                        (value.front() == '"' || value.front() == '\'');
  return isQuoted ? value.substr(1, value.size() - 2) : value;
}

// --- Values.

// The patcher's own code reads them.
void ReadAsPatchersDo(const fs::path& file) {
  Settings = PatcherSettings();
  Settings.SettingsPath = platform::ByteNameOf(platform::AbsolutePath(file));
  ReadSettings();
  ReadMirrors();
}

bool IsNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

bool IsPort(std::string_view text) {
  constexpr std::int32_t kLargest = 65535;
  return IsNumber(text) && ToNumber(text) >= 1 && ToNumber(text) <= kLargest;
}

bool IsServerName(std::string_view host) {
  return IsHost(host) && std::all_of(host.begin(), host.end(), IsAscii);
}

// What stands behind the host's colon in a URL; nothing if it has no colon.
std::optional<std::string_view> PortOfUrl(std::string_view url) {
  std::string_view authority = url.substr(std::min(url.find("//") + 2, url.size()));
  authority = authority.substr(0, authority.find_first_of("/?#"));
  authority.remove_prefix(authority.find('@') + 1);
  const std::size_t colon = authority.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  return authority.substr(colon + 1);
}

// Empty if patchers use it as it is.
std::string WhyNotAMirror(const std::string& url, const std::optional<platform::UrlParts>& parts) {
  if (!parts) return "no URL, or one without a host";
  if (!EqualWithoutCase(parts->scheme, "http")) {
    return "the scheme is " + parts->scheme + ", and patchers use plain HTTP";
  }
  if (!IsServerName(parts->host)) return "no host: " + parts->host;
  if (const auto port = PortOfUrl(url); port && !IsPort(*port)) {
    return "no port from 1 to 65535: " + std::string(*port);
  }
  if (!parts->user.empty() || !parts->password.empty()) {
    return "patchers don't use a URL's user and password";
  }
  return parts->extra.empty() ? "" : "patchers drop " + parts->extra;
}

// Empty if it can be part of a request.
std::string WhyNotARequestPath(std::string_view path) {
  if (path.find("://") != path.npos) return "a URL";
  for (const char c : path) {
    if (c == '\\' || c == '?' || c == '#') return std::string("it holds ") + c;
    if (IsControl(c)) return "it holds a control character";
  }
  return {};
}

// The same for all paths by which patchers ask for the same.
std::string ComparablePath(std::string_view path) { return "/" + std::string(Trimmed(path, "/")); }

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

// --- Checks.

class SettingsCheck {
 public:
  SettingsCheck(const fs::path& file, std::string_view text, const LintOptions& options,
                Findings& findings)
      : file_(file),
        text_(text),
        lines_(SettingLinesOf(text)),
        options_(options),
        findings_(findings) {}

  void Run();

 private:
  void Add(Rule rule, std::size_t line, std::string_view subject, std::string detail = {}) {
    findings_.AddOf(file_, rule, line, subject, std::move(detail));
  }
  // For a key of the section that patchers read.
  void Add(Rule rule, const std::string& key, std::string detail = {}) {
    Add(rule, LineOf(key), key, std::move(detail));
  }
  [[nodiscard]] std::size_t LineOf(std::string_view key) const;

  void CheckMark();
  void CheckLine(const SettingLine& line, std::set<std::string>& seen);
  void CheckReadLine(const SettingLine& line, bool isFirst);
  void CheckServer();
  void CheckMirrors();
  void CheckPath(const std::string& key, const std::string& path);
  void CheckDataPath();
  void CheckList();
  void CheckInformation();

  const fs::path& file_;
  const std::string_view text_;
  const SettingLines lines_;
  const LintOptions& options_;
  Findings& findings_;
  const std::vector<std::string> keys_ = KeysOfPatchers();
  // By the keys that they come from.
  std::vector<std::pair<std::string, std::string>> dataPaths_;
};

std::size_t SettingsCheck::LineOf(std::string_view key) const {
  for (const SettingLine& line : lines_.lines) {
    if (line.place == SettingPlace::kRead && EqualWithoutCase(line.key, key)) return line.number;
  }
  return 0;
}

// Windows takes the mark as a part of the first line.
void SettingsCheck::CheckMark() {
  std::string_view rest = WithoutByteOrderMark(text_);
  if (rest.size() == text_.size() || rest.empty()) return;
  const auto section = SectionName(TakeLine(rest));
  if (section && EqualWithoutCase(*section, kSection)) {
    Add(Rule::kByteOrderMark, 1, "[" + std::string(*section) + "]");
  }
}

void SettingsCheck::CheckLine(const SettingLine& line, std::set<std::string>& seen) {
  const auto known = std::find_if(keys_.begin(), keys_.end(), [&line](const std::string& key) {
    return EqualWithoutCase(key, line.key);
  });
  if (line.place == SettingPlace::kRead) {
    const bool isFirst = known == keys_.end() || seen.insert(*known).second;
    CheckReadLine(line, isFirst);
    return;
  }
  // Other programs may have a key of this name in their sections.
  const bool isMeant = line.place == SettingPlace::kRepeated || LineOf(line.key) == 0;
  if (known == keys_.end() || !isMeant) return;
  const char* const repeated =
      line.place == SettingPlace::kRepeated ? "another section " : "section ";
  Add(Rule::kKeyElsewhere, line.number, line.key,
      line.place == SettingPlace::kFront ? "in front of the first section"
                                         : repeated + ("[" + std::string(line.section) + "]"));
}

void SettingsCheck::CheckReadLine(const SettingLine& line, bool isFirst) {
  // A line without an equals sign sets nothing, and may be meant to: "Data : /game".
  const std::string_view word = line.key.substr(0, line.key.find_first_of(" \t:"));
  const std::string nearest = NearestWord(word, keys_);
  if (!EqualWithoutCase(nearest, line.key)) {
    const bool isMirror = EqualWithoutCase(line.key.substr(0, kMirrorKey.size()), kMirrorKey);
    const std::string_view number = line.key.substr(isMirror ? kMirrorKey.size() : line.key.size());
    if (IsNumber(number) && number.front() != '0') {
      Add(Rule::kMirrorOverLimit, line.number, line.key);
    } else if (nearest.empty()) {
      Add(Rule::kUnknownKey, line.number, line.key);
    } else {
      Add(Rule::kMisspelledKey, line.number, line.key, "is " + nearest + " meant?");
    }
  } else if (!isFirst) {
    Add(Rule::kSameKey, line.number, line.key);
  } else if (line.value.size() >= kSettingBuffer) {
    Add(Rule::kSettingTooLong, line.number, line.key, std::to_string(line.value.size()) + " bytes");
  }
}

// Without a usable mirror, patchers take the server.
void SettingsCheck::CheckServer() {
  if (Mirrors.count > 0) return;
  dataPaths_ = {{"Data", Settings.DataPath}};
  CheckPath("Data", Settings.DataPath);
  const std::string address = ReadSetting("ServerAddress");
  if (Settings.ServerHost.empty()) {
    Add(Rule::kNoServer, 0, "",
        lines_.hasSection ? "neither ServerAddress nor BaseURL1 names a host"
                          : "no section [Setting]");
    return;
  }
  const std::size_t colon = address.find(':');
  if (!IsServerName(Settings.ServerHost) || address.find('/') != address.npos) {
    Add(Rule::kNotAServerAddress, "ServerAddress",
        "patchers look for the host " + Quoted(Settings.ServerHost));
  } else if (colon != address.npos && !IsPort(address.substr(colon + 1))) {
    Add(Rule::kNotAPort, "ServerAddress", address.substr(colon + 1));
  }
}

void SettingsCheck::CheckMirrors() {
  std::string missing;
  for (int n = 1; n <= kMaxMirrors; ++n) {
    const std::string key = MirrorKey(n);
    const std::string url = ReadSetting(key);
    if (url.empty()) {
      if (missing.empty()) missing = key;
    } else if (!missing.empty()) {
      Add(Rule::kMirrorBehindGap, key, "there is no " + missing);
    } else {
      const std::optional<platform::UrlParts> parts = CrackServerUrl(url);
      const std::string why = WhyNotAMirror(url, parts);
      if (!why.empty()) Add(Rule::kNotAMirror, key, why);
      if (parts) dataPaths_.emplace_back(key, parts->path);
      if (parts) CheckPath(key, parts->path);
    }
  }
}

void SettingsCheck::CheckPath(const std::string& key, const std::string& path) {
  const std::string why = WhyNotARequestPath(path);
  const bool isList =
      key != "DataFile" && !Settings.DataFile.empty() && path.ends_with("/" + Settings.DataFile);
  if (!why.empty() || isList) {
    Add(Rule::kNotARequestPath, key, isList ? "it names the list, not its folder" : why);
  } else if (path.ends_with('/') || path.find("//") != path.npos) {
    Add(Rule::kDoubleSlash, key, path);
  }
}

// Mirrors may differ in their paths, but one of them has the path that is meant.
void SettingsCheck::CheckDataPath() {
  if (!options_.dataPath) return;
  const std::string meant = ComparablePath(*options_.dataPath);
  const bool hasMeant =
      std::any_of(dataPaths_.begin(), dataPaths_.end(),
                  [&meant](const auto& path) { return ComparablePath(path.second) == meant; });
  if (hasMeant) return;
  const auto& [key, path] = dataPaths_.front();
  Add(Rule::kOtherDataPath, key, Quoted(path) + ", not " + Quoted(*options_.dataPath));
}

void SettingsCheck::CheckList() {
  if (!options_.listName.empty() && Settings.DataFile != options_.listName) {
    Add(Rule::kOtherListName, "DataFile",
        Quoted(Settings.DataFile) + ", not " + Quoted(options_.listName));
  }
  CheckPath("DataFile",
            Settings.DataFile.starts_with('/') ? "/" + Settings.DataFile : Settings.DataFile);
}

void SettingsCheck::CheckInformation() {
  if (Settings.InformationUrl.empty()) return;
  const auto parts = CrackServerUrl(Settings.InformationUrl);
  const bool isPage = parts && (EqualWithoutCase(parts->scheme, "http") ||
                                EqualWithoutCase(parts->scheme, "https"));
  if (!isPage) Add(Rule::kInformationNotAUrl, "Information");
}

void SettingsCheck::Run() {
  if (text_.starts_with("\xFF\xFE") || text_.starts_with("\xFE\xFF")) {
    Add(Rule::kByteOrderMark, 1, "UTF-16");
    return;
  }
  ReadAsPatchersDo(file_);
  CheckMark();
  std::set<std::string> seen;
  for (const SettingLine& line : lines_.lines) CheckLine(line, seen);
  CheckMirrors();
  CheckServer();
  CheckDataPath();
  CheckList();
  CheckInformation();
}

}  // namespace

SettingLines SettingLinesOf(std::string_view text) {
  text = WithoutByteOrderMark(text);
  SettingLines found;
  SettingPlace place = SettingPlace::kFront;
  std::string_view section;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::string_view line = TakeLine(text);
    if (const auto name = SectionName(line)) {
      section = *name;
      const bool isMeant = EqualWithoutCase(section, kSection);
      place = !isMeant           ? SettingPlace::kOther
              : found.hasSection ? SettingPlace::kRepeated
                                 : SettingPlace::kRead;
      found.hasSection = found.hasSection || isMeant;
    } else if (!line.empty() && !IsComment(line)) {
      const std::size_t equals = std::min(line.find('='), line.size());
      found.lines.push_back({number, place, section, WithoutSpace(line.substr(0, equals)),
                             ValueOf(line.substr(std::min(equals + 1, line.size())))});
    }
  }
  return found;
}

void CheckSettings(const fs::path& file, const LintOptions& options, Findings& findings) {
  std::string text;
  try {
    text = ReadWholeFile(file);
  } catch (const PublishError&) {
    findings.AddOf(file, Rule::kNoServer, 0, "", "it can't be read");
    return;
  }
  SettingsCheck(file, text, options, findings).Run();
}

std::string LongestDataPath(const fs::path& file) {
  ReadAsPatchersDo(file);
  std::string longest = Mirrors.count == 0 ? Settings.DataPath : "";
  for (std::size_t i = 0; i < Mirrors.count; ++i) {
    if (Mirrors.entries[i].path.size() > longest.size()) longest = Mirrors.entries[i].path;
  }
  return longest;
}

}  // namespace velmora::publish

#include "publish/lint/acceptance.h"

#include <algorithm>
#include <utility>

#include "base/ascii.h"
#include "base/text.h"
#include "platform/paths.h"
#include "publish/common/disk_text.h"
#include "publish/common/list_path.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// The position of the # that begins the reason: the first one after a blank.
std::size_t StartOfReason(std::string_view line) {
  std::size_t at = line.find('#');
  while (at != std::string_view::npos && at > 0 && !IsWhiteSpace(line[at - 1])) {
    at = line.find('#', at + 1);
  }
  return at;
}

bool Matches(const std::string& path, const std::string& pattern) {
  return !path.empty() &&
         (FoldedPath(path) == FoldedPath(pattern) || platform::MatchPathPattern(path, pattern));
}

// The path in what a finding adds to its subject; a path of a list holds no comma.
std::string PathOfDetail(const LintFinding& finding) {
  return finding.detail.substr(0, finding.detail.find(','));
}

}  // namespace

std::optional<fs::path> AcceptedFile(const fs::path& tree) {
  // The tree as the user sees it: what a link leads to lies in another folder.
  fs::path folder = platform::AbsolutePath(tree).lexically_normal();
  if (!folder.has_filename()) folder = folder.parent_path();
  for (const fs::path& file : {tree / kAcceptedName, folder.parent_path() / kAcceptedName}) {
    if (platform::EntryKind(file) != fs::file_type::not_found) return file;
  }
  return std::nullopt;
}

Acceptance::Acceptance(std::string_view text, const std::string& name) {
  text = WithoutByteOrderMark(text);
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t length = std::min(text.find('\n'), text.size());
    try {
      AddEntry(Trimmed(text.substr(0, length), kWhiteSpace), number);
    } catch (const PublishError& error) {
      throw PublishError(name + ":" + std::to_string(number) + ": " + error.what());
    }
    text.remove_prefix(std::min(length + 1, text.size()));
  }
}

void Acceptance::AddEntry(std::string_view line, std::size_t number) {
  if (line.empty() || line.starts_with('#')) return;
  const std::size_t reason = StartOfReason(line);
  const std::string_view entry = Trimmed(line.substr(0, reason), kWhiteSpace);
  const std::string_view word = entry.substr(0, entry.find_first_of(kWhiteSpace));
  const std::optional<Rule> rule = RuleOfNumber(word);
  if (!rule) throw PublishError(ShownPath(word) + " is no rule: lint --rules prints all of them");
  if (reason == std::string_view::npos || Trimmed(line.substr(reason + 1), kWhiteSpace).empty()) {
    throw PublishError("no reason: end the line with # and why this is accepted");
  }
  const std::string path(Trimmed(entry.substr(word.size()), kWhiteSpace));
  entries_.push_back({*rule, WithBackslashes(ListedName(path, NameEncoding::kGuess)), number});
}

void Acceptance::Add(Rule rule) { entries_.push_back({rule, "", 0}); }

bool Acceptance::Accepts(const LintFinding& finding) {
  const std::string subject = WithBackslashes(finding.subject);
  const std::string other = PathOfDetail(finding);
  bool isAccepted = false;
  for (Entry& entry : entries_) {
    const bool accepts =
        entry.rule == finding.rule->id &&
        (entry.path.empty() || Matches(subject, entry.path) || Matches(other, entry.path));
    entry.isUsed = entry.isUsed || accepts;
    isAccepted = isAccepted || accepts;
  }
  return isAccepted;
}

std::size_t Acceptance::RemoveFrom(std::vector<LintFinding>& findings) {
  return std::erase_if(findings, [this](const LintFinding& finding) { return Accepts(finding); });
}

std::vector<StaleEntry> Acceptance::Stale(const std::function<bool(Rule)>& isChecked) const {
  std::vector<StaleEntry> stale;
  for (const Entry& entry : entries_) {
    if (entry.line == 0 || entry.isUsed || !isChecked(entry.rule)) continue;
    const std::string number = std::to_string(static_cast<int>(entry.rule));
    stale.push_back({entry.line, entry.path.empty() ? number : number + " " + entry.path});
  }
  return stale;
}

}  // namespace velmora::publish

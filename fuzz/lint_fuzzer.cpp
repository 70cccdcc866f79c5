// Any bytes as a list for the linter: where its findings stand, what can be shown of them, and that
// a list without errors is read by patchers as it stands.
#include <algorithm>
#include <sstream>

#include "harness.h"
#include "publish/lint.h"
#include "publish/published_list.h"
#include "publish/shown_text.h"

namespace velmora::fuzz {
namespace {

using namespace publish;

bool HasFinding(const std::vector<LintFinding>& findings, auto isOne) {
  return std::any_of(findings.begin(), findings.end(),
                     [&](const LintFinding& finding) { return isOne(finding.rule->number); });
}

void CheckPlaces(const std::vector<LintFinding>& findings, std::string_view text) {
  const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  std::size_t last = 0;
  for (const LintFinding& finding : findings) {
    Require(finding.line <= lines, "a finding's line is one of the text's", finding.subject);
    Require(finding.line >= last, "findings come in the order of lines", finding.subject);
    last = finding.line;
  }
}

// Whether the rest of a UTF-8 character (RFC 3629) follows its first byte; moves behind it.
bool TakeUtf8Character(std::string_view text, std::size_t& at) {
  const auto first = static_cast<unsigned char>(text[at++]);
  if (first < 0x80) return first >= 0x20 && first != 0x7F;
  std::size_t following = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
  if (first < 0xC2 || first > 0xF4) return false;
  for (; following > 0; --following) {
    if (at == text.size() || (static_cast<unsigned char>(text[at++]) & 0xC0) != 0x80) return false;
  }
  return true;
}

void CheckShown(const std::vector<LintFinding>& findings) {
  for (const LintFinding& finding : findings) {
    for (const std::string& part : {finding.subject, finding.detail}) {
      const std::string shown = ShownText(part);
      for (std::size_t at = 0; at < shown.size();) {
        Require(TakeUtf8Character(shown, at), "what is shown is UTF-8 on one line", part);
      }
    }
  }
}

std::size_t FileLines(std::string_view text) {
  std::size_t count = 0;
  for (const std::string_view line : LinesOf(text)) {
    std::istringstream words{std::string(line)};
    std::string word;
    words >> word;
    count += word == "FILE" ? 1 : 0;
  }
  return count;
}

// Lines that nothing is wrong with are lines that patchers take: all of them, unless two stand for
// one file. A patcher's record (6xx) makes places of its own in the set.
void CheckCleanIsRead(const std::vector<LintFinding>& findings, std::string_view text) {
  const bool isClean = !HasFinding(findings, [](int rule) {
    return rule < 200 ? rule != 105 && rule != 108 : rule == 301 || rule == 304;
  });
  if (!isClean) return;
  const PublishedList list(text);
  Require(list.isReadWhole && list.refused.empty(), "lines without errors are read", text);
  const bool isPlain = !HasFinding(findings, [](int rule) { return rule / 100 == 4; }) &&
                       text.find("VelmoraUpdate") == std::string_view::npos;
  Require(!isPlain || list.files.Count() == FileLines(text),
          "as many records as lines without errors", text);
  Require(list.files.Count() <= FileLines(text), "no more records than lines", text);
}

// The place that a list is served at changes nothing but what requests are too long.
void CheckDataPath(const std::vector<LintFinding>& findings, std::string_view text) {
  const auto others = [](const std::vector<LintFinding>& all) {
    return all.size() - static_cast<std::size_t>(
                            std::count_if(all.begin(), all.end(), [](const LintFinding& finding) {
                              return finding.rule->number == 306;
                            }));
  };
  const auto further = LintList(text, {.dataPath = std::string(100, 'd'), .tree = {}});
  Require(others(further) == others(findings), "the base path matters to requests alone", text);
  Require(further.size() >= findings.size(), "a longer base path allows no more", text);
}

}  // namespace
}  // namespace velmora::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora::fuzz;
  const std::string_view text = TextOf(data, size);
  const auto findings = LintList(text, {});
  CheckPlaces(findings, text);
  CheckShown(findings);
  CheckCleanIsRead(findings, text);
  CheckDataPath(findings, text);
  return 0;
}

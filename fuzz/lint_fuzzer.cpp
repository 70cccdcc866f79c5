// Any bytes as a list for the linter: where its findings stand, what can be shown of them, and that
// a list without errors is read by patchers as it stands.
#include "harness.h"
#include "publish/common/published_list.h"
#include "publish/common/shown_text.h"
#include "publish/lint/lint.h"

namespace velmora::fuzz {
namespace {

using namespace publish;

constexpr std::string_view kSpaces = " \t\v\f\r";

void CheckFindings(const std::vector<LintFinding>& findings, std::string_view text) {
  const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  std::size_t last = 0;
  for (const LintFinding& finding : findings) {
    Require(finding.line <= lines, "a finding's line is one of the text's", finding.subject);
    Require(finding.line >= last, "findings come in the order of lines", finding.subject);
    last = finding.line;
    for (const char c : ShownText(finding.subject) + ShownText(finding.detail)) {
      const auto byte = static_cast<unsigned char>(c);
      Require(byte >= 0x20 && byte != 0x7F, "what is shown stands on one line", finding.detail);
    }
  }
}

// Lines that nothing is wrong with are lines that patchers take: all of them, unless two stand for
// one file. A patcher's record (6xx) makes places of its own in the set.
void CheckCleanIsRead(const std::vector<LintFinding>& findings, std::string_view text) {
  bool isPlain = text.find("VelmoraUpdate") == std::string_view::npos;
  for (const LintFinding& finding : findings) {
    const int rule = finding.rule->Number();
    if (rule < 200 ? rule != 105 && rule != 108 : rule == 301 || rule == 304) return;
    isPlain = isPlain && rule / 100 != 4;
  }
  const PublishedList list(text);
  Require(list.isReadWhole && list.refused.empty(), "lines without errors are read", text);
  std::size_t fileLines = 0;
  for (std::string_view line : LinesOf(text)) {
    line.remove_prefix(std::min(line.find_first_not_of(kSpaces), line.size()));
    const bool isWord = line.size() <= 4 || kSpaces.find(line[4]) != std::string_view::npos;
    fileLines += line.starts_with("FILE") && isWord ? 1 : 0;
  }
  Require(!isPlain || list.files.Count() == fileLines, "as many records as clean lines", text);
  Require(list.files.Count() <= fileLines, "no more records than lines", text);
}

}  // namespace

void CheckInput(std::string_view text) {
  const auto findings = LintList(text, {});
  CheckFindings(findings, text);
  CheckCleanIsRead(findings, text);
}

}  // namespace velmora::fuzz

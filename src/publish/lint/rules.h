// What can be wrong with a reference list: every limit and trap of the format as a numbered rule. A
// number stays what it is for ever, since pipelines name it.
#pragma once

#include <span>

namespace velmora::publish {

enum class Severity { kWarning, kError };

struct LintRule {
  int number;
  Severity severity;
  const char* what;    // is wrong, in a few words
  const char* reason;  // what patchers make of it
  const char* remedy;
};

// All rules, by number: 1xx lines, 2xx hashes and sizes, 3xx paths, 4xx records beside each other,
// 5xx removals, 6xx the patcher's own files.
[[nodiscard]] std::span<const LintRule> LintRules();

// The rule of this number, which must be one.
[[nodiscard]] const LintRule& LintRuleOf(int number);

[[nodiscard]] const char* SeverityName(Severity severity);

}  // namespace velmora::publish

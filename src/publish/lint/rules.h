// What can be wrong with a reference list, and with the patcher, the settings and the client that
// players start with: every limit and trap is a numbered rule.
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace velmora::publish {

// Pipelines refer to rules by these numbers, so they never change.
enum class Rule {
  // Lines.
  kLineTooLong = 101,
  kNulByte = 102,
  kFieldTooLong = 103,
  kMisspelledKeyword = 104,
  kMeaninglessLine = 105,
  kCarriageReturn = 106,
  kMissingField = 107,
  kUnreadText = 108,
  kTrailingSpace = 109,
  kNothingNamed = 110,
  // Hashes and sizes.
  kNotADigest = 201,
  kNotASize = 202,
  kLeadingZeros = 203,
  kContentDiffers = 204,
  kCompressedIsLarger = 205,
  // Paths.
  kPathTooLong = 301,
  kCacheLineTooLong = 302,
  kSpaceInPath = 303,
  kTooManyCommas = 304,
  kControlCharacter = 305,
  kRequestTooLong = 306,
  kBackslashInCharacter = 307,
  kLeavesInstallation = 308,
  kNotInCodePage = 309,
  kForbiddenCharacter = 310,
  kPercentOrNumberSign = 311,
  kMarkWithinPath = 312,
  kSlashInPath = 313,
  kNotPlainPath = 314,
  // Records that conflict.
  kSameLine = 401,
  kSamePath = 402,
  kSamePatcherPath = 403,
  kSameFile = 404,
  kFileIsFolder = 405,
  kListedAndRemoved = 406,
  kSameRemoval = 407,
  kSeveralClients = 408,
  kClientNotListed = 409,
  kNoFiles = 410,
  // Removals.
  kRemovesUnlisted = 501,
  kRemovesEverything = 502,
  kRemovesPatcher = 503,
  kRemovesPatcherFiles = 504,
  kWildcardWithoutMode = 505,
  kUnknownMode = 506,
  kRemovalTooLong = 507,
  kMarkInRemoval = 508,
  kRemovalInOtherMode = 509,
  kPatternWithoutMatch = 510,
  // The patcher's own files.
  kSettingsWithoutRestart = 601,
  kProgramWithoutRestart = 602,
  kPatcherNotFirst = 603,
  kPatcherNameInPath = 604,
  kPatcherFile = 605,
  kRedirection = 606,
  // What players start with: the patcher's program,
  kPatcherNotAProgram = 701,
  // its settings,
  kNoServer = 710,
  kNotAServerAddress = 711,
  kNotAPort = 712,
  kMirrorBehindGap = 713,
  kMirrorOverLimit = 714,
  kNotAMirror = 715,
  kMisspelledKey = 716,
  kUnknownKey = 717,
  kKeyElsewhere = 718,
  kSameKey = 719,
  kSettingTooLong = 720,
  kOtherDataPath = 721,
  kOtherListName = 722,
  kNotARequestPath = 723,
  kByteOrderMark = 724,
  kInformationNotAUrl = 725,
  kDoubleSlash = 726,
  // and the client.
  kClientOfFolderAbove = 730,
  kNoSuchClient = 731,
};

enum class Severity { kWarning, kError };

struct LintRule {
  Rule id;
  Severity severity;
  const char* what;    // is wrong, in a few words
  const char* reason;  // what patchers make of it
  const char* remedy;

  [[nodiscard]] int Number() const { return static_cast<int>(id); }
};

// All rules, in the order of their numbers.
[[nodiscard]] std::span<const LintRule> LintRules();

[[nodiscard]] const LintRule& LintRuleOf(Rule id);

// The rule with this number, such as "303"; nothing if there is none.
[[nodiscard]] std::optional<Rule> RuleOfNumber(std::string_view number);

// What a rule is checked on.
enum class RuleScope { kList, kTree, kListAndTree, kSettings };

// What the rule is about: a list, with which a tree may be compared; the files of a tree; a list
// that is compared with a tree; or a settings file, which may be that of a tree.
[[nodiscard]] RuleScope ScopeOf(Rule id);

// Whether the rule is about what players start with.
[[nodiscard]] bool IsAboutStart(Rule id);

[[nodiscard]] const char* SeverityName(Severity severity);

}  // namespace velmora::publish

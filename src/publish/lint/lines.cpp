#include <algorithm>
#include <array>

#include "base/ascii.h"
#include "base/text.h"
#include "engine/request_path.h"
#include "publish/common/list_path.h"
#include "publish/common/published_list.h"
#include "publish/lint/checks.h"

namespace velmora::publish {
namespace {

constexpr std::array<const char*, 5> kFieldNames = {"path", "transfer hash", "transfer size",
                                                    "content hash", "content size"};

// How much of a line a finding quotes.
constexpr std::size_t kQuotedLength = 40;

bool IsBlank(std::string_view text) { return std::all_of(text.begin(), text.end(), IsWhiteSpace); }

// "file", or "FILE:" without the space before the colon, or a keyword after the byte order mark
// that some editors put at the beginning of UTF-8.
bool IsNearlyKeyword(std::string_view word) {
  word = WithoutByteOrderMark(word);
  word = word.substr(0, word.find(':'));
  return EqualWithoutCase(word, "FILE") || EqualWithoutCase(word, "DEL") ||
         EqualWithoutCase(word, "EXE");
}

// The rest of the line after `field`, which is a part of it.
std::string_view After(std::string_view line, std::string_view field) {
  return line.substr(static_cast<std::size_t>(field.data() + field.size() - line.data()));
}

bool HasExtraCommas(std::string_view line) { return std::count(line.begin(), line.end(), ',') > 4; }

void AddFieldOverLimit(const ListLine& scanned, std::size_t number, Findings& findings) {
  const std::string_view path = scanned.fields[0];
  if (path.size() > kMaxListPath) {
    findings.Add(Rule::kPathTooLong, number, path, std::to_string(path.size()) + " bytes");
  } else {
    findings.Add(Rule::kFieldTooLong, number, path);
  }
}

void CheckTrailingSpaces(const ListLine& scanned, std::size_t fields, std::size_t number,
                         Findings& findings) {
  for (std::size_t i = 0; i < fields; ++i) {
    if (scanned.fields[i].ends_with(' ')) {
      findings.Add(Rule::kTrailingSpace, number, scanned.fields[0], kFieldNames[i]);
    }
  }
}

// Whether all fields of a FILE line are in their places. Patchers take the record in any case.
LineUse CheckFileFields(std::string_view line, const ListLine& scanned, std::size_t number,
                        Findings& findings) {
  const std::string_view path = scanned.fields[0];
  for (std::size_t i = 0; i < scanned.fields.size(); ++i) {
    if (!scanned.fields[i].empty()) continue;
    findings.Add(Rule::kMissingField, number, path, std::string("no ") + kFieldNames[i]);
    return LineUse::kBrokenRecord;
  }
  if (!ListedSize(scanned.fields[2]) && !ListedSize(scanned.fields[4]) && HasExtraCommas(line)) {
    findings.Add(Rule::kTooManyCommas, number, path);
    return LineUse::kBrokenRecord;
  }
  CheckTrailingSpaces(scanned, scanned.fields.size(), number, findings);
  if (!IsBlank(After(line, scanned.fields[4]))) findings.Add(Rule::kUnreadText, number, path);
  return LineUse::kRecord;
}

// A DEL or EXE line, of which patchers read `fieldsRead` fields.
void CheckShortLine(std::string_view line, const ListLine& scanned, std::size_t fieldsRead,
                    std::size_t number, Findings& findings) {
  if (scanned.fields[0].empty()) {
    findings.Add(Rule::kNothingNamed, number, scanned.keyword);
    return;
  }
  const bool hasSecond = fieldsRead > 1 && !scanned.fields[1].empty();
  const std::size_t fields = hasSecond ? 2 : 1;
  CheckTrailingSpaces(scanned, fields, number, findings);
  const std::string_view rest = After(line, scanned.fields[fields - 1]);
  if (!IsBlank(rest) && rest != ",") findings.Add(Rule::kUnreadText, number, scanned.fields[0]);
}

void CheckSize(const ListedRecord& listed, const std::string& size, const char* name,
               Findings& findings) {
  if (!ListedSize(size)) findings.Add(Rule::kNotASize, listed, std::string(name) + " " + size);
}

// Only of what the server delivers: a list spells content sizes with zeros to have files read
// again.
void CheckZeros(const ListedRecord& listed, Findings& findings) {
  const std::string& size = listed.record.transferSize;
  if (!ListedSize(size) || size.size() == 1 || size.front() != '0') return;
  findings.Add(Rule::kLeadingZeros, listed, size);
}

void CheckHash(const ListedRecord& listed, const std::string& hash, const char* name,
               Findings& findings) {
  if (!ListedHash(hash)) findings.Add(Rule::kNotADigest, listed, std::string(name) + " " + hash);
}

bool ContentContradictsTransfer(const FileRecord& record) {
  const bool isSameKind = record.transferHash.size() == record.contentHash.size();
  return ToNumber(record.transferSize) != ToNumber(record.contentSize) ||
         (isSameKind && record.transferHash != record.contentHash);
}

void CheckSpelling(const ListedRecord& listed, Findings& findings) {
  const std::string& path = listed.record.path;
  // The one spelling of the settings file that makes patchers restart.
  if (path.empty() || path == "./VelmoraUpdate.dat") return;
  if (path.find('/') != std::string::npos) findings.Add(Rule::kSlashInPath, listed);
  const auto elements = PathElements(path);
  // A leading separator leaves the installation, which is another rule's matter.
  const bool isRooted = elements.size() > 1 && elements.front().empty();
  const bool isPlain = std::none_of(elements.begin() + (isRooted ? 1 : 0), elements.end(),
                                    [](std::string_view e) { return e.empty() || e == "."; });
  if (!isPlain) findings.Add(Rule::kNotPlainPath, listed);
}

void CheckCharacters(const ListedRecord& listed, Findings& findings) {
  const std::string& path = listed.record.path;
  if (std::any_of(path.begin(), path.end(), IsControl)) {
    findings.Add(Rule::kControlCharacter, listed);
  }
  // A colon leaves the installation, which is another rule's matter.
  const bool hasColon = path.find(':') != std::string::npos;
  if (!hasColon && HoldsForbiddenCharacter(path)) findings.Add(Rule::kForbiddenCharacter, listed);
  if (path.find_first_of("%#") != std::string::npos) {
    findings.Add(Rule::kPercentOrNumberSign, listed);
  }
  if (path.find(' ') != std::string::npos) findings.Add(Rule::kSpaceInPath, listed);
  if (HoldsBackslashInCharacter(path)) findings.Add(Rule::kBackslashInCharacter, listed);
  if (!IsCodePageText(path)) findings.Add(Rule::kNotInCodePage, listed);
}

}  // namespace

void CheckEnd(std::string_view text, std::string_view unread, Findings& findings) {
  if (unread.empty()) return;
  text.remove_suffix(unread.size());
  const auto number = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  if (unread.front() == '\0') {
    findings.Add(Rule::kNulByte, number, text.substr(text.rfind('\n') + 1));
    return;
  }
  const std::string_view line = unread.substr(0, unread.find('\n'));
  findings.Add(Rule::kLineTooLong, number, line.substr(0, kQuotedLength),
               std::to_string(line.size()) + " bytes");
}

LineUse CheckLine(std::string_view line, const ListLine& scanned, std::size_t number,
                  Findings& findings) {
  if (IsBlank(line)) return LineUse::kNone;
  const bool isFile = scanned.keyword == "FILE";
  const bool isRemoval = scanned.keyword == "DEL";
  if (!isFile && !isRemoval && scanned.keyword != "EXE") {
    const Rule rule =
        IsNearlyKeyword(scanned.keyword) ? Rule::kMisspelledKeyword : Rule::kMeaninglessLine;
    findings.Add(rule, number, line.substr(0, kQuotedLength));
    return LineUse::kNone;
  }
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (line.find('\r') != std::string_view::npos) {
    findings.Add(Rule::kCarriageReturn, number, scanned.fields[0]);
  }
  if (!IsWithinLimits(scanned)) {
    if (isFile && HasExtraCommas(line)) {
      findings.Add(Rule::kTooManyCommas, number, scanned.fields[0]);
    } else {
      AddFieldOverLimit(scanned, number, findings);
    }
    return LineUse::kNone;
  }
  if (isFile) return CheckFileFields(line, scanned, number, findings);
  CheckShortLine(line, scanned, isRemoval ? 2 : 1, number, findings);
  return LineUse::kRecord;
}

void CheckHashesAndSizes(const ListedRecord& listed, Findings& findings) {
  const FileRecord& record = listed.record;
  CheckHash(listed, record.transferHash, kFieldNames[1], findings);
  CheckSize(listed, record.transferSize, kFieldNames[2], findings);
  CheckZeros(listed, findings);
  CheckHash(listed, record.contentHash, kFieldNames[3], findings);
  CheckSize(listed, record.contentSize, kFieldNames[4], findings);
  if (!record.compressed && ContentContradictsTransfer(record)) {
    findings.Add(Rule::kContentDiffers, listed);
  }
  const auto growth = ToNumber(record.transferSize) - std::int64_t{ToNumber(record.contentSize)};
  if (record.compressed && growth > 0) findings.Add(Rule::kCompressedIsLarger, listed);
}

void CheckPath(const ListedRecord& listed, std::string_view listedPath, const std::string& dataPath,
               Findings& findings) {
  const FileRecord& record = listed.record;
  if (record.compressed && record.path.size() + kCompressedMark.size() != listedPath.size()) {
    findings.Add(Rule::kMarkWithinPath, listed.line, listedPath);
  }
  if (EndsCache(record)) findings.Add(Rule::kCacheLineTooLong, listed);
  if (!RequestPath(dataPath, record)) findings.Add(Rule::kRequestTooLong, listed);
  if (LeavesInstallation(record.path)) findings.Add(Rule::kLeavesInstallation, listed);
  CheckCharacters(listed, findings);
  CheckSpelling(listed, findings);
}

void CheckRemovalPath(const ListedRecord& removal, Findings& findings) {
  const std::string& path = removal.record.path;
  const std::string& mode = removal.record.transferHash;
  if (path.empty()) return;
  const bool isPattern = IsPatternRemoval(removal.record);
  if (!mode.empty() && !isPattern) findings.Add(Rule::kUnknownMode, removal, mode);
  if (path.find(kCompressedMark) != std::string::npos) {
    findings.Add(Rule::kMarkInRemoval, removal);
  }
  if (isPattern) {
    if (NeverMatches(path)) findings.Add(Rule::kPatternWithoutMatch, removal);
    return;
  }
  if (LeavesInstallation(path)) findings.Add(Rule::kLeavesInstallation, removal);
  if (path.find_first_of("*?") != std::string::npos) {
    findings.Add(Rule::kWildcardWithoutMode, removal);
  }
  if (path.size() > kMaxRemovedFolder) findings.Add(Rule::kRemovalTooLong, removal);
}

}  // namespace velmora::publish

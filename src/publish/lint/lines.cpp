#include <algorithm>
#include <array>
#include <cctype>
#include <limits>

#include "base/ascii.h"
#include "base/text.h"
#include "engine/request_path.h"
#include "engine/verify_cache.h"
#include "publish/common/list_path.h"
#include "publish/common/published_list.h"
#include "publish/lint/checks.h"

namespace velmora::publish {
namespace {

constexpr std::array<const char*, 5> kFieldNames = {"path", "transfer hash", "transfer size",
                                                    "content hash", "content size"};

bool IsBlank(std::string_view text) { return std::all_of(text.begin(), text.end(), IsWhiteSpace); }

std::string UpperCase(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return upper;
}

// "file", or "FILE:" with the colon grown to it, or one behind the mark that some editors put in
// front of UTF-8.
bool IsNearlyKeyword(std::string_view word) {
  word = WithoutByteOrderMark(word);
  const std::string upper = UpperCase(word.substr(0, word.find(':')));
  return upper == "FILE" || upper == "DEL" || upper == "EXE";
}

// What stands in the line behind `field`, which is a part of it.
std::string_view Behind(std::string_view line, std::string_view field) {
  return line.substr(static_cast<std::size_t>(field.data() + field.size() - line.data()));
}

void AddFieldOverLimit(const ListLine& scanned, std::size_t number, Findings& findings) {
  const bool isPath = scanned.fields[0].size() > kMaxListPath;
  findings.Add(isPath ? 301 : 103, number, scanned.fields[0],
               isPath ? std::to_string(scanned.fields[0].size()) + " bytes" : "");
}

void CheckBlanksAtEnds(const ListLine& scanned, std::size_t fields, std::size_t number,
                       Findings& findings) {
  for (std::size_t i = 0; i < fields; ++i) {
    if (scanned.fields[i].ends_with(' ')) {
      findings.Add(109, number, scanned.fields[0], kFieldNames[i]);
    }
  }
}

// Whether all fields of a FILE line are in their places. A patcher takes the record in any case.
LineUse CheckFileFields(std::string_view line, const ListLine& scanned, std::size_t number,
                        Findings& findings) {
  const std::string_view path = scanned.fields[0];
  for (std::size_t i = 0; i < scanned.fields.size(); ++i) {
    if (!scanned.fields[i].empty()) continue;
    findings.Add(107, number, path, std::string("no ") + kFieldNames[i]);
    return LineUse::kBrokenRecord;
  }
  const bool hasMoved = !ListedSize(scanned.fields[2]) && !ListedSize(scanned.fields[4]) &&
                        std::count(line.begin(), line.end(), ',') > 4;
  if (hasMoved) {
    findings.Add(304, number, path);
    return LineUse::kBrokenRecord;
  }
  CheckBlanksAtEnds(scanned, scanned.fields.size(), number, findings);
  if (!IsBlank(Behind(line, scanned.fields[4]))) findings.Add(108, number, path);
  return LineUse::kRecord;
}

void CheckShortLine(std::string_view line, const ListLine& scanned, std::size_t reading,
                    std::size_t number, Findings& findings) {
  if (scanned.fields[0].empty()) {
    findings.Add(110, number, scanned.keyword);
    return;
  }
  const bool hasSecond = reading > 1 && !scanned.fields[1].empty();
  const std::size_t fields = hasSecond ? 2 : 1;
  CheckBlanksAtEnds(scanned, fields, number, findings);
  const std::string_view rest = Behind(line, scanned.fields[fields - 1]);
  if (!IsBlank(rest) && rest != ",") findings.Add(108, number, scanned.fields[0]);
}

bool IsDigest(std::string_view hash) {
  const auto isDigit = [](char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); };
  return (hash.size() == 40 || hash.size() == 32) && std::all_of(hash.begin(), hash.end(), isDigit);
}

void CheckSize(const ListedRecord& listed, const std::string& size, const char* name,
               Findings& findings) {
  const std::string detail = std::string(name) + " " + size;
  if (!ListedSize(size)) {
    findings.Add(202, listed.line, listed.record.path, detail);
  } else if (size.size() > 1 && size.front() == '0') {
    findings.Add(203, listed.line, listed.record.path, detail);
  }
}

void CheckHash(const ListedRecord& listed, const std::string& hash, const char* name,
               Findings& findings) {
  if (!IsDigest(hash)) {
    findings.Add(201, listed.line, listed.record.path, std::string(name) + " " + hash);
  }
}

bool ContentContradictsTransfer(const FileRecord& record) {
  const bool sameKind = record.transferHash.size() == record.contentHash.size();
  return ToNumber(record.transferSize) != ToNumber(record.contentSize) ||
         (sameKind && record.transferHash != record.contentHash);
}

// The spelling that brings a restart.
bool IsSettingsSpelling(std::string_view path) { return path == "./VelmoraUpdate.dat"; }

void CheckSpelling(const ListedRecord& listed, Findings& findings) {
  const std::string& path = listed.record.path;
  if (path.empty() || IsSettingsSpelling(path)) return;
  if (path.find('/') != std::string::npos) findings.Add(313, listed.line, path);
  const auto elements = PathElements(path);
  const bool leads = elements.size() > 1 && elements.front().empty();  // out: another rule's
  const bool plain = std::none_of(elements.begin() + (leads ? 1 : 0), elements.end(),
                                  [](std::string_view e) { return e.empty() || e == "."; });
  if (!plain) findings.Add(314, listed.line, path);
}

void CheckCharacters(const ListedRecord& listed, Findings& findings) {
  const std::string& path = listed.record.path;
  const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
  if (std::any_of(path.begin(), path.end(), isControl)) findings.Add(305, listed.line, path);
  // A colon is the business of the rule about leaving the installation.
  const bool hasColon = path.find(':') != std::string::npos;
  if (!hasColon && HoldsForbiddenCharacter(path)) findings.Add(310, listed.line, path);
  if (path.find_first_of("%#") != std::string::npos) findings.Add(311, listed.line, path);
  if (path.find(' ') != std::string::npos) findings.Add(303, listed.line, path);
  if (HoldsBackslashInCharacter(path)) findings.Add(307, listed.line, path);
  if (!IsCodePageText(path)) findings.Add(309, listed.line, path);
}

}  // namespace

LineUse CheckLine(std::string_view line, const ListLine& scanned, std::size_t number,
                  Findings& findings) {
  if (IsBlank(line)) return LineUse::kNone;
  const bool isFile = scanned.keyword == "FILE";
  const bool isRemoval = scanned.keyword == "DEL";
  if (!isFile && !isRemoval && scanned.keyword != "EXE") {
    findings.Add(IsNearlyKeyword(scanned.keyword) ? 104 : 105, number, line.substr(0, 40));
    return LineUse::kNone;
  }
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (line.find('\r') != std::string_view::npos) findings.Add(106, number, scanned.fields[0]);
  if (!IsWithinLimits(scanned)) {
    const bool hasMoved = isFile && std::count(line.begin(), line.end(), ',') > 4;
    if (hasMoved) findings.Add(304, number, scanned.fields[0]);
    if (!hasMoved) AddFieldOverLimit(scanned, number, findings);
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
  CheckHash(listed, record.contentHash, kFieldNames[3], findings);
  CheckSize(listed, record.contentSize, kFieldNames[4], findings);
  if (!record.compressed && ContentContradictsTransfer(record)) {
    findings.Add(204, listed.line, record.path);
  }
  const auto growth = ToNumber(record.transferSize) - std::int64_t{ToNumber(record.contentSize)};
  if (record.compressed && growth > 0) findings.Add(205, listed.line, record.path);
}

void CheckPath(const ListedRecord& listed, std::string_view listedPath, const LintOptions& options,
               Findings& findings) {
  const FileRecord& record = listed.record;
  if (record.compressed && record.path.size() + kCompressedMark.size() != listedPath.size()) {
    findings.Add(312, listed.line, listedPath);
  }
  if (CacheLine(record).size() - 1 > kMaxCacheLine) findings.Add(302, listed.line, record.path);
  if (!RequestPath(options.dataPath, record)) findings.Add(306, listed.line, record.path);
  if (LeavesInstallation(record.path)) findings.Add(308, listed.line, record.path);
  CheckCharacters(listed, findings);
  CheckSpelling(listed, findings);
}

void CheckRemovalPath(const ListedRecord& removal, Findings& findings) {
  const std::string& path = removal.record.path;
  const std::string& mode = removal.record.transferHash;
  if (path.empty()) return;
  const bool isPattern = IsPatternRemoval(removal.record);
  if (!mode.empty() && !isPattern) findings.Add(506, removal.line, path, mode);
  if (path.find(kCompressedMark) != std::string::npos) findings.Add(508, removal.line, path);
  if (isPattern) return;
  if (LeavesInstallation(path)) findings.Add(308, removal.line, path);
  if (path.find_first_of("*?") != std::string::npos) findings.Add(505, removal.line, path);
  if (path.size() > 255) findings.Add(507, removal.line, path);
}

}  // namespace velmora::publish

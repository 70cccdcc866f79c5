#include "publish/lint/program_file.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "base/ascii.h"
#include "base/text.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// How much of a file tells what it is.
constexpr std::size_t kBeginning = 512;

constexpr char kUnreadable[] = "it can't be read";

// The number of `width` bytes, the lowest first.
std::uint64_t Number(std::string_view bytes, std::size_t position, std::size_t width) {
  std::uint64_t number = 0;
  for (std::size_t i = width; i > 0; --i) {
    number = number << 8 | static_cast<unsigned char>(bytes[position + i - 1]);
  }
  return number;
}

// Both come from a file, so their sum may be anything; one that doesn't fit is beyond any file.
std::uint64_t EndOf(std::uint64_t offset, std::uint64_t size) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  return size > kMost - offset ? kMost : offset + size;
}

class ProgramFile {
 public:
  explicit ProgramFile(const fs::path& path) : stream_(path, std::ios::binary) {
    std::error_code error;
    const std::uint64_t size = fs::file_size(path, error);
    if (error) stream_.setstate(std::ios::failbit);
    size_ = error ? 0 : size;
  }
  [[nodiscard]] bool CanBeRead() const { return stream_.good(); }
  [[nodiscard]] std::uint64_t size() const { return size_; }

  // Nothing if the file doesn't hold all of them.
  [[nodiscard]] std::optional<std::string> Read(std::uint64_t offset, std::size_t count) {
    if (EndOf(offset, count) > size_) return std::nullopt;
    std::string bytes(count, '\0');
    stream_.seekg(static_cast<std::streamoff>(offset));
    stream_.read(bytes.data(), static_cast<std::streamsize>(count));
    return stream_.good() ? std::optional(std::move(bytes)) : std::nullopt;
  }

  // What Read has failed for.
  [[nodiscard]] std::string WhyMissing(const std::string& part, std::uint64_t offset,
                                       std::uint64_t size) const {
    const std::string cutOff = WhyCutOff(part, offset, size);
    return cutOff.empty() ? kUnreadable : cutOff;
  }

  // Empty if the part lies within the file.
  [[nodiscard]] std::string WhyCutOff(const std::string& part, std::uint64_t offset,
                                      std::uint64_t size) const {
    const std::uint64_t end = EndOf(offset, size);
    if (end <= size_) return {};
    return "cut off: " + part + " ends at byte " + std::to_string(end) + ", the file has " +
           std::to_string(size_);
  }

 private:
  std::ifstream stream_;
  std::uint64_t size_ = 0;
};

std::string Hexadecimal(std::uint64_t number) {
  std::string text = "0x";
  for (int shift = 12; shift >= 0; shift -= 4) text += kHexDigits[number >> shift & 15];
  return text;
}

// --- PE, Windows' programs.

constexpr std::size_t kPeHeader = 24;   // the signature and the header of the file
constexpr std::size_t kPeSection = 40;  // an entry of the table of sections

constexpr char kDamagedHeader[] = "damaged: its header makes no sense";

// The optional header, which no program goes without.
struct PeOptionalHeader {
  std::uint64_t magic;
  std::size_t size;  // without the table of directories at its end
};

std::optional<PeOptionalHeader> OptionalHeaderOf(std::uint64_t machine) {
  if (machine == 0x014C) return PeOptionalHeader{0x010B, 96};
  if (machine == 0x8664) return PeOptionalHeader{0x020B, 112};
  return std::nullopt;
}

std::string WhyNotPeHeader(std::string_view header) {
  constexpr std::uint64_t kCanBeStarted = 0x0002;
  constexpr std::uint64_t kIsLibrary = 0x2000;
  const std::uint64_t machine = Number(header, 4, 2);
  const std::uint64_t flags = Number(header, 22, 2);
  if (!header.starts_with(std::string_view("PE\0\0", 4))) return "a program of DOS, or damaged";
  if (!OptionalHeaderOf(machine)) {
    return "a program for another processor, machine " + Hexadecimal(machine);
  }
  if ((flags & kIsLibrary) != 0) return "a library, not a program";
  if ((flags & kCanBeStarted) == 0) return "damaged: not marked as one that can be started";
  return {};
}

std::string WhyNotPeOptional(std::string_view optional, std::uint64_t magic) {
  constexpr std::uint64_t kWindow = 2;
  constexpr std::uint64_t kConsole = 3;
  const std::uint64_t subsystem = Number(optional, 68, 2);
  if (Number(optional, 0, 2) != magic) return kDamagedHeader;
  if (subsystem != kWindow && subsystem != kConsole) {
    return "neither a program with a window nor one of the console";
  }
  return {};
}

std::string WhyNotPeSections(const ProgramFile& file, std::string_view table) {
  for (; !table.empty(); table.remove_prefix(kPeSection)) {
    const std::string_view name = Trimmed(table.substr(0, 8), std::string_view("\0 ", 2));
    const std::uint64_t size = Number(table, 16, 4);
    const std::uint64_t offset = Number(table, 20, 4);
    // One that holds only zeros takes no space in the file.
    if (size == 0 || offset == 0) continue;
    std::string cutOff = file.WhyCutOff("section " + std::string(name), offset, size);
    if (!cutOff.empty()) return cutOff;
  }
  return {};
}

// The signature lies behind everything else. It would no longer be valid if it were cut off.
std::string WhyNotPeSignature(ProgramFile& file, std::uint64_t tableAt, std::size_t tableSize,
                              std::uint64_t entries) {
  constexpr std::size_t kNumber = 4;
  constexpr std::size_t kEntry = 8;
  constexpr std::size_t kEnd = (kNumber + 1) * kEntry;
  if (entries <= kNumber || tableSize < kEnd) return {};
  const auto entry = file.Read(tableAt + kNumber * kEntry, kEntry);
  if (!entry) return file.WhyMissing("its header", tableAt, kEnd);
  return file.WhyCutOff("its signature", Number(*entry, 0, 4), Number(*entry, 4, 4));
}

std::string WhyNotPe(ProgramFile& file) {
  constexpr std::size_t kStub = 64;
  constexpr std::size_t kMostSections = 96;
  const auto stub = file.Read(0, kStub);
  if (!stub) return file.WhyMissing("its header", 0, kStub);
  const std::uint64_t at = Number(*stub, 60, 4);
  const auto header = file.Read(at, kPeHeader);
  if (!header) return file.WhyMissing("its header", at, kPeHeader);
  if (std::string why = WhyNotPeHeader(*header); !why.empty()) return why;

  const auto expected = *OptionalHeaderOf(Number(*header, 4, 2));
  const std::size_t optionalSize = Number(*header, 20, 2);
  const std::size_t sections = Number(*header, 6, 2);
  const bool isSane = optionalSize >= expected.size && sections >= 1 && sections <= kMostSections;
  if (!isSane) return kDamagedHeader;
  const std::uint64_t optionalAt = at + kPeHeader;
  const auto optional = file.Read(optionalAt, expected.size);
  const auto table = file.Read(optionalAt + optionalSize, sections * kPeSection);
  if (!optional || !table) {
    return file.WhyMissing("its header", optionalAt + optionalSize, sections * kPeSection);
  }
  if (std::string why = WhyNotPeOptional(*optional, expected.magic); !why.empty()) return why;
  if (std::string why = WhyNotPeSections(file, *table); !why.empty()) return why;
  return WhyNotPeSignature(file, optionalAt + expected.size, optionalSize - expected.size,
                           Number(*optional, expected.size - 4, 4));
}

// --- ELF, Linux' programs.

// Where fields are, in 32 or 64 bits.
struct ElfLayout {
  std::size_t header;
  std::size_t word;  // the width of addresses and offsets
  std::size_t programTable;
  std::size_t sectionTable;
  std::size_t entrySizes;  // of the program table's entries; their number and the others follow
  std::size_t programEntry;
  std::size_t segmentOffset;  // in an entry of the program table
  std::size_t segmentSize;
};

constexpr ElfLayout kElf32 = {52, 4, 28, 32, 42, 32, 4, 16};
constexpr ElfLayout kElf64 = {64, 8, 32, 40, 54, 56, 8, 32};

constexpr std::size_t kElfEntryPoint = 24;

std::string WhyNotElfHeader(std::string_view header, const ElfLayout& layout) {
  constexpr std::array<std::uint64_t, 5> kMachines = {3, 40, 62, 183, 243};
  const std::uint64_t type = Number(header, 16, 2);
  const std::uint64_t machine = Number(header, 18, 2);
  if (type != 2 && type != 3) return "not a program, but something to link or to debug";
  if (std::find(kMachines.begin(), kMachines.end(), machine) == kMachines.end()) {
    return "a program for another processor, machine " + Hexadecimal(machine);
  }
  if (Number(header, kElfEntryPoint, layout.word) == 0) return "a library, not a program";
  return {};
}

std::string WhyNotElfSegments(const ProgramFile& file, std::string_view table,
                              const ElfLayout& layout) {
  constexpr std::uint64_t kLoaded = 1;
  bool hasAny = false;
  for (; !table.empty(); table.remove_prefix(layout.programEntry)) {
    if (Number(table, 0, 4) != kLoaded) continue;
    hasAny = true;
    std::string cutOff =
        file.WhyCutOff("a segment", Number(table, layout.segmentOffset, layout.word),
                       Number(table, layout.segmentSize, layout.word));
    if (!cutOff.empty()) return cutOff;
  }
  return hasAny ? "" : kDamagedHeader;
}

// The kernel doesn't need the table of sections, but it is the end of the file.
std::string WhyNotElfEnd(const ProgramFile& file, std::string_view header,
                         const ElfLayout& layout) {
  const std::uint64_t size =
      Number(header, layout.entrySizes + 4, 2) * Number(header, layout.entrySizes + 6, 2);
  if (size == 0) return {};
  return file.WhyCutOff("its table of sections", Number(header, layout.sectionTable, layout.word),
                        size);
}

std::string WhyNotElf(ProgramFile& file) {
  constexpr std::size_t kIdentity = 16;
  constexpr std::size_t kMostSegments = 1024;
  const auto identity = file.Read(0, kIdentity);
  if (!identity) return file.WhyMissing("its header", 0, kElf32.header);
  const std::uint64_t kind = Number(*identity, 4, 1);
  const bool isLittleEndian = Number(*identity, 5, 1) == 1;
  if ((kind != 1 && kind != 2) || !isLittleEndian) return "a program for another processor";
  const ElfLayout& layout = kind == 1 ? kElf32 : kElf64;
  const auto header = file.Read(0, layout.header);
  if (!header) return file.WhyMissing("its header", 0, layout.header);
  if (std::string why = WhyNotElfHeader(*header, layout); !why.empty()) return why;

  const std::uint64_t tableAt = Number(*header, layout.programTable, layout.word);
  const std::size_t segments = Number(*header, layout.entrySizes + 2, 2);
  const bool isSane =
      Number(*header, layout.entrySizes, 2) == layout.programEntry && segments <= kMostSegments;
  if (!isSane) return kDamagedHeader;
  const auto table = file.Read(tableAt, segments * layout.programEntry);
  if (!table) return file.WhyMissing("its header", tableAt, segments * layout.programEntry);
  if (std::string why = WhyNotElfSegments(file, *table, layout); !why.empty()) return why;
  return WhyNotElfEnd(file, *header, layout);
}

// --- Everything else.

std::string WhyNotAScript(std::string_view beginning) {
  const std::string_view line = beginning.substr(0, beginning.find('\n'));
  const std::string_view interpreter =
      line.substr(std::min(line.find_first_not_of(" \t", 2), line.size()));
  if (!interpreter.starts_with('/')) return "a text";
  if (line.ends_with('\r')) return "a script with CR LF line ends, whose program isn't found";
  return {};
}

bool BeginsWithTag(std::string_view text) {
  static constexpr std::array<std::string_view, 5> kTags = {"<!doctype", "<html", "<head", "<body",
                                                            "<?xml"};
  text = Trimmed(WithoutByteOrderMark(text), kWhiteSpace);
  return std::any_of(kTags.begin(), kTags.end(), [text](std::string_view tag) {
    return EqualWithoutCase(text.substr(0, tag.size()), tag);
  });
}

std::string WhatItIs(std::string_view beginning) {
  static constexpr std::array<std::pair<std::string_view, const char*>, 5> kKinds = {{
      {"version https://git-lfs", "a Git LFS pointer, whose file wasn't fetched"},
      {"PK\x03\x04", "a ZIP archive"},
      {"\x1F\x8B", "a gzip archive"},
      {"7z\xBC\xAF", "a 7z archive"},
      {"MSCF", "a cabinet archive"},
  }};
  for (const auto& [start, kind] : kKinds) {
    if (beginning.starts_with(start)) return kind;
  }
  if (BeginsWithTag(beginning)) return "a web page";
  const bool isZero =
      std::all_of(beginning.begin(), beginning.end(), [](char c) { return c == 0; });
  if (isZero) return "zeros";
  const bool isText = std::none_of(beginning.begin(), beginning.end(),
                                   [](char c) { return IsControl(c) && !IsWhiteSpace(c); });
  return isText ? "a text" : "neither PE nor ELF";
}

}  // namespace

std::string WhyNotAProgram(const fs::path& path) {
  ProgramFile file(path);
  if (!file.CanBeRead()) return kUnreadable;
  if (file.size() == 0) return "empty";
  const auto beginning =
      file.Read(0, static_cast<std::size_t>(std::min<std::uint64_t>(file.size(), kBeginning)));
  if (!beginning) return kUnreadable;
  if (beginning->starts_with("MZ")) return WhyNotPe(file);
  if (beginning->starts_with("\x7F"
                             "ELF"))
    return WhyNotElf(file);
  if (beginning->starts_with("#!")) return WhyNotAScript(*beginning);
  return WhatItIs(*beginning);
}

}  // namespace velmora::publish

#include "publish/build/tree_names.h"

#include <algorithm>
#include <array>

#include "base/ascii.h"
#include "base/text.h"
#include "engine/reference_list.h"
#include "publish/common/list_path.h"

namespace velmora::publish {
namespace {

// Each becomes an underscore in a name that is proposed.
constexpr std::string_view kReplaced = "\\,%#<>:\"|*?";

std::string_view LastCharacter(std::string_view name) {
  std::string_view last;
  for (const std::string_view character : Characters(name)) last = character;
  return last;
}

// The backslash after a folder's name would become the second half of its last character.
bool EndsInHalfCharacter(std::string_view name) {
  const std::string_view last = LastCharacter(name);
  return last.size() == 1 && IsLeadByte(last[0]);
}

bool EndsIn5C(std::string_view name) { return LastCharacter(name).ends_with('\\'); }

bool HoldsOneOf(std::string_view name, std::string_view characters) {
  for (const std::string_view character : Characters(name)) {
    if (characters.find(character[0]) != std::string_view::npos) return true;
  }
  return false;
}

struct NameFault {
  const char* what;
  bool (*isIn)(std::string_view name, NamePlace place);
};

using Name = std::string_view;

constexpr std::array kFaults = {
    NameFault{"holds a line feed",
              [](Name name, NamePlace) { return name.find('\n') != Name::npos; }},
    NameFault{"holds a control character",
              [](Name name, NamePlace) {
                return std::any_of(name.begin(), name.end(),
                                   [](char c) { return IsControl(c) && c != '\n'; });
              }},
    NameFault{"holds a backslash", [](Name name, NamePlace) { return HoldsOneOf(name, "\\"); }},
    NameFault{"holds a comma", [](Name name, NamePlace) { return HoldsOneOf(name, ","); }},
    NameFault{"holds a percent or number sign",
              [](Name name, NamePlace) { return HoldsOneOf(name, "%#"); }},
    NameFault{"holds one of < > : \" | * ?, which Windows doesn't allow",
              [](Name name, NamePlace) { return HoldsForbiddenCharacter(name); }},
    NameFault{"holds \".compressed\", where a patcher would cut it off",
              [](Name name, NamePlace) { return name.find(kCompressedMark) != Name::npos; }},
    NameFault{"begins with white space",
              [](Name name, NamePlace place) { return place.isInRoot && IsWhiteSpace(name[0]); }},
    NameFault{"ends in a dot or a space, which Windows drops",
              [](Name name, NamePlace) { return name.ends_with('.') || name.ends_with(' '); }},
    NameFault{"is a device's name on Windows",
              [](Name name, NamePlace) { return NamesDevice(name); }},
    NameFault{"ends in half a character of code page 932",
              [](Name name, NamePlace) { return EndsInHalfCharacter(name); }},
    NameFault{"ends in the byte 5C, which is requested as a slash: no web server offers that",
              [](Name name, NamePlace place) { return place.isFile && EndsIn5C(name); }},
};

std::string NumberOf(char32_t character) {
  std::string digits;
  for (char32_t left = character; left != 0 || digits.size() < 4; left >>= 4U) {
    digits.insert(digits.begin(), kHexDigits[left & 0xFU]);
  }
  return "U+" + digits;
}

// The accents and sound marks that macOS writes after their letters.
bool IsMark(char32_t character) {
  return (character >= 0x300 && character < 0x370) || character == 0x3099 || character == 0x309A;
}

std::string TextOfMissing(const std::u32string& missing) {
  constexpr std::size_t kShown = 3;
  std::string text = "holds ";
  for (std::size_t i = 0; i < std::min(missing.size(), kShown); ++i) {
    text += (i == 0 ? "" : ", ") + NumberOf(missing[i]);
  }
  if (missing.size() > kShown) text += " and others";
  text += ", which code page 932 lacks";
  if (std::any_of(missing.begin(), missing.end(), IsMark)) {
    text += " (letters and their marks are apart, as on macOS: convmv --nfc joins them)";
  }
  return text;
}

std::string WithoutUnfitCharacters(std::string_view name) {
  std::string fit;
  for (const std::string_view character : Characters(name)) {
    const bool isUnfit = IsControl(character[0]) ||
                         kReplaced.find(character[0]) != std::string_view::npos ||
                         !IsCodePageText(character);
    fit += isUnfit ? "_" : character;
  }
  return fit;
}

}  // namespace

ListName ListNameOf(std::string_view name, NameEncoding encoding) {
  if (platform::AreNamesUnicode()) encoding = NameEncoding::kUtf8;
  ListName listed{std::string(name), "", false};
  const bool isAscii = std::all_of(name.begin(), name.end(), IsAscii);
  if (isAscii || encoding == NameEncoding::kBytes) return listed;
  const auto converted = InCodePage(name);
  if (!converted) {
    if (encoding == NameEncoding::kUtf8) {
      listed.fault = "isn't UTF-8 (--names bytes publishes names as they are)";
    }
    return listed;
  }
  listed.text = converted->text;
  listed.isGuessed = encoding == NameEncoding::kGuess;
  if (!listed.isGuessed && !converted->missing.empty()) {
    listed.fault = TextOfMissing(converted->missing);
  }
  return listed;
}

std::string WhyNotPublishable(std::string_view name, NamePlace place) {
  std::string why;
  for (const NameFault& fault : kFaults) {
    if (!fault.isIn(name, place)) continue;
    if (!why.empty()) why += " and ";
    why += fault.what;
  }
  return why;
}

std::string PublishableName(std::string_view name) {
  std::string fit = WithoutUnfitCharacters(name);
  for (std::size_t at = 0; (at = fit.find(kCompressedMark, at)) != std::string::npos;) {
    fit[at] = '_';
  }
  fit.erase(fit.find_last_not_of(". ") + 1);
  fit.erase(0, fit.find_first_not_of(' '));
  if (fit.empty() || EndsIn5C(fit)) fit += '_';
  return NamesDevice(fit) ? "_" + fit : fit;
}

}  // namespace velmora::publish

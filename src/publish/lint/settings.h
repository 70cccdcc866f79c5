// Finds what keeps a settings file from leading patchers to their server.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "publish/lint/checks.h"
#include "publish/lint/lint.h"

namespace velmora::publish {

enum class SettingPlace {
  kFront,     // before the first section
  kRead,      // in the section that patchers read
  kRepeated,  // in another section of the same name
  kOther,     // in another section
};

// A line of a settings file that isn't empty, a comment or the head of a section.
struct SettingLine {
  std::size_t number;  // from 1
  SettingPlace place;
  std::string_view section;
  std::string_view key;
  std::string_view value;  // of any length
};

struct SettingLines {
  std::vector<SettingLine> lines;
  bool hasSection = false;  // the one that patchers read
};

// The parts are those of `text`. Pure.
[[nodiscard]] SettingLines SettingLinesOf(std::string_view text);

// Adds all findings about the file. What its patchers would do is found out by their own code.
// Fills the patcher's settings.
void CheckSettings(const std::filesystem::path& file, const LintOptions& options,
                   Findings& findings);

// The longest path with which a patcher with these settings may begin a request; empty if the file
// can't be read. Fills the patcher's settings.
[[nodiscard]] std::string LongestDataPath(const std::filesystem::path& file);

}  // namespace velmora::publish

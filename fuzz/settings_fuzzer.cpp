// Any bytes as the settings file: no value that doesn't stand there, none beyond its limit, and the
// first section and key win.
#include "harness.h"
#include "settings/mirror_selection.h"
#include "settings/patcher_settings.h"
#include "settings/settings_store.h"

namespace velmora::fuzz {
namespace {

constexpr char kFile[] = "./VelmoraUpdate.dat";
constexpr const char* kKeys[] = {"ServerAddress", "FTPUserName", "FTPPassword", "Data",
                                 "Information",   "DataFile",    "BaseURL1"};

using Values = std::vector<std::string>;

Values ValuesOf(std::string_view file) {
  WriteFile(kFile, file);
  Values values;
  for (const char* const key : kKeys) values.push_back(ReadSetting(key));
  return values;
}

void CheckValues(const Values& values, std::string_view file) {
  std::string lower(file);
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  const bool hasSection = lower.find("setting") != std::string::npos;
  for (const std::string& value : values) {
    Require(value.size() <= 255, "a value holds at most 255 bytes", value);
    Require(value.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos,
            "a value is part of one line", value);
    Require(file.find(value) != std::string_view::npos, "a value stands in the file", value);
    Require(value.empty() || hasSection, "values stand in the section", value);
  }
}

// What stands after it, under another section or the same one, changes nothing.
void CheckFirstWins(const Values& values, const std::string& file) {
  std::string others;
  for (const char* const key : kKeys) others += key + std::string("=http://other/\r\n");
  Require(ValuesOf(file + "\r\n[Other]\r\n" + others) == values, "another section", file);
  const Values doubled = ValuesOf(file + "\r\n[Setting]\r\n" + others);
  for (std::size_t i = 0; i < values.size(); ++i) {
    Require(values[i].empty() || doubled[i] == values[i], "a second section", file);
  }
}

void CheckSettings(const Values& values) {
  ReadSettings();
  ReadMirrors();
  Require(Settings.ServerHost == values[0].substr(0, values[0].find(':')),
          "the host stands in front of the colon", values[0]);
  Require(Settings.FTPPassword == values[2] && Settings.DataPath == values[3] &&
              Settings.InformationUrl == values[4] &&
              Settings.DataFile == (values[5].empty() ? "hashlist.dat" : values[5]),
          "values go where they belong");
  Require(Mirrors.count <= 10 && (!values[6].empty() || Mirrors.count == 0), "mirrors");
  for (std::size_t i = 0; i < Mirrors.count; ++i) {
    Require(!Mirrors.entries[i].host.empty(), "a mirror has a host");
  }
}

}  // namespace

void CheckInput(std::string_view file) {
  EnterEmptyFolder();
  Settings = PatcherSettings();
  Settings.SettingsPath = kFile;
  const Values values = ValuesOf(file);
  CheckValues(values, file);
  CheckSettings(values);
  CheckFirstWins(values, std::string(file));
}

}  // namespace velmora::fuzz

// Any bytes as the settings file: no value that doesn't stand there, none beyond its limit, and the
// first section and key win.
#include "harness.h"
#include "settings/mirror_selection.h"
#include "settings/patcher_settings.h"
#include "settings/settings_store.h"

namespace velmora::fuzz {
namespace {

constexpr char kFile[] = "./VelmoraUpdate.dat";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

const std::vector<std::string>& Keys() {
  static const std::vector<std::string> keys = {
      "ServerAddress", "FTPUserName", "FTPPassword", "Data", "Information", "DataFile", "BaseURL1"};
  return keys;
}

std::vector<std::string> ValuesOf(std::string_view file) {
  WriteFile(kFile, file);
  std::vector<std::string> values;
  for (const std::string& key : Keys()) values.push_back(ReadSetting(key));
  return values;
}

bool HoldsWithoutCase(std::string_view text, std::string_view lowerCase) {
  for (std::size_t i = 0; i + lowerCase.size() <= text.size(); ++i) {
    std::size_t same = 0;
    while (same < lowerCase.size() && (text[i + same] | 0x20) == lowerCase[same]) ++same;
    if (same == lowerCase.size()) return true;
  }
  return false;
}

void CheckValues(const std::vector<std::string>& values, std::string_view file) {
  for (const std::string& value : values) {
    Require(value.size() <= 255, "a value holds at most 255 bytes", value);
    Require(value.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos,
            "a value is part of one line", value);
    Require(file.find(value) != std::string_view::npos, "a value stands in the file", value);
    Require(value.empty() || HoldsWithoutCase(file, "setting"), "values stand in the section",
            value);
  }
}

// What stands in front under another section, or behind under the same one, changes nothing.
void CheckFirstWins(const std::vector<std::string>& values, const std::string& file) {
  std::string others;
  for (const std::string& key : Keys()) others += key + "=http://other/\r\n";
  const bool isMarked = file.starts_with(kByteOrderMark);
  Require(isMarked || ValuesOf("[Other]\r\n" + others + file) == values,
          "another section in front changes nothing", file);
  Require(ValuesOf(file + "\r\n[Other]\r\n" + others) == values,
          "another section behind changes nothing", file);
  const std::vector<std::string> behind = ValuesOf(file + "\r\n[Setting]\r\n" + others);
  for (std::size_t i = 0; i < values.size(); ++i) {
    Require(values[i].empty() || behind[i] == values[i], "a second section changes nothing", file);
  }
}

void CheckSettings(const std::vector<std::string>& values) {
  Settings = PatcherSettings();
  Settings.SettingsPath = kFile;
  ReadSettings();
  ReadMirrors();
  const std::string& address = values[0];
  const bool isHost =
      address.starts_with(Settings.ServerHost) &&
      Settings.ServerHost.find(':') == std::string::npos &&
      (address.size() == Settings.ServerHost.size() || address[Settings.ServerHost.size()] == ':');
  Require(isHost, "the host stands in front of the colon", address);
  const std::string& user = Settings.FTPUserName;
  Require(user.empty() || (user == values[1] && user != "KOL" && user != "OSKA"),
          "a reserved user isn't used", user);
  Require(Settings.FTPPassword == values[2] && Settings.DataPath == values[3] &&
              Settings.InformationUrl == values[4],
          "values go where they belong");
  Require(Settings.DataFile == (values[5].empty() ? "hashlist.dat" : values[5]), "the list's name",
          Settings.DataFile);
  Require(Mirrors.count <= 10 && (values[6].empty() ? Mirrors.count == 0 : true),
          "mirrors are read up to the first gap");
  for (std::size_t i = 0; i < Mirrors.count; ++i) {
    const BaseUrlEntry& mirror = Mirrors.entries[i];
    Require(!mirror.host.empty(), "a mirror has a host");
    Require(mirror.port >= 0 && mirror.port <= 65535, "a mirror's port is one");
  }
}

}  // namespace
}  // namespace velmora::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora;
  using namespace velmora::fuzz;
  EnterEmptyFolder();
  Settings.SettingsPath = kFile;
  const std::string file(TextOf(data, size));
  const std::vector<std::string> values = ValuesOf(file);
  CheckValues(values, file);
  CheckSettings(values);
  CheckFirstWins(values, file);
  return 0;
}

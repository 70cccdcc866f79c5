#include "settings/settings_store.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "base/text.h"
#include "platform/ini.h"
#include "settings/mirror_selection.h"
#include "settings/patcher_settings.h"

namespace velmora {
namespace {

constexpr char kDefaultSettingsPath[] = "./VelmoraUpdate.dat";
constexpr char kDefaultDataFile[] = "hashlist.dat";

// Read as StrToIntA does: white space before the number makes it 0.
std::int32_t PortNumber(std::string_view text) {
  if (!text.empty() && IsWhiteSpace(text.front())) return 0;
  return ToNumber(text);
}

void ReadServerAddress() {
  const std::string address = ReadSetting("ServerAddress");
  const std::size_t colon = address.find(':');
  Settings.ServerHost = address.substr(0, colon);
  if (colon != std::string::npos) Settings.ServerPort = PortNumber(address.substr(colon + 1));
}

bool IsReservedUserName(std::string_view name) {
  static constexpr std::array<std::string_view, 5> kReserved = {"KOL", "MIRE", "TUV", "SEB",
                                                                "OSKA"};
  return std::find(kReserved.begin(), kReserved.end(), name) != kReserved.end();
}

}  // namespace

std::string ReadSetting(const std::string& key) {
  return platform::ReadIniValue(Settings.SettingsPath, "Setting", key, kSettingBuffer);
}

void ReadSettings() {
  ReadServerAddress();
  const std::string userName = ReadSetting("FTPUserName");
  Settings.FTPUserName = IsReservedUserName(userName) ? "" : userName;
  Settings.FTPPassword = ReadSetting("FTPPassword");
  Settings.GameServer = ReadSetting("GameServer");
  Settings.DataPath = ReadSetting("Data");
  Settings.InformationUrl = ReadSetting("Information");
  Settings.DataFile = ReadSetting("DataFile");
  if (Settings.DataFile.empty()) Settings.DataFile = kDefaultDataFile;
}

bool LoadSettings() {
  if (Settings.SettingsPath.empty()) Settings.SettingsPath = kDefaultSettingsPath;
  ReadSettings();
  SelectMirror();
  ProbeCdn();
  return true;
}

}  // namespace velmora

// The process's one record of settings.
//
// Written during start-up only, on the main thread. The one exception is ClientExe, which an update
// run takes from the reference list at a time when nothing reads it.
#pragma once

#include <cstdint>
#include <string>

namespace velmora {

struct PatcherSettings {
  std::string ServerHost;
  std::int32_t ServerPort = 0;  // 0: not given, so HTTP's default applies
  std::string DataPath;
  std::string FTPUserName;
  std::string FTPPassword;
  std::string GameServer;  // nothing reads it
  std::string DataFile;
  std::string InformationUrl;
  std::string SettingsPath;
  std::string LaunchId;
  std::string ClientExe = "VelmoraClient.exe";
  std::string OptionExe = "VelmoraOption.exe";
};

extern PatcherSettings Settings;

}  // namespace velmora

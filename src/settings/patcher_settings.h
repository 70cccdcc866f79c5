// The one record of settings of the process, and the pieces of its start.
//
// Written during start-up only, on the main thread; afterwards nothing changes but ClientExe, which
// an update run takes from the reference list while no one reads it.
#pragma once

#include <cstdint>
#include <string>

namespace velmora {

struct PatcherSettings {
  std::string ServerHost;
  std::int32_t ServerPort = 0;  // 0: none was given, the default of HTTP counts
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

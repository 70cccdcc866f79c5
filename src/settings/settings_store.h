// The settings file: an INI file (platform/ini.h) with its keys in the section "Setting".
#pragma once

#include <cstddef>
#include <string>

namespace velmora {

// Buffer size for one value of the settings file: a value longer than 255 bytes is cut.
inline constexpr std::size_t kSettingBuffer = 256;

// Fills `Settings` from the file named by SettingsPath, except for the mirrors. What can't be read
// is empty. Main thread.
void ReadSettings();

// Sets SettingsPath to "./VelmoraUpdate.dat" if it is empty, fills `Settings` from that file, then
// chooses a mirror and asks it for a redirection. What can't be read is empty. Always true. Main
// thread, once per process. Makes one HTTP request.
bool LoadSettings();

// The value of one key of the settings file; empty if the key is missing.
[[nodiscard]] std::string ReadSetting(const std::string& key);

}  // namespace velmora

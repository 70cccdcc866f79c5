// The settings file: an INI file (platform/ini.h) whose keys stand in the section "Setting".
#pragma once

#include <cstddef>
#include <string>

namespace velmora {

// Buffer for one value of the settings file: a value holds at most 255 bytes, a longer one is cut.
inline constexpr std::size_t kSettingBuffer = 256;

// Fills `Settings` from the file that SettingsPath names, mirrors aside. Whatever can't be read is
// empty. Main thread.
void ReadSettings();

// Fills `Settings` from the file that SettingsPath names, or from "./VelmoraUpdate.dat" if it names
// none, then chooses a mirror and asks it for a redirection. Whatever can't be read is empty.
// Always true. Once per process, on the main thread; makes one HTTP request.
bool LoadSettings();

// The value of one key of the settings file, empty if it has none.
[[nodiscard]] std::string ReadSetting(const std::string& key);

}  // namespace velmora

#include "platform/ini.h"

#include <windows.h>

namespace velmora::platform {

std::string ReadIniValue(const std::string& path, const char* section, const std::string& key,
                         std::size_t bufferSize) {
  // A double-byte character that the end of the buffer would cut leaves its place as it was: zero.
  std::string value(bufferSize, '\0');
  GetPrivateProfileStringA(section, key.c_str(), nullptr, value.data(),
                           static_cast<DWORD>(bufferSize), path.c_str());
  return value.c_str();
}

}  // namespace velmora::platform

#include "platform/ini.h"

#include <windows.h>

namespace velmora::platform {

std::string ReadIniValue(const std::string& path, const char* section, const std::string& key,
                         std::size_t bufferSize) {
  // The system doesn't store half a double-byte character: that byte of the buffer stays zero.
  std::string value(bufferSize, '\0');
  GetPrivateProfileStringA(section, key.c_str(), nullptr, value.data(),
                           static_cast<DWORD>(bufferSize), path.c_str());
  return value.c_str();
}

}  // namespace velmora::platform

#include "settings/patcher_settings.h"

namespace velmora {

PatcherSettings Settings;

}  // namespace velmora

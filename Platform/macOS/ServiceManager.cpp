#include "Platform/ServiceManager.h"

namespace ombrix::platform {

void reportReady() {}

}  // namespace ombrix::platform

#include "Platform/HostName.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include "Platform/macOS/Utf8.h"

namespace ombrix::platform {

std::string hostName() {
  const AutoreleasePool pool;
  const CFOwner<CFStringRef> name(SCDynamicStoreCopyComputerName(nullptr, nullptr));
  return name ? utf8Of(name.get()) : std::string();
}

}  // namespace ombrix::platform

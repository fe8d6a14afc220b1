set(port_pure_sources
  macOS/Utf8.cpp
  macOS/Text.cpp)
set(port_sources
  ${port_pure_sources}
  macOS/Clock.cpp
  macOS/Digest.cpp
  macOS/ExecutablePath.cpp
  macOS/HostName.cpp
  macOS/NotificationObserver.cpp
  macOS/NotificationPost.cpp
  macOS/ProcessList.cpp
  macOS/ProcessMemory.cpp
  macOS/RunLoop.cpp
  macOS/ServiceManager.cpp
  macOS/SystemLog.cpp
  macOS/SystemPower.cpp)

set(port_libraries
  "-framework CoreFoundation"
  "-framework Foundation"
  "-framework IOKit"
  "-framework SystemConfiguration"
  objc)

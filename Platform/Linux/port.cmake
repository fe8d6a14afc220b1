set(port_pure_sources Linux/Text.cpp)
set(port_sources
  ${port_pure_sources}
  Linux/Announcement.cpp
  Linux/Clock.cpp
  Linux/Datagram.cpp
  Linux/Digest.cpp
  Linux/ExecutablePath.cpp
  Linux/HostName.cpp
  Linux/Login1.cpp
  Linux/NotificationObserver.cpp
  Linux/NotificationPost.cpp
  Linux/NotificationSockets.cpp
  Linux/ProcessList.cpp
  Linux/ProcessMemory.cpp
  Linux/ProcessStatus.cpp
  Linux/RunLoop.cpp
  Linux/RuntimeDirectory.cpp
  Linux/ServiceManager.cpp
  Linux/SleepMessages.cpp
  Linux/SystemLog.cpp
  Linux/SystemPower.cpp)

find_package(PkgConfig REQUIRED)
pkg_check_modules(systemd REQUIRED IMPORTED_TARGET libsystemd>=248)
pkg_check_modules(nettle REQUIRED IMPORTED_TARGET nettle)
find_library(unistring_library unistring REQUIRED)
set(port_libraries PkgConfig::systemd PkgConfig::nettle ${unistring_library})

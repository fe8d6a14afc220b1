# Sleep needs a bus, a logind that sleeps when it is told to, and a clock that a test can move.
find_package(PkgConfig REQUIRED)
pkg_check_modules(test_systemd REQUIRED IMPORTED_TARGET libsystemd)

add_executable(LogindDouble LogindDouble.cpp)
target_link_libraries(LogindDouble PRIVATE ombrix_contracts PkgConfig::test_systemd)

# Loaded into programs that bring their own sanitizers, or none.
add_library(MovableClock MODULE MovableClockLibrary.cpp)
target_compile_features(MovableClock PRIVATE cxx_std_20)

target_sources(AcceptanceTests PRIVATE
  ClockChangeTest.cpp
  MissedDaysTest.cpp
  MovableClock.cpp
  SystemBus.cpp
  SleepTest.cpp
  UnannouncedSleepTest.cpp)
target_link_libraries(AcceptanceTests PRIVATE PkgConfig::test_systemd)
target_compile_definitions(AcceptanceTests PRIVATE
  LOGIND_EXECUTABLE="$<TARGET_FILE:LogindDouble>"
  CLOCK_LIBRARY="$<TARGET_FILE:MovableClock>")
add_dependencies(AcceptanceTests LogindDouble MovableClock)

# The tests of the agent's core: Source/Core, Source/Agent and the process record.
set(core_test_sources
  ActiveProcessListTest.cpp
  AgentTest.cpp
  AllocationFailure.cpp
  ClientSetupTest.cpp
  CoreTestSupport.cpp
  DayChangeTest.cpp
  HandshakeTest.cpp
  MeteringManagerTest.cpp
  MeteringRecordsTest.cpp
  ProcessDataTest.cpp
  ProcessDetailsTest.cpp
  ProcessManagerTest.cpp
  ProcessTableTest.cpp
  ShutdownTest.cpp
  SleepTrackingTest.cpp
  UtilityTestSupport.cpp)

# The linker takes this program's own ConfigurationManager and leaves the library's out.
add_executable(ScriptedStoreTests
  CoreTestSupport.cpp
  ScriptedStoreTest.cpp
  UtilityTestSupport.cpp)
target_link_libraries(ScriptedStoreTests
  PRIVATE ombrix_core ombrix_platform_fake ombrix_isolated_main)
gtest_discover_tests(ScriptedStoreTests TEST_PREFIX Unit. PROPERTIES LABELS unit)

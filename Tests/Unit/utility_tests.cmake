# The tests of the command line, the configuration, the log and the utilities.
set(utility_test_sources
  CommandLineTest.cpp
  ConfigurationDefaultsTest.cpp
  ConfigurationDocumentTest.cpp
  ConfigurationFileTest.cpp
  ConfigurationManagerTest.cpp
  DateFormatterTest.cpp
  FileUtilsTest.cpp
  FileWritingTest.cpp
  KeyValuePairTest.cpp
  LogManagerTest.cpp
  LogTrimmingTest.cpp
  MainTest.cpp
  MemoryShortageTest.cpp
  OmbrixConfigurationContractTest.cpp
  TextTest.cpp
  UtilityTestSupport.cpp
  ${CMAKE_SOURCE_DIR}/Source/main.cpp)

# The tests have a main() of their own.
set_source_files_properties(${CMAKE_SOURCE_DIR}/Source/main.cpp
  PROPERTIES COMPILE_DEFINITIONS main=ombrixMain SKIP_PRECOMPILE_HEADERS ON)

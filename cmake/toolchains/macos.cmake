# Builds for macOS 12 and later on Linux, with clang and lld. MACOS_SDK (a variable or in the
# environment) names the SDK's folder, OMBRIX_MACOS_ARCH is arm64 or x86_64.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 21)

set(MACOS_SDK "$ENV{MACOS_SDK}" CACHE PATH "Folder of the macOS SDK")
set(OMBRIX_MACOS_ARCH arm64 CACHE STRING "Processor to build for: arm64 or x86_64")
# CMake reads this file again for each of its compiler checks, in a project without our cache.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MACOS_SDK OMBRIX_MACOS_ARCH)

if(NOT EXISTS "${MACOS_SDK}/SDKSettings.json")
  message(FATAL_ERROR "MACOS_SDK does not name the folder of a macOS SDK: '${MACOS_SDK}'")
endif()
if(NOT OMBRIX_MACOS_ARCH MATCHES "^(arm64|x86_64)$")
  message(FATAL_ERROR "OMBRIX_MACOS_ARCH is neither arm64 nor x86_64: '${OMBRIX_MACOS_ARCH}'")
endif()

set(CMAKE_SYSTEM_PROCESSOR ${OMBRIX_MACOS_ARCH})
set(CMAKE_OSX_SYSROOT ${MACOS_SDK} CACHE PATH "" FORCE)
set(CMAKE_OSX_ARCHITECTURES ${OMBRIX_MACOS_ARCH} CACHE STRING "" FORCE)
set(CMAKE_OSX_DEPLOYMENT_TARGET 12.0 CACHE STRING "" FORCE)

# Debian's names bear the version; the bare ones are there only with the default version's package.
foreach(tool IN ITEMS clang clang++ ld64.lld llvm-ar llvm-ranlib llvm-nm llvm-strip
        llvm-install-name-tool)
  string(MAKE_C_IDENTIFIER ${tool} variable)
  find_program(macos_${variable} NAMES ${tool}-14 ${tool} ${tool}-15 ${tool}-16 REQUIRED)
endforeach()

set(CMAKE_C_COMPILER ${macos_clang})
set(CMAKE_CXX_COMPILER ${macos_clang__})
set(CMAKE_C_COMPILER_TARGET ${OMBRIX_MACOS_ARCH}-apple-macos12)
set(CMAKE_CXX_COMPILER_TARGET ${OMBRIX_MACOS_ARCH}-apple-macos12)
set(CMAKE_AR ${macos_llvm_ar} CACHE FILEPATH "")
set(CMAKE_RANLIB ${macos_llvm_ranlib} CACHE FILEPATH "")
set(CMAKE_NM ${macos_llvm_nm} CACHE FILEPATH "")
set(CMAKE_STRIP ${macos_llvm_strip} CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL ${macos_llvm_install_name_tool} CACHE FILEPATH "")
set(CMAKE_CXX_FLAGS_INIT -stdlib=libc++)
# Without the version, clang speaks to the linker in the options of a time before lld's.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld --ld-path=${macos_ld64_lld} -mlinker-version=609")

# Libraries and headers are the SDK's, never this machine's.
set(CMAKE_FIND_ROOT_PATH ${MACOS_SDK})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(LIBXML2_INCLUDE_DIR ${MACOS_SDK}/usr/include/libxml2 CACHE PATH "")
set(LIBXML2_LIBRARY ${MACOS_SDK}/usr/lib/libxml2.tbd CACHE FILEPATH "")

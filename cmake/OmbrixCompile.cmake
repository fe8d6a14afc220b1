# How every target of the project is compiled.
add_library(ombrix_compile INTERFACE)
target_compile_options(ombrix_compile INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wformat=2 -Wundef)
# A constructor's parameter may be named as the member that it fills.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  target_compile_options(ombrix_compile INTERFACE -Wshadow=local)
else()
  target_compile_options(ombrix_compile INTERFACE -Wshadow)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 sees an overlap in std::string's own operator+ (GCC bug 105651).
  target_compile_options(ombrix_compile INTERFACE -Wno-restrict)
endif()
if(OMBRIX_WARNINGS_AS_ERRORS)
  target_compile_options(ombrix_compile INTERFACE -Werror)
endif()
if(OMBRIX_SANITIZERS)
  target_compile_options(ombrix_compile INTERFACE
    -fsanitize=${OMBRIX_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(ombrix_compile INTERFACE -fsanitize=${OMBRIX_SANITIZERS})
endif()

# What makes a fault in the program hard to use, in every build that is optimised; the sanitizers
# bring their own of it.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()

function(ombrix_harden)
  if(OMBRIX_SANITIZERS)
    return()
  endif()
  set(optimised "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
  # A level that the compiler does not know is the highest that it does (feature_test_macros(7)).
  target_compile_options(ombrix_compile INTERFACE
    "$<${optimised}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
  target_compile_definitions(ombrix_compile INTERFACE "$<${optimised}:_GLIBCXX_ASSERTIONS>")
  set(compiler_flags -fstack-protector-strong)
  set(linker_flags)
  if(NOT APPLE)
    # A Mac's linker and processors have these by themselves or not at all.
    list(APPEND compiler_flags
      -fstack-clash-protection -fcf-protection=full -mbranch-protection=standard)
    list(APPEND linker_flags LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
  endif()
  set(CMAKE_REQUIRED_FLAGS -Werror)  # clang takes other processors' flags with a warning
  foreach(flag IN LISTS compiler_flags)
    string(MAKE_C_IDENTIFIER "ombrix_has${flag}" known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
      target_compile_options(ombrix_compile INTERFACE "$<${optimised}:${flag}>")
    endif()
  endforeach()
  foreach(flag IN LISTS linker_flags)
    target_link_options(ombrix_compile INTERFACE "$<${optimised}:${flag}>")
  endforeach()
endfunction()
ombrix_harden()

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

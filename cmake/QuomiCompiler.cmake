# One INTERFACE target carries what every target of this project is compiled with.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

find_program(QUOMI_CCACHE ccache)
if(QUOMI_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${QUOMI_CCACHE})
endif()

add_library(quomi_options INTERFACE)
target_compile_options(quomi_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<BOOL:${PROJECT_IS_TOP_LEVEL}>:-Werror>)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # g++ 12 warns of overlapping copies inside std::string's operator+ where there are none (GCC bug 105329).
  target_compile_options(quomi_options INTERFACE -Wno-restrict)
endif()

find_program(QUOMI_MOLD mold)
if(QUOMI_MOLD)
  target_link_options(quomi_options INTERFACE -fuse-ld=mold)
endif()

if(QUOMI_SANITIZE)
  target_compile_options(quomi_options INTERFACE
    -fsanitize=${QUOMI_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(quomi_options INTERFACE -fsanitize=${QUOMI_SANITIZE})
endif()

if(QUOMI_BUILD_FUZZERS)
  # A fuzzer learns from the paths that its inputs take through the library.
  target_compile_options(quomi_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

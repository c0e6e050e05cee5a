# Two INTERFACE targets carry what the targets of this project are compiled with: quomi_options the shipped code,
# quomi_test_options the tests.
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

add_library(quomi_warnings INTERFACE)
target_compile_options(quomi_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<BOOL:${PROJECT_IS_TOP_LEVEL}>:-Werror>)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # g++ 12 warns of overlapping copies inside std::string's operator+ where there are none (GCC bug 105329).
  target_compile_options(quomi_warnings INTERFACE -Wno-restrict)
endif()

if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # A class with a member of a local type is no class of a header, though it is not in the file that is compiled.
  target_compile_options(quomi_warnings INTERFACE -Wno-subobject-linkage)
endif()

find_program(QUOMI_MOLD mold)
if(QUOMI_MOLD)
  target_link_options(quomi_warnings INTERFACE -fuse-ld=mold)
endif()

add_library(quomi_options INTERFACE)
target_link_libraries(quomi_options INTERFACE quomi_warnings)
if(QUOMI_SANITIZE)
  target_compile_options(quomi_options INTERFACE
    -fsanitize=${QUOMI_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(quomi_options INTERFACE -fsanitize=${QUOMI_SANITIZE})
endif()

if(QUOMI_BUILD_FUZZERS)
  # A fuzzer learns from the paths that its inputs take through the library.
  target_compile_options(quomi_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# What is sanitized is the shipped code: instrumenting the tests as well triples the time that they take to compile. The
# thread sanitizer alone must see all code, or it takes what it has not seen for a race.
add_library(quomi_test_options INTERFACE)
if(QUOMI_SANITIZE MATCHES "thread")
  target_link_libraries(quomi_test_options INTERFACE quomi_options)
else()
  target_link_libraries(quomi_test_options INTERFACE quomi_warnings)
  if(QUOMI_SANITIZE)
    target_link_options(quomi_test_options INTERFACE -fsanitize=${QUOMI_SANITIZE})
  endif()
endif()

# Compiles the target's sources a folder at a time, which halves the time of a build from nothing, where
# CMAKE_UNITY_BUILD is on: names that are local to a file are therefore unique in its folder.
function(quomi_unite_folders target)
  get_target_property(sources ${target} SOURCES)
  foreach(source ${sources})
    cmake_path(ABSOLUTE_PATH source)
    cmake_path(GET source PARENT_PATH folder)
    cmake_path(GET folder FILENAME group)
    set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${group})
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD_MODE GROUP)
endfunction()

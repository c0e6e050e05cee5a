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
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)

find_program(QUOMI_MOLD mold)
if(QUOMI_MOLD)
  target_link_options(quomi_options INTERFACE -fuse-ld=mold)
endif()

if(QUOMI_SANITIZE)
  target_compile_options(quomi_options INTERFACE
    -fsanitize=${QUOMI_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(quomi_options INTERFACE -fsanitize=${QUOMI_SANITIZE})
endif()

# What `cmake --install` installs: component `quomi`, the shared library with the headers that quomi/quomi.h reaches;
# component `posix`, the parts of a POSIX host; component `simulated`, the phone made of data, which needs both. All are
# found by find_package(quomi), the library by pkg-config too.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/quomi-${PROJECT_VERSION_MAJOR})
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/quomi)

# Appends the header and all of this project that it includes to a list.
function(quomi_collect_headers result header)
  set(found ${${result}})
  if(NOT header IN_LIST found)
    list(APPEND found ${header})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
    file(STRINGS ${PROJECT_SOURCE_DIR}/${header} lines REGEX "^#include \"")
    foreach(line IN LISTS lines)
      string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" included "${line}")
      quomi_collect_headers(found ${included})
    endforeach()
  endif()
  set(${result} ${found} PARENT_SCOPE)
endfunction()

# Installs headers under their paths from the project's root.
function(quomi_install_headers component)
  foreach(header IN LISTS ARGN)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${headers}/${folder} COMPONENT ${component})
  endforeach()
endfunction()

set(public_headers)
quomi_collect_headers(public_headers quomi/quomi.h)
set(posix_headers hosts/posix/clock.h hosts/posix/console.h hosts/posix/defaults.h hosts/posix/files.h hosts/posix/run_loop.h)
set(simulated_headers)
foreach(header simulated_phone scripted_transport world_radio packet_file)
  quomi_collect_headers(simulated_headers hosts/simulated/${header}.h)
endforeach()
list(REMOVE_ITEM simulated_headers ${public_headers} ${posix_headers})
quomi_install_headers(quomi ${public_headers})
quomi_install_headers(posix ${posix_headers})
quomi_install_headers(simulated ${simulated_headers})

install(TARGETS quomi_shared EXPORT quomi-targets COMPONENT quomi INCLUDES DESTINATION ${headers})
install(EXPORT quomi-targets NAMESPACE quomi:: DESTINATION ${package} COMPONENT quomi)
foreach(host posix simulated)
  install(TARGETS quomi_${host} EXPORT quomi-${host}-targets COMPONENT ${host})
  install(EXPORT quomi-${host}-targets NAMESPACE quomi:: DESTINATION ${package} COMPONENT ${host})
  set_target_properties(quomi_${host} PROPERTIES EXPORT_NAME ${host})
endforeach()
target_compile_features(quomi_shared PUBLIC cxx_std_20)

configure_package_config_file(cmake/quomi-config.cmake.in quomi-config.cmake INSTALL_DESTINATION ${package})
write_basic_package_version_file(quomi-config-version.cmake COMPATIBILITY SameMinorVersion)
file(RELATIVE_PATH QUOMI_PREFIX_FROM_PKGCONFIG /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/quomi.pc.in quomi.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quomi-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/quomi-config-version.cmake
  DESTINATION ${package} COMPONENT quomi)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quomi.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT quomi)

# What `cmake --install` lays out: libraries, headers, the CMake package `kwtsdk`, pkg-config files and tools; by the
# packages of packaging/ that they are part of, as components.
include(CMakePackageConfigHelpers)

set(KWTSDK_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kwtsdk)
set(KWTSDK_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(PC_PREFIX ${CMAKE_INSTALL_PREFIX})
if(NOT IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  # Relative to the .pc file, so that the tree can be installed with another prefix or moved.
  file(RELATIVE_PATH PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  cmake_path(SET PC_PREFIX NORMALIZE ${PC_PREFIX}.)
  set(PC_PREFIX "\${pcfiledir}/${PC_PREFIX}")
endif()
foreach(directory LIBDIR INCLUDEDIR)
  set(PC_${directory} "\${prefix}")
  cmake_path(APPEND PC_${directory} ${CMAKE_INSTALL_${directory}}) # as it is when absolute
endforeach()

# Installs the library `target` with the headers directly in each of `header_dirs`, as kwtsdk::<export_name>, and a
# pkg-config file of the library's name. After `requires` come the packages and flags that only a static library asks
# for.
function(kwtsdk_install_library target export_name header_dirs description requires)
  list(TRANSFORM header_dirs REPLACE "(.+)" "${PROJECT_SOURCE_DIR}/include/\\1/*.h")
  file(GLOB headers CONFIGURE_DEPENDS ${header_dirs})
  target_sources(${target} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}/include FILES ${headers})
  # Before 1.0 a minor release may break the binary interface.
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${export_name} VERSION ${PROJECT_VERSION}
                                             SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  install(
    TARGETS ${target}
    EXPORT kwtsdkTargets
    LIBRARY COMPONENT libkwtsdk0 NAMELINK_COMPONENT libkwtsdk-dev
    ARCHIVE COMPONENT libkwtsdk-dev
    FILE_SET HEADERS COMPONENT libkwtsdk-dev
  )

  set(PC_NAME ${target})
  set(PC_DESCRIPTION ${description})
  set(PC_REQUIRES ${requires})
  set(PC_PRIVATE "")
  if(NOT BUILD_SHARED_LIBS)  # pkg-config asks for these packages even when it does not use them
    set(PC_PRIVATE "Requires.private: ${ARGV5}\nLibs.private: -pthread ${ARGV6}\n")
  endif()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/kwtsdk.pc.in ${PROJECT_BINARY_DIR}/${target}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${target}.pc DESTINATION ${KWTSDK_PKGCONFIG_DIR}
          COMPONENT libkwtsdk-dev)
endfunction()

kwtsdk_install_library(kwtsdk kwtsdk "kwtsdk;kwtsdk/gatt;kwtsdk/session" "${PROJECT_DESCRIPTION}" "")
if(TARGET kwtsdk_sim)
  kwtsdk_install_library(kwtsdk_sim sim kwtsdk/sim "Simulated voice recorder for tests of kwtsdk hosts" "kwtsdk")
endif()
if(TARGET kwtsdk_sim_sound)
  install(TARGETS kwtsdk_sim_sound LIBRARY COMPONENT libkwtsdk0 NAMELINK_SKIP)
endif()

if(TARGET kwtsdk_bluez)
  kwtsdk_install_library(kwtsdk_bluez bluez kwtsdk/bluez "BlueZ adapter for kwtsdk hosts" "kwtsdk" "sdbus-c++ libsystemd")
endif()
if(TARGET kwtsdk_opus)
  kwtsdk_install_library(kwtsdk_opus opus kwtsdk/opus "Opus conversion for kwtsdk hosts" "kwtsdk" "ogg opus"
                         "-lmp3lame")
  if(NOT BUILD_SHARED_LIBS)
    install(FILES cmake/kwtsdkOpusCodecs.cmake DESTINATION ${KWTSDK_PACKAGE_DIR} COMPONENT libkwtsdk-dev)
  endif()
endif()

install(EXPORT kwtsdkTargets NAMESPACE kwtsdk:: DESTINATION ${KWTSDK_PACKAGE_DIR} COMPONENT libkwtsdk-dev)
configure_package_config_file(cmake/kwtsdkConfig.cmake.in ${PROJECT_BINARY_DIR}/kwtsdkConfig.cmake
                              INSTALL_DESTINATION ${KWTSDK_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kwtsdkConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kwtsdkConfig.cmake ${PROJECT_BINARY_DIR}/kwtsdkConfigVersion.cmake
        DESTINATION ${KWTSDK_PACKAGE_DIR} COMPONENT libkwtsdk-dev)

file(RELATIVE_PATH to_libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
foreach(tool kwt kwt-recorder)
  if(TARGET ${tool})
    set_target_properties(${tool} PROPERTIES INSTALL_RPATH $ORIGIN/${to_libraries})
    install(TARGETS ${tool} RUNTIME COMPONENT ${tool})
  endif()
endforeach()

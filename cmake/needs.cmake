# What the options that are ON need. One that cannot be met stops the configuration: a part that is left out quietly
# would be missed later.

# `found`: variables that are all true when it is there.
function(kwtsdk_need option what packages)
  foreach(found ${ARGN})
    if(NOT ${found})
      message(FATAL_ERROR "${option} is ON, and ${what} was not found: install ${packages}, or set ${option} to OFF.")
    endif()
  endforeach()
endfunction()

function(kwtsdk_need_options option)
  foreach(needed ${ARGN})
    if(NOT ${needed})
      message(FATAL_ERROR "${option} needs ${needed}: set that to ON as well, or ${option} to OFF.")
    endif()
  endforeach()
endfunction()

find_package(Threads REQUIRED)

if(KWTSDK_BUILD_OPUS)
  include(${PROJECT_SOURCE_DIR}/cmake/kwtsdkOpusCodecs.cmake)
  kwtsdk_need(KWTSDK_BUILD_OPUS "libogg, libopus or LAME" "pkg-config libogg-dev libopus-dev libmp3lame-dev"
              KWTSDK_OGG_OPUS_FOUND KWTSDK_LAME_INCLUDE_DIR KWTSDK_LAME_LIBRARY)
endif()
if(KWTSDK_BUILD_BLUEZ)
  find_package(sdbus-c++ QUIET)
  find_library(KWTSDK_SYSTEMD_LIBRARY systemd)
  find_path(KWTSDK_SYSTEMD_INCLUDE_DIR systemd/sd-bus.h)
  kwtsdk_need(KWTSDK_BUILD_BLUEZ "sdbus-c++ or libsystemd" "libsdbus-c++-dev libsystemd-dev" sdbus-c++_FOUND
              KWTSDK_SYSTEMD_LIBRARY KWTSDK_SYSTEMD_INCLUDE_DIR)
endif()

# Sample recordings and microphones, for the tools and for tests: they need an Opus encoder, the simulated recorder does
# not.
if(KWTSDK_BUILD_SIM)
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(OPUS_SAMPLES QUIET IMPORTED_TARGET GLOBAL libopusenc opus)
  endif()
endif()
if(KWTSDK_BUILD_TOOLS)
  kwtsdk_need_options(KWTSDK_BUILD_TOOLS KWTSDK_BUILD_SIM KWTSDK_BUILD_OPUS KWTSDK_BUILD_BLUEZ)
  find_package(CLI11 QUIET)
  find_package(nlohmann_json QUIET)
  find_package(Python3 QUIET COMPONENTS Interpreter)
  kwtsdk_need(KWTSDK_BUILD_TOOLS "CLI11, nlohmann-json, libopusenc or Python"
              "libcli11-dev nlohmann-json3-dev libopusenc-dev libopus-dev pkg-config python3" CLI11_FOUND
              nlohmann_json_FOUND OPUS_SAMPLES_FOUND Python3_FOUND)
endif()
if(BUILD_TESTING)
  kwtsdk_need_options(BUILD_TESTING KWTSDK_BUILD_SIM)
  find_package(GTest QUIET)
  find_package(Python3 QUIET COMPONENTS Interpreter)
  kwtsdk_need(BUILD_TESTING "GoogleTest or Python" "libgtest-dev python3" GTest_FOUND Python3_FOUND)
endif()
if(KWTSDK_BUILD_FUZZERS)
  kwtsdk_need_options(KWTSDK_BUILD_FUZZERS BUILD_TESTING KWTSDK_BUILD_OPUS KWTSDK_BUILD_BLUEZ)
  kwtsdk_need(KWTSDK_BUILD_FUZZERS libopusenc "libopusenc-dev libopus-dev pkg-config" OPUS_SAMPLES_FOUND)
endif()
if(KWTSDK_BUILD_BENCHMARKS)
  kwtsdk_need_options(KWTSDK_BUILD_BENCHMARKS KWTSDK_BUILD_SIM)
  find_package(benchmark QUIET)
  find_package(ZLIB QUIET)  # the yardstick of the CRC
  kwtsdk_need(KWTSDK_BUILD_BENCHMARKS "Google Benchmark or zlib" "libbenchmark-dev zlib1g-dev" benchmark_FOUND ZLIB_FOUND)
endif()
if(KWTSDK_BUILD_DOCS)
  find_package(Doxygen QUIET)
  kwtsdk_need(KWTSDK_BUILD_DOCS Doxygen doxygen DOXYGEN_FOUND)
endif()

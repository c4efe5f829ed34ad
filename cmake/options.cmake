# Settings that every target of the project shares.
get_property(multi_config GLOBAL PROPERTY GENERATOR_IS_MULTI_CONFIG)
if(PROJECT_IS_TOP_LEVEL AND NOT multi_config AND NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Kind of build" FORCE)
endif()
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_library(kwtsdk_options INTERFACE)
target_compile_options(kwtsdk_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                                                $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
if(KWTSDK_WARNINGS_AS_ERRORS)
  target_compile_options(kwtsdk_options INTERFACE -Werror)
endif()
target_include_directories(kwtsdk_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)

# The loader looks there anyway, and Debian's packages must not say so again.
if(CMAKE_INSTALL_PREFIX STREQUAL /usr)
  set(CMAKE_SKIP_INSTALL_RPATH ON)
endif()

# Off where a missing #include has to be noticed.
option(KWTSDK_PRECOMPILE_HEADERS "Precompile the standard headers, for faster builds" OFF)
if(KWTSDK_PRECOMPILE_HEADERS)
  target_precompile_headers(kwtsdk_options INTERFACE <algorithm> <chrono> <filesystem> <functional> <map> <memory> <mutex>
                            <optional> <string> <unordered_map> <variant> <vector>)
endif()

# One room of the library: an object library, so that the library, the simulated recorder and tests of internals can
# take the same objects.
function(kwtsdk_add_room name)
  add_library(kwtsdk_${name} OBJECT ${ARGN})
  target_link_libraries(kwtsdk_${name} PRIVATE kwtsdk_options)
  if(KWTSDK_PRECOMPILE_HEADERS AND NOT name STREQUAL codec)
    target_precompile_headers(kwtsdk_${name} REUSE_FROM kwtsdk_codec) # rooms are compiled alike, codec comes first
  endif()
endfunction()

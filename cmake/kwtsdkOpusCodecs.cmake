# The libraries that kwtsdk_opus stands on, as the target kwtsdk_opus_codecs; without one of them there is no such
# target. Installed, for programs that link the static library.
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(KWTSDK_OGG_OPUS QUIET IMPORTED_TARGET GLOBAL ogg opus)
endif()
# LAME brings no pkg-config file everywhere.
find_path(KWTSDK_LAME_INCLUDE_DIR lame/lame.h)
find_library(KWTSDK_LAME_LIBRARY mp3lame)
mark_as_advanced(KWTSDK_LAME_INCLUDE_DIR KWTSDK_LAME_LIBRARY)

if(KWTSDK_OGG_OPUS_FOUND AND KWTSDK_LAME_INCLUDE_DIR AND KWTSDK_LAME_LIBRARY AND NOT TARGET kwtsdk_opus_codecs)
  add_library(kwtsdk_opus_codecs INTERFACE IMPORTED GLOBAL)
  target_include_directories(kwtsdk_opus_codecs INTERFACE ${KWTSDK_LAME_INCLUDE_DIR})
  target_link_libraries(kwtsdk_opus_codecs INTERFACE PkgConfig::KWTSDK_OGG_OPUS ${KWTSDK_LAME_LIBRARY})
endif()

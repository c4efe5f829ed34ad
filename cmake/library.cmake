# The library itself: every room's objects in one shared or static library.
set(KWTSDK_ROOMS codec wire channel status filestore recording update facade session platform)
list(TRANSFORM KWTSDK_ROOMS REPLACE "(.+)" "$<TARGET_OBJECTS:kwtsdk_\\1>" OUTPUT_VARIABLE KWTSDK_OBJECTS)

add_library(kwtsdk ${KWTSDK_OBJECTS})
add_library(kwtsdk::kwtsdk ALIAS kwtsdk)
set_target_properties(kwtsdk PROPERTIES LINKER_LANGUAGE CXX)
target_compile_features(kwtsdk PUBLIC cxx_std_20)
target_include_directories(kwtsdk PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                         $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(kwtsdk PRIVATE Threads::Threads ${CMAKE_DL_LIBS})
# Where the library looks for its Opus converter.
set_target_properties(kwtsdk PROPERTIES INSTALL_RPATH $ORIGIN BUILD_RPATH $ORIGIN)

# The same objects for tests of internals, which a library with hidden symbols does not let through.
add_library(kwtsdk_internals INTERFACE)
target_link_libraries(kwtsdk_internals INTERFACE kwtsdk_options Threads::Threads)
target_sources(kwtsdk_internals INTERFACE ${KWTSDK_OBJECTS})

# The packages libkwtsdk0, libkwtsdk-dev, kwt and kwt-recorder. What they depend on is read from their programs and
# libraries; here stands only what no program says.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kwtsdk)
set(CPACK_PACKAGE_CONTACT "the kwtsdk maintainers <maintainers@kwtsdk.example.org>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                                WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL libkwtsdk0 libkwtsdk-dev kwt kwt-recorder)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/sim)

# Between the packages, where before 1.0 any release may break the binary interface.
set(library "libkwtsdk0 (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_LIBKWTSDK-DEV_PACKAGE_DEPENDS ${library})
set(CPACK_DEBIAN_KWT_PACKAGE_DEPENDS ${library})
set(CPACK_DEBIAN_KWT-RECORDER_PACKAGE_DEPENDS ${library})
set(CPACK_DEBIAN_KWT_PACKAGE_RECOMMENDS bluez)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/shlibs "")
foreach(name kwtsdk kwtsdk_bluez kwtsdk_opus kwtsdk_sim kwtsdk_sim_sound)
  file(APPEND ${CMAKE_CURRENT_BINARY_DIR}/shlibs
       "lib${name} ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR} ${library}\n")
endforeach()
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBKWTSDK0_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/shlibs
                                                  ${CMAKE_CURRENT_BINARY_DIR}/triggers)

# Section and description of a package.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each has its own
function(kwtsdk_describe component section summary text)
  string(TOUPPER ${component} name)
  set(CPACK_DEBIAN_${name}_PACKAGE_NAME ${component} PARENT_SCOPE)
  set(CPACK_DEBIAN_${name}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${name}_DESCRIPTION "${summary}\n${text}" PARENT_SCOPE)
endfunction()
set(common "The recorder keeps recordings, records live and takes\nnew firmware over Bluetooth Low Energy.")
kwtsdk_describe(libkwtsdk0 libs "library that operates a portable voice recorder"
                "${common}\nThis package has the library, its adapter for BlueZ, its Opus converter\nand the simulated recorder.")
kwtsdk_describe(libkwtsdk-dev libdevel "library that operates a portable voice recorder - development files"
                "${common}\nThis package has headers, CMake package, pkg-config files and\ndocumentation.")
kwtsdk_describe(kwt sound "operate a portable voice recorder from the command line"
                "${common}\nThis package has kwt, which downloads, records, converts and updates.")
kwtsdk_describe(kwt-recorder sound "simulated voice recorder on a Bluetooth controller"
                "${common}\nThis package has kwt-recorder, which serves a folder as such a recorder,\nfor tests of hosts.")

# Debian wants these in each package. With SOURCE_DATE_EPOCH in the environment the date is always the same.
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(changelog.in changelog.Debian @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog COPYONLY)
execute_process(COMMAND gzip -9nkf changelog changelog.Debian WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
                COMMAND_ERROR_IS_FATAL ANY)
foreach(component ${CPACK_COMPONENTS_ALL})
  install(
    FILES copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${component}
    COMPONENT ${component}
  )
endforeach()
include(CPack)

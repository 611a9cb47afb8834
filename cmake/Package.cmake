# `cpack` makes two Debian packages of the installation, of which the second is the viewer alone. Configure with a prefix of /usr, so that libraries go where Debian has
# them; .ci/install does it all.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME oxbeam)
set(CPACK_PACKAGE_VENDOR "Oxbeam")
set(CPACK_PACKAGE_CONTACT "Oxbeam <oxbeam@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "real-time ray tracing: command, engine and shading objects")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Renders scenes and models with packages of shading objects: the command oxbeam,
the package Kel, the engine as a library for programs that embed it, and what
it takes to write shading objects against it.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/install)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Unspecified view)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_NAME oxbeam)
set(CPACK_DEBIAN_VIEW_PACKAGE_NAME oxbeam-view)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
# Libraries are found out from the programs; the font that pictures on a sheet are labelled in is opened by its name.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib ${CMAKE_BINARY_DIR}/bin/packages)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_DEPENDS fonts-dejavu-core)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_RECOMMENDS oxbeam-view)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_SUGGESTS "cmake, g++, pkg-config")
set(CPACK_DEBIAN_VIEW_PACKAGE_DEPENDS "oxbeam (= ${PROJECT_VERSION}), fonts-dejavu-core")
set(CPACK_DEBIAN_VIEW_DESCRIPTION
"Looks at scenes and models in a window, and changes them: the program that
oxbeam view becomes.")
# What dpkg has to know of a library that others link: from which version on it is this one, and that there is a new one.
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/install/debian/shlibs
     CONTENT "liboxbeam ${OXBEAM_SOVERSION} oxbeam (>= ${PROJECT_VERSION})\n")
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/install/debian/triggers CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/install/debian/shlibs
                                                  ${CMAKE_BINARY_DIR}/install/debian/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)

# `cpack` makes Debian packages of the installation: the viewer and the Python module have their own. Configure with a prefix
# of /usr, so that libraries go where Debian has them; .ci/install does it all.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME oxbeam)
set(CPACK_PACKAGE_VENDOR "Oxbeam")
set(CPACK_PACKAGE_CONTACT "Oxbeam <oxbeam@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/install)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
# Libraries are found out from the programs; the font that pictures on a sheet are labelled in is opened by its name.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib ${CMAKE_BINARY_DIR}/bin/packages)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL oxbeam view)

set(CPACK_DEBIAN_OXBEAM_PACKAGE_NAME oxbeam)
set(CPACK_DEBIAN_OXBEAM_DESCRIPTION
"real-time ray tracing: command, engine and shading objects
Renders scenes and models with packages of shading objects: the command oxbeam,
the package Kel, the engine as a library for programs that embed it, and what
it takes to write shading objects against it.")
set(CPACK_DEBIAN_OXBEAM_PACKAGE_DEPENDS fonts-dejavu-core)
set(CPACK_DEBIAN_OXBEAM_PACKAGE_RECOMMENDS oxbeam-view)
set(CPACK_DEBIAN_OXBEAM_PACKAGE_SUGGESTS "cmake, ffmpeg, g++, pkg-config, python3-oxbeam")
# What dpkg has to know of a library that others link: from which version on it is this one, and that there is a new one.
set(control ${CMAKE_BINARY_DIR}/install/debian)
file(CONFIGURE OUTPUT ${control}/shlibs
     CONTENT "liboxbeam ${OXBEAM_SOVERSION} oxbeam (>= ${PROJECT_VERSION})\n")
file(CONFIGURE OUTPUT ${control}/triggers CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_OXBEAM_PACKAGE_CONTROL_EXTRA ${control}/shlibs ${control}/triggers)

set(CPACK_DEBIAN_VIEW_PACKAGE_NAME oxbeam-view)
set(CPACK_DEBIAN_VIEW_DESCRIPTION
"real-time ray tracing: the viewer
Looks at scenes and models in a window, and changes them: the program that
oxbeam view becomes.")
set(CPACK_DEBIAN_VIEW_PACKAGE_DEPENDS "oxbeam (= ${PROJECT_VERSION}), fonts-dejavu-core")

if(OXBEAM_PYTHON)
  list(APPEND CPACK_COMPONENTS_ALL python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-oxbeam)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_DESCRIPTION
"real-time ray tracing: the engine from Python
Loads scenes, changes them by name, renders them into arrays of NumPy, adds
meshes from arrays and tells where arrays of rays hit: for notebooks, pipelines
and tests.")
  # What was compiled is for one version of Python and of the engine.
  math(EXPR next "${Python_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "oxbeam (= ${PROJECT_VERSION}), python3-numpy, \
python3 (>= ${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}~), python3 (<< ${Python_VERSION_MAJOR}.${next})")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-matplotlib, python3-tqdm")
  # What Python makes of the files goes with them.
  file(CONFIGURE OUTPUT ${control}/python/postinst CONTENT "#!/bin/sh\nset -e\npy3compile -p python3-oxbeam\n")
  file(CONFIGURE OUTPUT ${control}/python/prerm CONTENT "#!/bin/sh\nset -e\npy3clean -p python3-oxbeam\n")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${control}/python/postinst ${control}/python/prerm)
endif()
include(CPack)

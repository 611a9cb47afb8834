# What an installation holds, and what other projects find in it (cmake/OxbeamConfig.cmake.in).
#
# Everything but the command, headers and shared data stands beside the library and in `oxbeam/` beside it, so that it is
# found from the library wherever the installation is moved to, and however deep the system's library folder lies.
include(CMakePackageConfigHelpers)

# Versions before 1.0 keep the interface within a minor version only: it is inlined into packages, down to the layout of
# its records. So the minor version is a part of what the libraries are called, two of them can be installed side by
# side, and what was built against another one is not loaded.
set(OXBEAM_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set_target_properties(oxbeam Kel PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${OXBEAM_SOVERSION})

set(OXBEAM_INSTALL_PRIVATE ${CMAKE_INSTALL_LIBDIR}/oxbeam)
set(OXBEAM_INSTALL_PACKAGES ${OXBEAM_INSTALL_PRIVATE}/packages)
set(OXBEAM_INSTALL_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/oxbeam)
set(OXBEAM_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/Oxbeam)

# As in the build tree, and as installed.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR} OUTPUT_VARIABLE libraries)
set(run_path "$ORIGIN/../lib" "$ORIGIN/${libraries}")
list(REMOVE_DUPLICATES run_path)
set_target_properties(oxbeam_command oxbeam_view PROPERTIES INSTALL_RPATH "${run_path}")

install(TARGETS oxbeam LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS Kel LIBRARY DESTINATION ${OXBEAM_INSTALL_PACKAGES})
install(TARGETS oxbeam_pictures LIBRARY DESTINATION ${OXBEAM_INSTALL_PRIVATE})
install(TARGETS oxbeam_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# A Debian package of its own, since it needs a window system.
install(TARGETS oxbeam_view RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT view)
install(TARGETS oxbeam_import oxbeam_decode RUNTIME DESTINATION ${OXBEAM_INSTALL_PRIVATE})

# ---- Headers

# The interface, the part of Kel that others may build on, and of the engine what offers something to programs that embed it,
# with all that this includes.
foreach(room include/Primitives Kernel Sampling Oxbeam)
  install(DIRECTORY ${room} DESTINATION ${OXBEAM_INSTALL_HEADERS} FILES_MATCHING PATTERN "*.h")
endforeach()
foreach(header Kel KelFunctions KelLight KelRenderingObject KelShader)
  install(FILES Shaders/Kel/${header}.h DESTINATION ${OXBEAM_INSTALL_HEADERS}/Shaders/Kel)
endforeach()

function(oxbeam_offered_headers result)
  file(GLOB_RECURSE all RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS Engine/*.h)
  foreach(header ${all})
    file(STRINGS ${header} marks REGEX "OXBEAM_API")
    if(marks)
      list(APPEND pending ${header})
    endif()
  endforeach()
  while(pending)
    list(POP_FRONT pending header)
    list(APPEND known ${header})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
    file(STRINGS ${header} lines REGEX "^#include \"Engine/")
    foreach(line ${lines})
      string(REGEX REPLACE "^#include \"(.*)\".*" "\\1" included "${line}")
      if(NOT included IN_LIST known AND NOT included IN_LIST pending)
        list(APPEND pending ${included})
      endif()
    endforeach()
  endwhile()
  set(${result} ${known} PARENT_SCOPE)
endfunction()
oxbeam_offered_headers(engine_headers)
foreach(header ${engine_headers})
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${header} DESTINATION ${OXBEAM_INSTALL_HEADERS}/${folder})
endforeach()

# ---- For other projects

configure_package_config_file(cmake/OxbeamConfig.cmake.in ${CMAKE_BINARY_DIR}/install/OxbeamConfig.cmake
  INSTALL_DESTINATION ${OXBEAM_INSTALL_CMAKE}
  PATH_VARS CMAKE_INSTALL_BINDIR CMAKE_INSTALL_LIBDIR OXBEAM_INSTALL_PACKAGES OXBEAM_INSTALL_HEADERS)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/install/OxbeamConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/install/OxbeamConfig.cmake ${CMAKE_BINARY_DIR}/install/OxbeamConfigVersion.cmake
              cmake/OxbeamAddPackage.cmake
        DESTINATION ${OXBEAM_INSTALL_CMAKE})

cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
           OUTPUT_VARIABLE OXBEAM_PREFIX_FROM_PKGCONFIG)
foreach(file oxbeam oxbeam-kel)
  configure_file(cmake/${file}.pc.in ${CMAKE_BINARY_DIR}/install/${file}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/install/${file}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

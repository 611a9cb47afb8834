# oxbeam_add_package(NAME sources...) makes a package of shading objects, lib<NAME>.so, in `packages` beside the programs
# of the build tree, where the host looks first; `oxbeam --package-path` takes that folder too.
function(oxbeam_add_package name)
  add_library(${name} MODULE ${ARGN})
  target_link_libraries(${name} PRIVATE Oxbeam::package)
  # Statics that are unique in a process would tie packages together which hold the same template; a symbol that nobody
  # offers is found when the package is built, not when it is loaded.
  target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
  target_link_options(${name} PRIVATE -Wl,--no-undefined)
  set(programs ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
  if(NOT programs)
    set(programs ${CMAKE_BINARY_DIR})
  endif()
  # Another package that it links is found beside it where both are installed, and in the installation where not. One run
  # path for both: CMake would pad the build tree's with an empty entry, which is whatever folder the host is called from.
  set_target_properties(${name} PROPERTIES
    PREFIX lib
    SUFFIX .so
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    LIBRARY_OUTPUT_DIRECTORY ${programs}/packages
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH $ORIGIN
    INSTALL_RPATH_USE_LINK_PATH ON)
endfunction()

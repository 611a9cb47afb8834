# Each folder of the source tree is a room with an include directory of its own, in which nothing but that room can be
# seen. A target's include directories are thus exactly the rooms that it may know, and breaking a rule does not
# compile.
function(oxbeam_room target folder)
  set(view ${CMAKE_BINARY_DIR}/rooms/${folder})
  file(MAKE_DIRECTORY ${view})
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${view}/${folder} SYMBOLIC)
  add_library(${target} INTERFACE)
  target_include_directories(${target} INTERFACE ${view})
  target_link_libraries(${target} INTERFACE ${ARGN})
endfunction()

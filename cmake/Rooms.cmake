# Each folder of the source tree is a room with an include directory of its own, in which nothing but that room can be
# seen. A target's include directories are thus exactly the rooms that it may know, and breaking a rule does not
# compile. A room knows only rooms that are there before it, so that all of them have one order.
function(oxbeam_room target folder)
  oxbeam_require_rooms(${folder} ${ARGN})
  set(view ${CMAKE_BINARY_DIR}/rooms/${folder})
  cmake_path(GET folder PARENT_PATH parent)
  file(MAKE_DIRECTORY ${view}/${parent})
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${view}/${folder} SYMBOLIC)
  add_library(${target} INTERFACE)
  target_include_directories(${target} INTERFACE ${view})
  target_link_libraries(${target} INTERFACE ${ARGN})
endfunction()

# Rooms that do not exist yet would be taken for libraries of the system.
function(oxbeam_require_rooms folder)
  foreach(room ${ARGN})
    if(NOT TARGET ${room})
      message(FATAL_ERROR "${folder} may not know ${room}, which is not below it")
    endif()
  endforeach()
endfunction()

# A room of the engine, compiled with what it may know: `HEADERS_KNOW` is what its headers speak of, which whoever knows
# the room knows too; `SOURCES_KNOW` what its sources use beside that, rooms below it and libraries of others. Headers
# alone are `ox_<name>`, in small letters; what is compiled is `ox_<name>_objects`.
function(oxbeam_engine_room name)
  cmake_parse_arguments(PARSE_ARGV 1 room "" "" "HEADERS_KNOW;SOURCES_KNOW;SOURCES")
  string(TOLOWER ox_${name} target)
  oxbeam_room(${target} Engine/${name} ox_interface ox_sampling ${room_HEADERS_KNOW})
  oxbeam_require_rooms(Engine/${name} ${room_SOURCES_KNOW})
  list(TRANSFORM room_SOURCES PREPEND ${name}/)
  add_library(${target}_objects OBJECT ${room_SOURCES})
  target_link_libraries(${target}_objects PRIVATE ${target} ${room_SOURCES_KNOW})
  target_compile_definitions(${target}_objects PRIVATE OXBEAM_BUILDING)
  if(OXBEAM_PLAIN_THREADS)
    target_compile_definitions(${target}_objects PRIVATE OXBEAM_PLAIN_THREADS)
  endif()
  oxbeam_optimize(${target}_objects)
  set_property(GLOBAL APPEND PROPERTY OXBEAM_ENGINE_ROOMS ${target})
endfunction()

# No third-party header reaches the interface or the package: a system header that they include is one of the standard
# library's (no folder, no ending) or the compiler's vector intrinsics. What the rooms may know of each other is
# enforced by their include directories.
cmake_minimum_required(VERSION 3.25)

set(allowed xmmintrin.h)
foreach(room include Kernel Sampling Oxbeam Shaders)
  file(GLOB_RECURSE files ${ROOT}/${room}/*.h ${ROOT}/${room}/*.cpp)
  foreach(file ${files})
    file(STRINGS ${file} lines REGEX "^[ \t]*#[ \t]*include[ \t]*<")
    foreach(line ${lines})
      string(REGEX REPLACE ".*<(.*)>.*" "\\1" header ${line})
      if(header MATCHES "[./]" AND NOT header IN_LIST allowed)
        message(SEND_ERROR "${file} includes <${header}>")
      endif()
    endforeach()
  endforeach()
endforeach()

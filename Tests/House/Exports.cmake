# The package exports its objects' pairs and the ray services, nothing else, and needs nothing but the host, the C and
# C++ runtimes and the maths library.
cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${NM} -DC --defined-only ${KEL} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" symbols "${symbols}")
foreach(symbol ${symbols})
  if(NOT symbol MATCHES "^[0-9a-f]+ [TW] (New[A-Za-z]+LoadableObject|Register_[A-Za-z]+_LoadableObject|(kel|oxs)[A-Z4][A-Za-z0-9]*\\(.*\\))$")
    message(SEND_ERROR "${KEL} exports ${symbol}")
  endif()
endforeach()
foreach(object Kel KelAlphaILS KelAmbientOcclusion KelCarPaint KelCubicEnvironment KelDOFCamera KelDbgObjectID KelDiffuse
        KelDirectionalLight KelEnvMapLight KelEnvironment KelFresnelPhong KelGlass KelPhong KelPhongEyeLight KelPointLight
        KelSpotLight KelWallThickness)
  if(NOT symbols MATCHES "New${object}LoadableObject;" OR NOT symbols MATCHES "Register_${object}_LoadableObject;")
    message(SEND_ERROR "${KEL} does not export the pair of ${object}")
  endif()
endforeach()

execute_process(COMMAND ${READELF} -d ${KEL} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "Shared library: \\[[^]]*\\]" needed "${dynamic}")
foreach(library ${needed})
  if(NOT library MATCHES "\\[(liboxbeam|libstdc\\+\\+|libm|libgcc_s|libc|libasan|libubsan|libtsan)\\.so")
    message(SEND_ERROR "${KEL} needs ${library}")
  endif()
endforeach()

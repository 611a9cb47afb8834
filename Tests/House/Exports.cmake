# The package exports its objects' pairs, the ray services, those for packets, and the bases that other packages build on,
# nothing else, and needs nothing but the host, the C and C++ runtimes and the maths library.
cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${NM} -DC --defined-only ${KEL} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" symbols "${symbols}")
foreach(symbol ${symbols})
  if(NOT symbol MATCHES "^[0-9a-f]+ [TW] (New[A-Za-z]+LoadableObject|Register_[A-Za-z]+_LoadableObject|(kel|oxs)[A-Z4][A-Za-z0-9]*\\(.*\\))$"
     AND NOT symbol MATCHES "^[0-9a-f]+ [TWVDR] ((vtable|typeinfo|typeinfo name) for )?Kel(Light|Ray|RenderingObject|Shader)(::[^ ]+\\(.*\\)( const)?)?$")
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
foreach(service oxs4Init oxs4LoadGeometry oxs4FindShadingNormal oxsIlluminate4 oxs4GetShader oxsReflect4 oxsGetPrivatePtr4
        oxsSetPrivatePtr4 oxsGetRayOrigin4 oxsSetRayOrigin4 oxsGetRayDirection4 oxsSetRay4 oxsGetHitPosition4
        oxs4ApplyTexture)
  if(NOT symbols MATCHES " ${service}\\(")
    message(SEND_ERROR "${KEL} does not export ${service}")
  endif()
endforeach()

execute_process(COMMAND ${READELF} -d ${KEL} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "Shared library: \\[[^]]*\\]" needed "${dynamic}")
foreach(library ${needed})
  if(NOT library MATCHES "\\[(liboxbeam|libstdc\\+\\+|libm|libgcc_s|libc|libasan|libubsan|libtsan)\\.so")
    message(SEND_ERROR "${KEL} needs ${library}")
  endif()
endforeach()

# What is exported is still called directly within the package, not through the table that the loader fills in.
execute_process(COMMAND ${READELF} -rW ${KEL} OUTPUT_VARIABLE relocations COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "JUMP_SLOT?[ 0-9a-f]+ _ZN?K?[0-9]+(kel|Kel|oxs[A-Za-z]*4)[^\n]*" indirect "${relocations}")
if(NOT relocations MATCHES "JUMP_SLO" OR indirect)
  message(SEND_ERROR "${KEL} calls its own functions through the loader's table: ${indirect}")
endif()

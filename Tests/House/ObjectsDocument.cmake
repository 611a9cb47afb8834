# Docs/objects.md says what the objects say of themselves today.
execute_process(COMMAND ${OXBEAM} describe --format markdown OUTPUT_VARIABLE printed COMMAND_ERROR_IS_FATAL ANY)
file(READ ${ROOT}/Docs/objects.md kept)
if(NOT printed STREQUAL kept)
  message(FATAL_ERROR "Docs/objects.md is not current; bring it up to date with "
                      "`./run describe --format markdown >Docs/objects.md`")
endif()

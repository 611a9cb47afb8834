# What the command says of itself, as files: manual pages, and completions for the shells in Debian's places. A command with
# a sanitizer in it is for nobody to install.
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  return()
endif()
find_program(HELP2MAN help2man REQUIRED)

set(files ${CMAKE_BINARY_DIR}/install)
set(man_pages_made ${files}/man.stamp)
add_custom_command(OUTPUT ${man_pages_made}
  COMMAND ${PROJECT_SOURCE_DIR}/tools/make-man-pages $<TARGET_FILE:oxbeam_command> ${PROJECT_VERSION}
          ${PROJECT_SOURCE_DIR}/Apps/oxbeam/oxbeam.h2m ${files}/man1
  COMMAND ${CMAKE_COMMAND} -E touch ${man_pages_made}
  DEPENDS oxbeam_command oxbeam_view tools/make-man-pages Apps/oxbeam/oxbeam.h2m
  VERBATIM)
install(DIRECTORY ${files}/man1 DESTINATION ${CMAKE_INSTALL_MANDIR} PATTERN oxbeam-view.1.gz EXCLUDE)
install(FILES ${files}/man1/oxbeam-view.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT view)

set(made ${man_pages_made})
function(oxbeam_completion shell folder name)
  set(file ${files}/completion.${shell})
  add_custom_command(OUTPUT ${file}
    COMMAND $<TARGET_FILE:oxbeam_command> completion ${shell} > ${file}
    DEPENDS oxbeam_command
    VERBATIM)
  install(FILES ${file} DESTINATION ${CMAKE_INSTALL_DATADIR}/${folder} RENAME ${name})
  set(made ${made} ${file} PARENT_SCOPE)
endfunction()
oxbeam_completion(bash bash-completion/completions oxbeam)
oxbeam_completion(zsh zsh/vendor-completions _oxbeam)
oxbeam_completion(fish fish/vendor_completions.d oxbeam.fish)

add_custom_target(oxbeam_command_files ALL DEPENDS ${made})

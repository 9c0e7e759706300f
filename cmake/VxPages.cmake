# vx_add_pages(<name> <maker> [SHELLS <shell>...] [DOCUMENT <file>]): the manual page and the
# completions of a program, for bash, zsh and fish, which another one makes: <maker> [DOCUMENT] MANUAL
# COMPLETION... All are installed.
function(vx_add_pages name maker)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "DOCUMENT" "SHELLS")
  # Thread sanitizer needs its own places in memory.
  set(fixed_layout "")
  find_program(VX_SETARCH setarch)
  if(VX_SANITIZE MATCHES thread AND VX_SETARCH)
    set(fixed_layout ${VX_SETARCH} -R)
  endif()
  set(folder_bash bash-completion/completions)
  set(file_bash ${name})
  set(folder_zsh zsh/site-functions)
  set(file_zsh _${name})
  set(folder_fish fish/vendor_completions.d)
  set(file_fish ${name}.fish)
  set(pages ${CMAKE_CURRENT_BINARY_DIR}/${name}.1)
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  foreach(shell ${arg_SHELLS})
    list(APPEND pages ${CMAKE_CURRENT_BINARY_DIR}/${name}.${shell})
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.${shell}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/${folder_${shell}} RENAME ${file_${shell}})
  endforeach()
  add_custom_command(
    OUTPUT ${pages}
    COMMAND ${CMAKE_COMMAND} -E env DBGD_DISABLE=1 ${fixed_layout} $<TARGET_FILE:${maker}>
            ${arg_DOCUMENT} ${pages}
    DEPENDS ${maker} ${arg_DOCUMENT}
    COMMENT "Writing the manual page and the completions of ${name}"
    VERBATIM)
  add_custom_target(${name}_pages ALL DEPENDS ${pages})
endfunction()

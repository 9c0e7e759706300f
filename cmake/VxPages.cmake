# vx_add_pages(<name> <maker>): the manual page and the completion for bash of a program, which another
# one makes: <maker> MANUAL COMPLETION. Both are installed.
function(vx_add_pages name maker)
  # Thread sanitizer needs its own places in memory.
  set(fixed_layout "")
  find_program(VX_SETARCH setarch)
  if(VX_SANITIZE MATCHES thread AND VX_SETARCH)
    set(fixed_layout ${VX_SETARCH} -R)
  endif()
  set(pages ${CMAKE_CURRENT_BINARY_DIR}/${name}.1 ${CMAKE_CURRENT_BINARY_DIR}/${name}.bash)
  add_custom_command(
    OUTPUT ${pages}
    COMMAND ${CMAKE_COMMAND} -E env DBGD_DISABLE=1 ${fixed_layout} $<TARGET_FILE:${maker}> ${pages}
    DEPENDS ${maker}
    COMMENT "Writing the manual page and the completion of ${name}"
    VERBATIM)
  add_custom_target(${name}_pages ALL DEPENDS ${pages})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.bash
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${name})
endfunction()

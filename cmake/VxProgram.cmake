# vx_add_program(<name> <proper>): a program that starts the program proper. The library reads parts
# of its environment while it is being loaded, so that is prepared in a process without the library.
function(vx_add_program name proper)
  set_target_properties(${proper} PROPERTIES INSTALL_RPATH "$ORIGIN/..")
  install(TARGETS ${proper} RUNTIME DESTINATION ${CMAKE_INSTALL_LIBDIR}/vxcamiface)

  add_executable(${name} ${PROJECT_SOURCE_DIR}/tools/vxcam/main.cpp)
  add_dependencies(${name} ${proper})
  file(RELATIVE_PATH to_folder ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR}/vxcamiface)
  target_compile_definitions(
    ${name} PRIVATE VXCAM_NAME="${name}" VXCAM_PROPER="$<TARGET_FILE_NAME:${proper}>"
                    VXCAM_FOLDER="${to_folder}")
  target_link_libraries(${name} PRIVATE vx_flags vx_brief)
  set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN/${to_folder}")
  install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()

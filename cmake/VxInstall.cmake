# What `cmake --install` leaves: library, public headers (flat), pkg-config file and CMake package;
# the programs' own folders install them.
include(CMakePackageConfigHelpers)

# The headers that applications compile against; names that are not listed are private.
set(VX_PUBLIC_HEADERS
    camera/tcVXCamera.h
    camera/vxcamext.h
    camera/vxcamiface.h
    camera/vxcamtypes.h
    camera/vxmessages.h
    libvx/src/circbuff/circbuff.h
    libvx/src/config/StringTokenizer.h
    libvx/src/config/tcConfigFile.h
    libvx/src/config/tcConfiguration.h
    libvx/src/debug/tcDbgItem.h
    libvx/src/debug/tcDbgd.h
    libvx/src/log/tcLog.h
    libvx/src/log/tcLogConsumer.h
    libvx/src/socket/HSocket.h
    libvx/src/vxexport.h
    link/CrcCalc.h
    link/tcCamParser.h
    link/tcDspParserBase.h
    link/tcVXCamera_Ethernet.h)
list(TRANSFORM VX_PUBLIC_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/)

set(_package ${CMAKE_INSTALL_LIBDIR}/cmake/vxcamiface)
file(RELATIVE_PATH vx_pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" vx_pc_to_prefix "${vx_pc_to_prefix}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/vxcamiface.pc.in ${PROJECT_BINARY_DIR}/vxcamiface.pc
               @ONLY)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/vxcamifaceConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vxcamifaceConfig.cmake INSTALL_DESTINATION ${_package})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vxcamifaceConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)

install(TARGETS vxcamiface EXPORT vxcamifaceTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(VX_STATIC)
  install(TARGETS vxcamiface_static EXPORT vxcamifaceTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(FILES ${VX_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vxcamiface)
install(FILES ${PROJECT_BINARY_DIR}/vxcamiface.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(VX_BUILD_KIT)
  configure_file(${PROJECT_SOURCE_DIR}/kit/vxcamkit.pc.in ${PROJECT_BINARY_DIR}/vxcamkit.pc @ONLY)
  install(TARGETS vxcamkit EXPORT vxcamifaceTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES ${VXCAMKIT_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vxcamkit)
  install(FILES ${PROJECT_BINARY_DIR}/vxcamkit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
install(EXPORT vxcamifaceTargets NAMESPACE vxcamiface:: DESTINATION ${_package})
install(FILES ${PROJECT_BINARY_DIR}/vxcamifaceConfig.cmake
              ${PROJECT_BINARY_DIR}/vxcamifaceConfigVersion.cmake DESTINATION ${_package})
file(GLOB _pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md ${PROJECT_SOURCE_DIR}/docs/*.png)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
              ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/SECURITY.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${_pages} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)

# `cmake --build DIR --target uninstall` removes what the last installation from DIR left.
if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(
    uninstall
    COMMAND ${CMAKE_COMMAND} -D manifest=${PROJECT_BINARY_DIR}/install_manifest.txt -P
            ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake
    COMMENT "Removing what was installed"
    VERBATIM)
endif()

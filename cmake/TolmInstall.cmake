include(CMakePackageConfigHelpers)

install(EXPORT TolmMachineTargets
    NAMESPACE Tolm::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TolmMachine)
configure_package_config_file(cmake/TolmMachineConfig.cmake.in
    ${PROJECT_BINARY_DIR}/TolmMachineConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TolmMachine)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TolmMachineConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/TolmMachineConfig.cmake
    ${PROJECT_BINARY_DIR}/TolmMachineConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TolmMachine)

# pkg-config: TolmMachine.pc finds its prefix from its own place, so the installed tree can be
# moved (or installed with --prefix or DESTDIR) without the file pointing elsewhere.
set(_tolm_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE ${_tolm_pc_dir})
    set(TOLM_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
else()
    file(RELATIVE_PATH _tolm_pc_up /prefix/${_tolm_pc_dir} /prefix)
    string(REGEX REPLACE "/$" "" _tolm_pc_up ${_tolm_pc_up})
    set(TOLM_PC_PREFIX "\${pcfiledir}/${_tolm_pc_up}")
endif()
configure_file(cmake/TolmMachine.pc.in ${PROJECT_BINARY_DIR}/TolmMachine.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/TolmMachine.pc DESTINATION ${_tolm_pc_dir})

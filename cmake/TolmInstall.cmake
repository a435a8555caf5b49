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

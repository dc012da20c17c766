# The package of what is installed: `find_package(velto)`, and what builds modules with it.
include(CMakePackageConfigHelpers)

install(EXPORT velto-targets NAMESPACE velto:: DESTINATION ${VELTO_INSTALL_CMAKE_DIRECTORY})
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/velto-config.cmake.in ${PROJECT_BINARY_DIR}/velto-config.cmake
    INSTALL_DESTINATION ${VELTO_INSTALL_CMAKE_DIRECTORY} PATH_VARS VELTO_INSTALL_DIRECTORY)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velto-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velto-config.cmake ${PROJECT_BINARY_DIR}/velto-config-version.cmake
    DESTINATION ${VELTO_INSTALL_CMAKE_DIRECTORY})
install(FILES ${CMAKE_CURRENT_LIST_DIR}/make-module.cmake DESTINATION ${VELTO_INSTALL_CMAKE_DIRECTORY})
install(DIRECTORY ${CMAKE_CURRENT_LIST_DIR}/module DESTINATION ${VELTO_INSTALL_CMAKE_DIRECTORY})

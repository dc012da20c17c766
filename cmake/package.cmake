# The package of what is installed: `find_package(velto)`, and what builds modules with it.
include(CMakePackageConfigHelpers)

install(EXPORT velto-targets NAMESPACE velto:: DESTINATION ${VELTO_INSTALL_CMAKE_DIRECTORY}
    COMPONENT velto-dev)
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/velto-config.cmake.in ${PROJECT_BINARY_DIR}/velto-config.cmake
    INSTALL_DESTINATION ${VELTO_INSTALL_CMAKE_DIRECTORY} PATH_VARS VELTO_INSTALL_DIRECTORY)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velto-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velto-config.cmake ${PROJECT_BINARY_DIR}/velto-config-version.cmake
    DESTINATION ${VELTO_INSTALL_CMAKE_DIRECTORY} COMPONENT velto-dev)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/make-module.cmake
    DESTINATION ${VELTO_INSTALL_CMAKE_DIRECTORY} COMPONENT velto-dev)
install(DIRECTORY ${CMAKE_CURRENT_LIST_DIR}/module
    DESTINATION ${VELTO_INSTALL_CMAKE_DIRECTORY} COMPONENT velto-dev)

# Packages, which cpack makes of what is installed: one for Debian of each component, and an archive of everything that
# lies where one unpacks it.
install(FILES ${PROJECT_SOURCE_DIR}/CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/velto)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/velto RENAME copyright)
foreach(part velto-dev velto-fuse python3-velto)
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${part} RENAME copyright
        COMPONENT ${part} EXCLUDE_FROM_ALL)
endforeach()

set(CPACK_PACKAGE_CONTACT "The authors of velto <maintainers@velto.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "textures and shading values from graphs of nodes")
set(CPACK_PACKAGE_FILE_NAME velto-${PROJECT_VERSION}-linux-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_GENERATOR DEB TGZ)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_ALL velto velto-dev)
if(TARGET velto_fuse)
    list(APPEND CPACK_COMPONENTS_ALL velto-fuse)
endif()
if(TARGET velto_python)
    list(APPEND CPACK_COMPONENTS_ALL python3-velto)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(same_version "velto (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_VELTO_DESCRIPTION
    "textures and shading values from graphs of nodes\nThe command that bakes graphs, its editor, the nodes, and the library that runs them.")
set(CPACK_DEBIAN_VELTO_PACKAGE_NAME velto)
set(CPACK_DEBIAN_VELTO_PACKAGE_SECTION graphics)
set(CPACK_COMPONENT_VELTO-DEV_DESCRIPTION
    "headers of velto\nTo run graphs in a program, and to make modules of nodes.")
set(CPACK_DEBIAN_VELTO-DEV_PACKAGE_NAME velto-dev)
set(CPACK_DEBIAN_VELTO-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_VELTO-DEV_PACKAGE_DEPENDS "${same_version}")
if(NOT VELTO_SHARED)
    string(APPEND CPACK_DEBIAN_VELTO-DEV_PACKAGE_DEPENDS
        ", libtbb-dev, libfmt-dev, libspdlog-dev, libhwy-dev, libutf8proc-dev, zlib1g-dev")
endif()
set(CPACK_DEBIAN_VELTO_PACKAGE_RECOMMENDS velto-fuse)
set(CPACK_COMPONENT_VELTO-FUSE_DESCRIPTION
    "compiler of velto's graphs\nLong bakes compile their graph to machine code where this is installed.")
set(CPACK_DEBIAN_VELTO-FUSE_PACKAGE_NAME velto-fuse)
set(CPACK_DEBIAN_VELTO-FUSE_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_VELTO-FUSE_PACKAGE_DEPENDS "${same_version}")
set(CPACK_COMPONENT_PYTHON3-VELTO_DESCRIPTION
    "velto for Python\nGraphs made and sampled in Python, with arrays of numpy.")
set(CPACK_DEBIAN_PYTHON3-VELTO_PACKAGE_NAME python3-velto)
set(CPACK_DEBIAN_PYTHON3-VELTO_PACKAGE_SECTION python)
math(EXPR next_python "${VELTO_PYTHON_MINOR} + 1")
set(CPACK_DEBIAN_PYTHON3-VELTO_PACKAGE_DEPENDS
    "${same_version}, python3 (>= 3.${VELTO_PYTHON_MINOR}), python3 (<< 3.${next_python}), python3-numpy")
include(CPack)

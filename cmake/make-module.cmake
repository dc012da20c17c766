# Makes a module of nodes, in this tree or outside of it.
#
#     velto_make_module(chevrons ID net.example.chevrons SOURCES chevrons_node.cpp RESOURCES resource)
#
# builds modules/chevrons.module and puts the descriptions, the JSON files of the directory RESOURCES, where the host
# looks for them, resource/modules/chevrons.module. DIRECTORY is what both lie in, by default the build directory of the
# project. Both are installed where the command with the same prefix finds them, unless NO_INSTALL is given.
#
# Static constructors run in the order in which sources are linked, that of SOURCES. With an ID the module's record
# stands before them, what reads the descriptions and the bindings of the host's frameworks behind them; without one the
# sources bring all that.
include(GNUInstallDirs)
set(VELTO_MODULE_PARTS ${CMAKE_CURRENT_LIST_DIR}/module)

function(velto_make_module target)
    cmake_parse_arguments(PARSE_ARGV 1 module "NO_INSTALL" "ID;RESOURCES;DIRECTORY" "SOURCES")
    if(NOT module_SOURCES OR module_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "velto_make_module(${target}): expected [ID id] SOURCES file... [RESOURCES directory] "
            "[DIRECTORY directory] [NO_INSTALL], got: ${ARGN}")
    endif()
    if(NOT module_DIRECTORY)
        set(module_DIRECTORY ${PROJECT_BINARY_DIR})
    endif()
    set(before)
    set(behind)
    if(module_ID)
        set(before ${VELTO_MODULE_PARTS}/register.cpp)
        set(behind ${VELTO_MODULE_PARTS}/frameworks.cpp)
        if(module_RESOURCES)
            list(PREPEND behind ${VELTO_MODULE_PARTS}/descriptions.cpp)
        endif()
    endif()

    # Nothing exported but g_velto, nothing of the host linked; no contraction, so that results are the same everywhere.
    add_library(${target} MODULE ${before} ${module_SOURCES} ${behind})
    set_target_properties(${target} PROPERTIES
        PREFIX "" SUFFIX ".module" CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
        LIBRARY_OUTPUT_DIRECTORY ${module_DIRECTORY}/modules LINK_DEPENDS ${VELTO_MODULE_PARTS}/module.map)
    if(module_ID)
        target_compile_definitions(${target} PRIVATE
            VELTO_MODULE_ID="${module_ID}" VELTO_MODULE_FILE="${target}.module")
    endif()
    target_compile_options(${target} PRIVATE -fno-exceptions -fno-rtti -ffp-contract=off
        $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
    target_link_libraries(${target} PRIVATE velto::contract)
    # Bitcode says which build it is of.
    target_link_options(${target} PRIVATE "LINKER:--build-id" "LINKER:--version-script=${VELTO_MODULE_PARTS}/module.map")
    if(NOT VELTO_SANITIZE)
        target_link_options(${target} PRIVATE "LINKER:--no-undefined")
    endif()
    set(modules ${CMAKE_INSTALL_LIBDIR}/velto/modules)
    if(NOT module_NO_INSTALL)
        install(TARGETS ${target} LIBRARY DESTINATION ${modules})
    endif()

    if(module_RESOURCES)
        get_filename_component(resources ${module_RESOURCES} ABSOLUTE)
        set(place resource/modules/${target}.module)
        file(MAKE_DIRECTORY ${module_DIRECTORY}/resource/modules)
        file(CREATE_LINK ${resources} ${module_DIRECTORY}/${place} SYMBOLIC)
        if(NOT module_NO_INSTALL)
            install(DIRECTORY ${resources}/ DESTINATION ${CMAKE_INSTALL_LIBDIR}/velto/${place})
        endif()
    endif()
endfunction()

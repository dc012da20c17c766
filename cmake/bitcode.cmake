# Bitcode of the nodes, by which graphs are compiled as one, and the library that does so.
find_program(VELTO_BITCODE_COMPILER NAMES clang++-16)
find_path(VELTO_LLVM_INCLUDE llvm/IR/Module.h PATHS /usr/lib/llvm-16/include NO_DEFAULT_PATH)
find_library(VELTO_LLVM_LIBRARY NAMES LLVM-16 PATHS /usr/lib/llvm-16/lib NO_DEFAULT_PATH)
if(VELTO_BITCODE_COMPILER AND VELTO_LLVM_INCLUDE AND VELTO_LLVM_LIBRARY)
    set(has_llvm ON)
else()
    set(has_llvm OFF)
endif()
option(VELTO_FUSE "Compile graphs to machine code (needs clang-16 and llvm-16-dev)" ${has_llvm})
if(VELTO_FUSE AND NOT has_llvm)
    message(FATAL_ERROR "VELTO_FUSE needs clang-16 and llvm-16-dev")
endif()
if(NOT VELTO_FUSE)
    message(STATUS "Graphs are not compiled to machine code")
    function(velto_ship_bitcode target)
    endfunction()
    return()
endif()

# The mathematical library is the platform's, whose functions no optimizer may take for others.
set(bitcode_functions acos acosh asin asinh atan atan2 atanh cbrt cos cosh erf erfc exp exp10 exp2 expm1 fmod hypot
    ldexp lgamma log log10 log1p log2 logb pow remainder scalbn sin sinh tan tanh tgamma)
set(bitcode_options -std=c++20 -O2 -DNDEBUG -DVELTO_BITCODE -fPIC -fvisibility=hidden -fvisibility-inlines-hidden
    -fno-math-errno -ffp-contract=off -fno-vectorize -fno-slp-vectorize
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
foreach(function IN LISTS bitcode_functions)
    list(APPEND bitcode_options -fno-builtin-${function} -fno-builtin-${function}f)
endforeach()

add_executable(velto_pack_bitcode
    ${PROJECT_SOURCE_DIR}/host/fuse/pack.cpp ${PROJECT_SOURCE_DIR}/host/fuse/buildid.cpp)
target_include_directories(velto_pack_bitcode SYSTEM PRIVATE ${VELTO_LLVM_INCLUDE})
target_include_directories(velto_pack_bitcode PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(velto_pack_bitcode PRIVATE ${VELTO_LLVM_LIBRARY})

# The files of bitcode that are made of `sources`, each with `options` of its own.
function(velto_make_bitcode out options)
    set(files)
    foreach(source IN LISTS ARGN)
        string(MAKE_C_IDENTIFIER ${source} name)
        set(file ${CMAKE_CURRENT_BINARY_DIR}/bitcode/${name}.bc)
        add_custom_command(OUTPUT ${file}
            COMMAND ${CMAKE_CXX_COMPILER_LAUNCHER} ${VELTO_BITCODE_COMPILER} ${bitcode_options} ${options}
                -I${PROJECT_SOURCE_DIR}/include -I${PROJECT_SOURCE_DIR} -MD -MF ${file}.d -MT ${file} -emit-llvm
                -c ${CMAKE_CURRENT_SOURCE_DIR}/${source} -o ${file}
            DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${source} DEPFILE ${file}.d
            COMMENT "Building bitcode of ${source}" VERBATIM)
        list(APPEND files ${file})
    endforeach()
    file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/bitcode)
    set(${out} ${files} PARENT_SCOPE)
endfunction()

# Puts `NAME.bc`, of the nodes among `sources`, beside the module `NAME.module`.
function(velto_ship_bitcode target)
    velto_make_bitcode(files "-fno-exceptions;-fno-rtti" ${ARGN})
    set(shipped ${PROJECT_BINARY_DIR}/modules/${target}.bc)
    add_custom_command(OUTPUT ${shipped}
        COMMAND velto_pack_bitcode ${shipped} $<TARGET_FILE:${target}> ${files}
        DEPENDS velto_pack_bitcode ${target} ${files} VERBATIM)
    add_custom_target(${target}_bitcode ALL DEPENDS ${shipped})
    set_property(GLOBAL APPEND PROPERTY velto_bitcode ${target}_bitcode)
    install(FILES ${shipped} DESTINATION ${VELTO_INSTALL_DIRECTORY}/modules COMPONENT velto-fuse)
endfunction()

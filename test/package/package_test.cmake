# Installs the build, builds examples/embed and examples/module against what was installed, and runs the program and the
# installed command.
#
#     cmake -D BUILD_DIR=... -D SOURCE_DIR=... -D GENERATOR=... -D CXX=... -D BUILD_TYPE=... -P package_test.cmake
set(work ${BUILD_DIR}/test/package)
set(prefix ${work}/moved/prefix)
file(REMOVE_RECURSE ${work})

function(run output)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "failed with ${status}: ${ARGN}\n${out}${err}")
    endif()
    set(${output} "${out}" PARENT_SCOPE)
endfunction()

# What is installed may be moved.
run(ignored ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${work}/prefix)
file(MAKE_DIRECTORY ${work}/moved)
file(RENAME ${work}/prefix ${prefix})

# Public headers include public headers only.
file(GLOB_RECURSE headers RELATIVE ${prefix}/include/velto-host ${prefix}/include/velto-host/*.h)
list(TRANSFORM headers REPLACE "(.+)" "#include <\\1>")
list(JOIN headers "\n" headers)
file(WRITE ${work}/headers.cpp "${headers}\n#include <string.h>\nsize_t length = strlen(\"\");\n")
run(ignored ${CXX} -std=c++20 -fsyntax-only -I${prefix}/include -I${prefix}/include/velto-host ${work}/headers.cpp)

# The library exports what is declared for programs, and nothing of what it is made of.
file(GLOB_RECURSE library ${prefix}/lib*/libvelto.so)
if(library)
    run(symbols ${NM} -D -C --defined-only ${library})
    string(REGEX REPLACE "[^\n]* [A-Za-z] ([a-z ]+ for )?(velto::host::[A-Z]|velto::slots<|VELTO_)[^\n]*\n" "" others "${symbols}")
    if(others OR NOT symbols MATCHES "velto::host::LoadGraph")
        message(FATAL_ERROR "libvelto.so exports ${others}")
    endif()
endif()

run(ignored ${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/embed -B ${work}/embed -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=${BUILD_TYPE})
run(ignored ${CMAKE_COMMAND} --build ${work}/embed)

# Nodes by the names that their descriptions give them, so the resources are found.
file(WRITE ${work}/graph.json [[{
    "version": 1,
    "nodes": {"lit": {"type": "exposure", "inputs": {"color": [0.25, 0.5, 1, 1], "exposure": 1}},
              "half": {"type": "invertcolor", "inputs": {"color": {"from": "lit.result"}}}},
    "outputs": {"color": "half.result"}
}]])
run(color ${work}/embed/embed ${work}/graph.json 0.5 0.5)
if(NOT color STREQUAL "0.5 0 -1 1\n")
    message(FATAL_ERROR "examples/embed printed ${color}")
endif()

# The command, from elsewhere and through a link, as packages make them.
file(CREATE_LINK ${prefix}/bin/velto ${work}/velto SYMBOLIC)
run(ignored ${work}/velto check ${SOURCE_DIR}/examples/demo.json)
run(ignored ${work}/velto bake ${SOURCE_DIR}/examples/demo.json --size 8 -o ${work}/demo.png)
if(NOT EXISTS ${work}/demo.png)
    message(FATAL_ERROR "the installed command baked nothing")
endif()

# The Python package, where it is built: what an artist has who puts the prefix's packages on the path.
file(GLOB package ${prefix}/lib/python3*/dist-packages)
file(GLOB extension ${package}/velto/_velto*.so)
if(extension)
    file(WRITE ${work}/show.py "import velto
graph = velto.load('${work}/graph.json')
print(graph.sample(0.5, 0.5)['color'].tolist())
velto.write('${work}/python.jpg', graph.bake(8)['color'])
")
    run(shown ${CMAKE_COMMAND} -E env PYTHONPATH=${package} PYTHONDONTWRITEBYTECODE=1 ${PYTHON} ${work}/show.py)
    if(NOT shown STREQUAL "[0.5, 0.0, -1.0, 1.0]\n" OR NOT EXISTS ${work}/python.jpg)
        message(FATAL_ERROR "the installed Python package shows ${shown}")
    endif()
endif()

# A module of one node: named on the command line, installed ahead of the other in the folder, and alone there.
run(ignored ${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/module -B ${work}/module -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=${BUILD_TYPE})
run(ignored ${CMAKE_COMMAND} --build ${work}/module)
set(module ${work}/module/modules/chevrons.module)
run(symbols ${NM} -D --defined-only ${module})
if(NOT symbols MATCHES "^[0-9a-f]+ [A-Z] g_velto\n$")
    message(FATAL_ERROR "the module exports ${symbols}")
endif()
file(WRITE ${work}/module.json
    [[{"version": 1, "nodes": {"zigzag": {"type": "chevrons"}}, "outputs": {"color": "zigzag.result"}}]])
function(bake picture)
    run(ignored ${work}/velto bake ${work}/module.json --size 16 -o ${work}/${picture}.png ${ARGN})
    file(SHA256 ${work}/${picture}.png hash)
    set(${picture} ${hash} PARENT_SCOPE)
endfunction()
bake(named --module ${module})
run(ignored ${CMAKE_COMMAND} --install ${work}/module --prefix ${prefix})
bake(installed)
run(listed ${work}/velto nodes chevrons)
file(GLOB_RECURSE other ${prefix}/shadernodes.module)
file(REMOVE ${other})
bake(alone)
if(NOT listed MATCHES "module chevrons" OR NOT named STREQUAL installed OR NOT named STREQUAL alone)
    message(FATAL_ERROR "the module's node is told as ${listed}, its pictures are ${named}, ${installed}, ${alone}")
endif()
execute_process(COMMAND ${work}/velto check ${SOURCE_DIR}/examples/demo.json RESULT_VARIABLE status ERROR_QUIET)
if(status EQUAL 0)
    message(FATAL_ERROR "the other module is still loaded")
endif()

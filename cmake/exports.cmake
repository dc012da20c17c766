# Writes the linker's list of what libvelto.so exports: the classes and functions that public headers declare, and the
# tables of functions that a program and the library have in common.
#
#     cmake -D HEADERS="a.h;b.h" -D VERSION=0.1 -D OUTPUT=libvelto.map -P exports.cmake
#
# Declarations stand at the beginnings of lines, as clang-format puts what namespaces hold.
set(names)
foreach(header IN LISTS HEADERS)
    file(STRINGS ${header} lines REGEX "^[A-Za-z].*[^:]$")
    foreach(line IN LISTS lines)
        if(line MATCHES "^(class|struct) ([A-Z][A-Za-z0-9_]*)")
            list(APPEND names ${CMAKE_MATCH_2})
        elseif(line MATCHES "^[a-zA-Z].*[ *&]([A-Z][A-Za-z0-9_]*)\\(")
            list(APPEND names ${CMAKE_MATCH_1})
        endif()
    endforeach()
endforeach()
list(REMOVE_DUPLICATES names)
list(SORT names)

set(text "VELTO_${VERSION} {\nglobal:\n    extern \"C++\" {\n")
foreach(name IN LISTS names)
    string(APPEND text "        velto::host::${name}[^A-Za-z0-9_]*;\n        *?for?velto::host::${name};\n")
endforeach()
# The tables by which both call the host.
string(APPEND text "        velto::slots?*;\n")
string(APPEND text "    };\nlocal:\n    *;\n};\n")
file(WRITE ${OUTPUT} "${text}")

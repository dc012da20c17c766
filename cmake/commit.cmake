# Writes what `velto --version` says of the commit: nothing where the sources are not those of a repository.
#
#     cmake -D GIT=git -D SOURCE_DIR=. -D OUTPUT=commit.cpp -P commit.cmake
set(commit)
if(GIT AND EXISTS ${SOURCE_DIR}/.git)
    execute_process(COMMAND ${GIT} rev-parse --short=10 HEAD WORKING_DIRECTORY ${SOURCE_DIR}
        OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(commit)
    set(commit " (${commit})")
endif()
file(WRITE ${OUTPUT} "#include \"cli/commit.h\"\n\nconst char* const velto::cli::kCommit = \"${commit}\";\n")

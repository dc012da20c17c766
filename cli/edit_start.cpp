// In the command itself: the editor is a program of its own, as the server that it links takes long to load.
#include "edit.h"

#include <fmt/format.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace velto::cli
{

int Edit(const EditArguments& arguments, const Streams& streams)
{
    const std::string program = HomeDirectory() / "velto-edit";
    ::execv(program.c_str(), arguments.words);
    PrintError(streams, fmt::format("{} cannot be started: {}", program, std::strerror(errno)));
    return kFailed;
}

} // namespace velto::cli

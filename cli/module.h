// `velto module`: what the loaded modules publish.
#pragma once

#include "session.h"

namespace velto::cli
{

struct ModuleArguments
{
    ModuleOptions modules;
    bool json = false;
};

int Module(const ModuleArguments& arguments, const Streams& streams);

} // namespace velto::cli

// `velto module`: what the loaded module publishes.
#pragma once

#include "session.h"

namespace velto::cli
{

struct ModuleArguments
{
    ModuleOptions module;
    bool json = false;
};

int Module(const ModuleArguments& arguments, const Streams& streams);

} // namespace velto::cli

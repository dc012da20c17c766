// `velto edit` and `velto view`: a page in the browser that shows a graph, and changes it.
#pragma once

#include "session.h"

namespace velto::cli
{

struct EditArguments
{
    GraphArguments graph; // without a file: one that is not there yet
    ModuleOptions modules;
    bool isView = false; // shows the picture alone
    int port = 0;        // 0: any that is free
    int threads = 0;
    bool opensNoBrowser = false;
    char** words = nullptr; // the command line
};

int Edit(const EditArguments& arguments, const Streams& streams);

} // namespace velto::cli

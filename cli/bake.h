// `velto bake`: a graph to image files.
#pragma once

#include "session.h"

#include "host/bake/bake.h"

#include <optional>

namespace velto::cli
{

struct BakeArguments
{
    ModuleOptions module;
    GraphArguments graph;
    std::string file; // may hold `{output}`, and `{frame}` or a run of `#`
    std::string size = "1024";
    std::string crop;
    std::optional<int> frame;
    std::string frames; // A-B
    double framesPerSecond = 25.0;
    int threads = 0;
    int supersample = 1;
    std::string depth;
    std::string colorSpace;
    std::string shape = "plane";
    std::string progress = "auto";
    bool stats = false;
};

int Bake(const BakeArguments& arguments, const Streams& streams);

// `N` or `WxH`, each from 1 to the largest side of a picture.
bool ParseSize(std::string_view text, int& width, int& height);

// `X,Y,WxH`.
bool ParseCrop(std::string_view text, host::BakeWindow& window);

// `A-B`, at most a million frames.
bool ParseFrames(std::string_view text, int& first, int& last);

// The name of one file: `{output}`, `{frame}` and `####` filled in.
std::string FileName(std::string pattern, const std::string& output, std::optional<int> frame);

} // namespace velto::cli

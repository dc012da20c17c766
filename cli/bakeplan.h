// What a bake makes of its arguments, which merging its parts shares.
#pragma once

#include "session.h"

#include "host/bake/bake.h"
#include "host/bake/parts.h"

#include <optional>

namespace velto::cli
{

struct BakeArguments
{
    ModuleOptions modules;
    GraphArguments graph;
    std::string file; // may hold `{output}`, and `{frame}` or a run of `#`; `-`: standard output
    std::string format;
    std::string size = "1024";
    std::string crop;
    std::optional<int> frame;
    std::string frames; // a list
    double framesPerSecond = 25.0;
    int threads = 0;
    int supersample = 1;
    std::string depth;
    std::string colorSpace;
    std::string shape = "plane";
    std::string shard; // K/N
    bool skipExisting = false;
    bool watches = false; // bakes again whenever what it reads changes
    std::string progress = "auto";
    bool isNotFused = false;
    bool stats = false;
    bool json = false;
};

struct BakePlan
{
    host::BakeOptions options;
    std::vector<std::optional<int>> frames;
    host::Shard shard;
};

// False, and an error is printed, where an option is wrong.
bool PlanBake(const BakeArguments& arguments, const Streams& streams, BakePlan& plan);

// Reads the graph for one frame and names the files; the time goes into the plan's options. Every frame starts from
// fresh state.
bool PlanFrame(const BakeArguments& arguments, const std::optional<int>& frame,
    const std::shared_ptr<host::Modules>& modules, const Streams& streams, BakePlan& plan, host::Graph& graph,
    std::vector<host::BakeTarget>& targets);

// A hash of everything that determines a target's pixels.
std::string Fingerprint(const BakeArguments& arguments, const host::Modules& modules, const host::Graph& graph,
    const BakePlan& plan, const host::BakeTarget& target);

// `N` or `WxH`, each from 1 to the largest side of a picture.
bool ParseSize(std::string_view text, int& width, int& height);

// `X,Y,WxH`.
bool ParseCrop(std::string_view text, host::BakeWindow& window);

// `3`, `1-24`, `24-1`, `1-24x2` and such between commas, each frame once, at most a million.
bool ParseFrames(std::string_view text, std::vector<int>& frames);

// The name of one file: `{output}`, `{frame}` and `####` filled in.
std::string FileName(std::string pattern, const std::string& output, std::optional<int> frame);

} // namespace velto::cli

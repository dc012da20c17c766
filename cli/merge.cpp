#include "merge.h"

#include "host/bake/encoding.h"

#include <algorithm>
#include <filesystem>

namespace velto::cli
{

namespace
{

bool MergeFile(const MergeArguments& arguments, const Streams& streams, host::MergeJob job)
{
    job.threads = arguments.bake.threads;
    std::vector<std::string> problems;
    if (!host::MergeParts(job, problems))
    {
        for (const std::string& problem : problems)
            PrintError(streams, problem);
        return false;
    }
    std::error_code ignored;
    for (const std::string& part : job.parts)
    {
        if (arguments.removeParts)
            std::filesystem::remove(part, ignored);
    }
    return true;
}

int MergeGraph(MergeArguments arguments, const Streams& streams)
{
    arguments.bake.graph.file = arguments.files.front();
    BakePlan plan;
    if (!PlanBake(arguments.bake, streams, plan))
        return kWrongInput;
    std::shared_ptr<host::Modules> modules;
    if (!LoadModules(arguments.bake.modules, streams, modules))
        return kFailed;
    bool isGood = true;
    for (const std::optional<int>& frame : plan.frames)
    {
        host::Graph graph;
        std::vector<host::BakeTarget> targets;
        if (!PlanFrame(arguments.bake, frame, modules, streams, plan, graph, targets))
            return kWrongInput;
        for (const host::BakeTarget& target : targets)
        {
            host::MergeJob job;
            job.file = target.file;
            job.format = target.format;
            job.parts = host::FindParts(target.file);
            job.hash = Fingerprint(arguments.bake, *modules, graph, plan, target);
            job.encoding = host::EncodingOf(graph, target.output, plan.options.encoding);
            isGood = MergeFile(arguments, streams, std::move(job)) && isGood;
        }
    }
    return isGood ? kSuccess : kFailed;
}

} // namespace

int Merge(const MergeArguments& arguments, const Streams& streams)
{
    const auto isPart = [](const std::string& file) { return file.ends_with(".exr"); };
    const auto parts = std::count_if(arguments.files.begin(), arguments.files.end(), isPart);
    if (parts == 0 && arguments.files.size() == 1)
        return MergeGraph(arguments, streams);
    if (static_cast<std::size_t>(parts) != arguments.files.size())
    {
        PrintError(streams, "merge: expected one graph, or parts, which end in .exr");
        return kWrongInput;
    }
    host::MergeJob job;
    job.file = arguments.bake.file;
    job.format = arguments.bake.format;
    job.parts = arguments.files;
    return MergeFile(arguments, streams, std::move(job)) ? kSuccess : kFailed;
}

} // namespace velto::cli

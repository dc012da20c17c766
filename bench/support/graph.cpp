#include "graph.h"

#include "host/loader/services.h"

#include <cstdlib>

namespace velto::bench
{

namespace
{

std::shared_ptr<host::Modules> TheModules()
{
    static const std::shared_ptr<host::Modules> modules = [] {
        std::shared_ptr<host::Modules> loaded;
        if (host::Modules::Load(host::ModuleFiles(VELTO_BUILD_DIR "/modules"), loaded).IsError())
            std::abort();
        return loaded;
    }();
    return modules;
}

} // namespace

void LoadGraph(std::string_view document, host::Graph& graph)
{
    host::Diagnostics diagnostics;
    if (!host::LoadGraph(document, TheModules(), {}, diagnostics, graph) || graph.setup->Run().IsError())
    {
        for (const host::Diagnostic& diagnostic : diagnostics.All())
            std::fprintf(stderr, "%s: %s\n", diagnostic.place.c_str(), diagnostic.text.c_str());
        std::abort();
    }
}

std::unique_ptr<host::Instance> MakeInstance(host::Graph& graph)
{
    std::unique_ptr<host::Instance> instance;
    if (host::Instance::Create(*graph.setup, instance).IsError())
        std::abort();
    return instance;
}

} // namespace velto::bench

int main(int argc, char** argv)
{
    velto::host::Services();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

#include "graph.h"

#include "host/loader/services.h"

#include <algorithm>
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

void LoadGraph(std::string_view document, host::Graph& graph, const host::GraphOptions& options)
{
    host::Diagnostics diagnostics;
    if (!host::LoadGraph(document, TheModules(), options, diagnostics, graph) || graph.setup->Run().IsError())
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

FusedTile::FusedTile(host::Graph& graph, const std::vector<ShadingContext>& contexts)
{
    if (contexts.empty() || !host::CanFuse() || host::NumbersOf(graph.program->outputs[0].type) == 0)
        return;
    const auto wordOf = [](const ShadingContext& context, std::size_t at) {
        UInt word = 0;
        std::memcpy(&word, reinterpret_cast<const std::byte*>(&context) + at, sizeof(word));
        return word;
    };
    for (std::size_t at = 0; at < sizeof(ShadingContext); at += sizeof(UInt))
    {
        std::vector<UInt> lane;
        for (const ShadingContext& context : contexts)
            lane.push_back(wordOf(context, at));
        if (std::all_of(lane.begin(), lane.end(), [&](UInt word) { return word == lane[0]; }))
            continue;
        lanes_.push_back(std::move(lane));
        fields_.push_back({{{}, static_cast<UInt32>(at), 1}, lanes_.back().data(), sizeof(UInt)});
    }
    if (host::ThreadSampler::Create(*graph.setup, contexts[0], contexts[0], sampler_).IsError())
        return;
    const auto size = static_cast<std::ptrdiff_t>(graph.program->outputs[0].type->operations.size);
    const host::ValueArray values[] = {{0, nullptr, size}};
    sampler_->Sample(0, fields_, values).Ignore();
    host::FuseReport report;
    kernel_ = host::Fuse(*graph.setup, contexts[0], sampler_->LastShape(), {}, report);
    if (kernel_)
        sampler_->UseKernel(kernel_);
}

bool FusedTile::Sample(void* to, std::size_t size)
{
    for (std::size_t row = 0; row < kTile; ++row)
    {
        for (std::size_t i = 0; i < fields_.size(); ++i)
            fields_[i].data = &lanes_[i][row * kTile];
        const host::ValueArray values[] = {
            {0, static_cast<std::byte*>(to) + row * kTile * size, static_cast<std::ptrdiff_t>(size)}};
        if (sampler_->Sample(kTile, fields_, values).IsError())
            return false;
    }
    return true;
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

// The time of a million samples without Python, for `samples.py`.
//
//     velto_python_bench BUILD DOCUMENT COUNT ROUNDS
#include "host/host.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

using namespace velto;

static double Seconds(host::Sampler& sampler, const std::vector<Float>& u, const std::vector<Float>& v, ColorA* colors)
{
    // As `Graph.sample(u, v)` has them: the neighbours are the sample itself.
    std::vector<host::FieldArray> fields;
    for (const char* const name : {"uvw", "uvwPlusDeltaU", "uvwPlusDeltaV"})
    {
        const UInt32 offset = host::FindContextField(name)->offset;
        fields.push_back({{name, offset, 1}, u.data(), sizeof(Float)});
        fields.push_back({{name, offset + static_cast<UInt32>(sizeof(Float)), 1}, v.data(), sizeof(Float)});
    }
    const host::ValueArray values[] = {{0, colors, sizeof(ColorA)}};
    const auto start = std::chrono::steady_clock::now();
    if (sampler.Sample(u.size(), fields, values).IsError())
        std::abort();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int main(int argc, char** argv)
{
    if (argc != 5)
        return 2;
    const std::string build = argv[1];
    std::shared_ptr<host::Modules> modules;
    std::ifstream file(argv[2]);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    host::Graph graph;
    host::Diagnostics diagnostics;
    std::unique_ptr<host::Sampler> sampler;
    ShadingContext shared;
    shared.uvwValid = true;
    if (host::Modules::Load({build + "/modules/shadernodes.module"}, modules).IsError() ||
        !host::LoadGraph(text, modules, {}, diagnostics, graph) || graph.setup->Run().IsError() ||
        host::Sampler::Create(*graph.setup, shared, sampler).IsError())
        return 1;
    const std::size_t count = std::strtoul(argv[3], nullptr, 10);
    std::vector<Float> u(count);
    std::vector<Float> v(count);
    for (std::size_t i = 0; i < count; ++i)
    {
        u[i] = static_cast<Float>(i % 1000) / 1000.0;
        v[i] = static_cast<Float>(i / 1000) / 1000.0;
    }
    std::vector<ColorA> colors(count);
    for (int round = std::atoi(argv[4]); round > 0; --round)
    {
        std::printf("%.9f\n", Seconds(*sampler, u, v, colors.data()));
        std::fflush(stdout);
        if (round > 1 && std::getchar() == EOF)
            break;
    }
    return 0;
}

// Prints the colours that a graph document gives at places: embed GRAPH U V [U V]...
#include <host/host.h>
#include <host/registry/datatypes.h>

#include <cstdio>
#include <cstdlib>

namespace vh = velto::host;

static velto::Result Sample(
    vh::Graph& graph, const std::vector<velto::Vector>& places, std::vector<velto::ColorA>& colors)
{
    VELTO_CHECK_ARGUMENT(graph.program->outputs[0].type == vh::TypeOf<velto::ColorA>());
    VELTO_TRY(graph.setup->Run()); // what no sample changes
    velto::ShadingContext shared;  // by all samples
    shared.uvwValid = true;
    std::unique_ptr<vh::Sampler> sampler; // for any number of threads
    VELTO_TRY(vh::Sampler::Create(*graph.setup, shared, sampler));
    const vh::FieldArray fields[] = {
        {*vh::FindContextField("uvw"), places.data(), sizeof(velto::Vector)},
        {*vh::FindContextField("uvwPlusDeltaU"), places.data(), sizeof(velto::Vector)},
        {*vh::FindContextField("uvwPlusDeltaV"), places.data(), sizeof(velto::Vector)},
    };
    const vh::ValueArray values[] = {{.output = 0, .data = colors.data(), .stride = sizeof(velto::ColorA)}};
    return sampler->Sample(places.size(), fields, values);
}

int main(int argc, char** argv)
{
    if (argc < 4 || argc % 2 != 0)
        return std::fprintf(stderr, "usage: embed GRAPH U V [U V]...\n"), 2;
    std::vector<velto::Vector> places;
    for (int i = 2; i < argc; i += 2)
        places.push_back({std::atof(argv[i]), std::atof(argv[i + 1]), 0.0});
    vh::SetResourceDirectory(VELTO_DIRECTORY "/resource");
    std::shared_ptr<vh::Module> module;
    velto::Result result = vh::Module::Load(VELTO_DIRECTORY "/modules/shadernodes.module", module);
    vh::Diagnostics diagnostics;
    std::string text;
    vh::Graph graph;
    std::vector<velto::ColorA> colors(places.size());
    if (result.IsOk() && vh::ReadFile(argv[1], vh::JsonLimits().bytes, text, diagnostics) &&
        vh::LoadGraph(text, module, {}, diagnostics, graph))
        result = Sample(graph, places, colors);
    for (const vh::Diagnostic& fault : diagnostics.All())
        std::fprintf(stderr, "%s: %s: %s\n", argv[1], fault.place.c_str(), fault.text.c_str());
    if (result.IsError())
        std::fprintf(stderr, "%s\n", std::string(result.Message()).c_str());
    if (result.IsError() || diagnostics.HasFaults())
        return 1;
    for (const velto::ColorA& color : colors)
        std::printf("%.17g %.17g %.17g %.17g\n", color.r, color.g, color.b, color.a);
}

// Prints the colour that a graph document gives at a place: embed GRAPH U V
#include <host/host.h>
#include <host/registry/datatypes.h>

#include <cstdio>
#include <cstdlib>

namespace vh = velto::host;

static velto::Result Sample(vh::Graph& graph, double u, double v, velto::ColorA& color)
{
    VELTO_CHECK_ARGUMENT(graph.program->outputs[0].type == vh::TypeOf<velto::ColorA>());
    VELTO_TRY(graph.setup->Run());          // what no sample changes
    std::unique_ptr<vh::Instance> instance; // a thread's own
    VELTO_TRY(vh::Instance::Create(*graph.setup, instance));
    velto::ShadingContext& context = instance->Context();
    context.uvw = context.uvwPlusDeltaU = context.uvwPlusDeltaV = {u, v, 0.0};
    context.uvwValid = true;
    VELTO_TRY(instance->Evaluate());
    color = *static_cast<const velto::ColorA*>(instance->Output(0));
    return {};
}

int main(int argc, char** argv)
{
    if (argc != 4)
        return std::fprintf(stderr, "usage: embed GRAPH U V\n"), 2;
    vh::SetResourceDirectory(VELTO_DIRECTORY "/resource");
    std::shared_ptr<vh::Module> module;
    velto::Result result = vh::Module::Load(VELTO_DIRECTORY "/modules/shadernodes.module", module);
    vh::Diagnostics diagnostics;
    std::string text;
    vh::Graph graph;
    velto::ColorA color;
    if (result.IsOk() && vh::ReadFile(argv[1], vh::JsonLimits().bytes, text, diagnostics) &&
        vh::LoadGraph(text, module, {}, diagnostics, graph))
        result = Sample(graph, std::atof(argv[2]), std::atof(argv[3]), color);
    for (const vh::Diagnostic& fault : diagnostics.All())
        std::fprintf(stderr, "%s: %s: %s\n", argv[1], fault.place.c_str(), fault.text.c_str());
    if (result.IsError())
        std::fprintf(stderr, "%s\n", std::string(result.Message()).c_str());
    if (result.IsError() || diagnostics.HasFaults())
        return 1;
    std::printf("%.17g %.17g %.17g %.17g\n", color.r, color.g, color.b, color.a);
}

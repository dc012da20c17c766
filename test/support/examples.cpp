#include "examples.h"

#include "files.h"

#include "host/bake/view.h"
#include "host/graph/description.h"
#include "host/graph/values.h"
#include "host/registry/datatypes.h"

#include <fmt/format.h>

#include <paths.h>

namespace velto::test
{

using host::Json;

static const std::string kFolder = VELTO_SOURCE_DIR "/examples/nodes";

static Example ReadExample(const std::shared_ptr<const host::NodeType>& type)
{
    Example example{{}, type, Parse(ReadFile(fmt::format("{}/{}.json", kFolder, type->name)))};
    for (const auto& [name, node] : example.document.Find("nodes")->GetMembers())
    {
        if (node.Find("type")->AsString() == type->name)
            example.node = name;
    }
    // Small rasters tell as much.
    for (const char* const size : {"resolution", "width", "height"})
    {
        if (const host::NodePort* const port = type->FindPort(size, true);
            port && port->type.Get() == host::TypeOf<Int32>())
            example.document = example.With(size, Json(16));
    }
    if (!example.document.Find("outputs"))
        return example; // a material
    Json outputs = Json::Object();
    for (const host::NodePort& port : type->ports)
    {
        if (!port.input)
            outputs.Add(port.name, Json(example.node + "." + port.name));
    }
    example.document.Set("outputs", outputs);
    return example;
}

const std::vector<Example>& Examples()
{
    static const std::vector<Example> examples = [] {
        TheModule();
        std::vector<Example> list;
        for (const auto& type : host::DescribedNodes())
            list.push_back(ReadExample(type));
        return list;
    }();
    return examples;
}

Json Example::With(std::string_view input, Json value) const
{
    Json nodes = *document.Find("nodes");
    Json changed = *nodes.Find(node);
    Json inputs = changed.Find("inputs") ? *changed.Find("inputs") : Json::Object();
    inputs.Set(input, std::move(value));
    changed.Set("inputs", std::move(inputs));
    nodes.Set(node, std::move(changed));
    Json result = document;
    result.Set("nodes", std::move(nodes));
    return result;
}

Json Example::Given(const host::NodePort& port) const
{
    const Json* const inputs = document.Find("nodes")->Find(node)->Find("inputs");
    if (const Json* const given = inputs ? inputs->Find(port.name) : nullptr)
        return given->IsObject() ? Json() : *given;
    return port.defaultValue.IsEmpty() ? Json() : host::WriteValue(port.defaultValue.Type(), port.defaultValue.Value());
}

host::GraphOptions ExampleOptions()
{
    host::GraphOptions options;
    options.searchPaths = {kFolder};
    return options;
}

bool Load(const Json& document, host::Graph& graph)
{
    return Load(document.Write(), graph, ExampleOptions());
}

static constexpr host::BakeView kView{5, 5, host::BakeShape::Sphere};

Result Start(host::Graph& graph, std::unique_ptr<host::Instance>& instance)
{
    VELTO_TRY(graph.setup->Run());
    VELTO_TRY(host::Instance::Create(*graph.setup, instance));
    instance->Context().searchPaths = graph.searchPaths.get();
    instance->Context().renderMessages = graph.messages.get();
    host::FillContext(kView, 2.3, 1.9, instance->Context());
    return {};
}

Json OutputsOf(const host::Graph& graph, const host::Instance& instance)
{
    Json outputs = Json::Array();
    for (std::size_t i = 0; i < graph.program->outputs.size(); ++i)
        outputs.Append(host::WriteValue(graph.program->outputs[i].type, instance.Output(i)));
    return outputs;
}

Json Look(host::Graph& graph)
{
    Json places = Json::Array();
    std::unique_ptr<host::Instance> instance;
    if (const Result started = Start(graph, instance); started.IsError())
        return Json(started.Kind());
    for (int i = 0; i < kView.width * kView.height; ++i)
    {
        if (!host::FillContext(kView, i % kView.width + 0.5, i / kView.width + 0.5, instance->Context()))
            continue;
        const Result ran = instance->Evaluate();
        places.Append(ran.IsOk() ? OutputsOf(graph, *instance) : Json(ran.Kind()));
    }
    return places;
}

} // namespace velto::test

#include "document.h"

#include "documentlibrary.h"
#include "documentscope.h"
#include "material.h"
#include "values.h"

#include "host/registry/datatypes.h"
#include "host/registry/reflection.h"
#include "host/system/guard.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto::host
{

namespace
{

// Where the value of an output comes from: a link, or a layer, which is no more than its type.
bool ReadOutputSource(DocumentScope& scope, const Json& json, const std::string& place, CoreOutput& output)
{
    const Json* const from = json.IsObject() ? json.Find("from") : &json;
    if (!from || !from->IsString())
    {
        scope.diagnostics.Fault(place, fmt::format("expected \"NODE.PORT\", got {}", json.Description()));
        return false;
    }
    const NodePort* port = nullptr;
    CorePort link;
    std::size_t node = 0;
    if (!FindOutput(scope, from->AsString(), place, port, link, node))
        return false;
    if (port->type.Get() == LayerType())
        ThrowIfError(output.source.value.Set(LayerType(), nullptr));
    else
        output.source.link = std::move(link);
    scope.outputTypes.push_back(port->type);
    return true;
}

template <class T>
using Choices = std::vector<std::pair<std::string, T>>;

// A member of an output that is one of a few words; one that is left out changes nothing.
template <class T>
void Choose(DocumentScope& scope, const Json& json, const std::string& place, const char* member,
    const Choices<T>& choices, T& chosen)
{
    const Json* const given = json.Find(member);
    if (!given)
        return;
    std::vector<std::string> names;
    for (const auto& [name, value] : choices)
    {
        names.push_back(name);
        if (given->IsString() && given->AsString() == name)
        {
            chosen = value;
            return;
        }
    }
    scope.diagnostics.Fault(
        Join(place, member), fmt::format("expected one of {}, got {}", fmt::join(names, ", "), given->Description()));
}

void ReadEncoding(DocumentScope& scope, const Json& json, const std::string& place, const std::string& name)
{
    using enum PixelDepth;
    CheckKeys(scope, json, place, {"from", "encoding", "depth", "colorspace"});
    PictureEncoding encoding;
    Choose(scope, json, place, "encoding",
        Choices<PictureContent>{
            {"color", PictureContent::Color}, {"data", PictureContent::Data}, {"normal", PictureContent::Normal}},
        encoding.content);
    Choose(scope, json, place, "depth",
        Choices<PixelDepth>{{"uint8", UInt8}, {"uint16", UInt16}, {"half", Half}, {"float", Float}}, encoding.depth);
    Choose(scope, json, place, "colorspace",
        Choices<PictureColorSpace>{{"srgb", PictureColorSpace::Srgb}, {"linear", PictureColorSpace::Linear}},
        encoding.colorSpace);
    const DataType* const type = scope.outputTypes.back().Get();
    if (encoding.content == PictureContent::Normal && type != TypeOf<Vector>() && type != TypeOf<Color>() &&
        type != TypeOf<ColorA>())
        scope.diagnostics.Fault(place + ".encoding", fmt::format("a {} is no normal", TypeName(type)));
    const bool isData = encoding.content == PictureContent::Data || encoding.content == PictureContent::Normal;
    if (isData && encoding.colorSpace == PictureColorSpace::Srgb)
        scope.diagnostics.Fault(
            place + ".colorspace", "srgb is for colours, which the encoding says that these are not");
    if (json.Find("encoding") || json.Find("depth") || json.Find("colorspace"))
        scope.document.encodings.emplace(name, encoding);
}

// Whether a member of the outputs is a remark, and not an output of that name.
bool IsCommentOfOutputs(const DocumentScope& scope, const std::string& name, const Json& json)
{
    return IsComment(name, json) &&
           !(json.IsString() && scope.indexOf.contains(json.AsString().substr(0, json.AsString().find('.'))));
}

void ReadOutputs(DocumentScope& scope, const Json* outputs)
{
    if (!outputs)
        return scope.diagnostics.Fault("outputs", "is missing");
    if (!outputs->IsObject())
        return scope.diagnostics.Fault("outputs", fmt::format("expected an object, got {}", outputs->Description()));
    if (outputs->GetMembers().empty())
        scope.diagnostics.Fault("outputs", "is empty; a graph has at least one output");
    if (!HasFewElements(scope, *outputs, "outputs"))
        return;
    for (const auto& [name, json] : outputs->GetMembers())
    {
        if (scope.diagnostics.IsFull())
            return;
        if (IsCommentOfOutputs(scope, name, json))
            continue;
        const std::string place = Join("outputs", name);
        if (!IsName(name, ".-"))
            scope.diagnostics.Fault(place, "a name is letters, digits and _, not starting with a digit, with . and - "
                                           "allowed inside, and at most 256 long");
        CoreOutput output;
        output.name = name;
        if (!ReadOutputSource(scope, json, place, output))
            continue;
        if (json.IsObject())
            ReadEncoding(scope, json, place, name);
        scope.document.graph.outputs.push_back(std::move(output));
    }
}

// A root with the context and the outputs, for people who look at the graph.
void MakeRoot(DocumentScope& scope)
{
    scope.document.root = MakeNodeSystem();
    if (!scope.document.root)
        throw std::bad_alloc();
    const MutableRoot root(scope.document.root);
    MutablePort inputs;
    MutablePort outputs;
    MutablePort port;
    Result made = root.GetInputs(inputs);
    if (made.IsOk())
        made = inputs.AddPort("context", port);
    if (made.IsOk())
        made = root.GetOutputs(outputs);
    for (const CoreOutput& output : scope.document.graph.outputs)
    {
        Id id;
        if (made.IsOk())
            made = Id::Create(output.name, id);
        if (made.IsOk())
            made = outputs.AddPort(id, port);
    }
    constexpr std::string_view kSetUp = "net.velto.shadernode.SetupContext";
    if (made.IsOk() && HasRootFunction(kSetUp))
        made = CallRootFunction(kSetUp, root);
    if (made.IsError())
        scope.diagnostics.Fault("", made.Message());
}

// What the graph keeps of the document: the parameters, and the types that its inputs point into.
struct DocumentTypes
{
    std::shared_ptr<NodeCatalog> catalog;
    DocumentLibrary library;
    std::vector<DocumentParameter> parameters;
};

void NameParameters(const std::vector<DocumentParameter>& parameters, CoreGraph& graph)
{
    for (const DocumentParameter& parameter : parameters)
    {
        const NodePort& port = parameter.port;
        graph.parameters.push_back({port.name, port.type.Get(), port.values.empty() ? nullptr : &port.values});
    }
}

} // namespace

bool ParseSetting(std::string_view text, Setting& setting)
{
    const auto equals = text.find('=');
    if (equals == text.npos || equals == 0)
        return false;
    const std::string_view name = text.substr(0, equals);
    const auto dot = name.find('.');
    if (dot == 0 || dot + 1 == name.size())
        return false;
    setting.node = dot == name.npos ? std::string_view() : name.substr(0, dot);
    setting.port = dot == name.npos ? name : name.substr(dot + 1);
    const std::string_view value = text.substr(equals + 1);
    Diagnostics ignored;
    if (!ReadJson(value, setting.value, ignored) || ignored.HasFaults())
        setting.value = Json(value);
    return true;
}

void ReadContents(DocumentScope& scope, const Json& root)
{
    Diagnostics& diagnostics = scope.diagnostics;
    if (!root.IsObject())
        return diagnostics.Fault("", fmt::format("expected an object, got {}", root.Description()));
    CheckKeys(scope, root, "", {"version", "nodes", "outputs", "material", "parameters", "presets", "ui", "$schema"});
    CheckInterface(scope, root, "");
    if (const Json* const schema = root.Find("$schema"); schema && !schema->IsString())
        diagnostics.Fault("$schema", fmt::format("expected a string, got {}", schema->Description()));
    const Json* const version = root.Find("version");
    if (!version)
        diagnostics.Fault("version", "is missing; this host reads version 1");
    else if (!version->IsInteger() || version->AsInteger() != 1)
        diagnostics.Fault("version", fmt::format("expected 1, got {}", version->Description()));
    ReadParameters(scope, root);
    if (!ReadNodes(scope, root.Find("nodes")))
        return;
    CheckSettings(scope);
    MakeCoreNodes(scope);
    for (std::size_t i = 0; i < scope.nodes.size() && !diagnostics.IsFull(); ++i)
    {
        if (scope.nodes[i].type)
            ReadInputs(scope, scope.nodes[i]);
    }
    if (root.Find("outputs") || !root.Find("material"))
        ReadOutputs(scope, root.Find("outputs"));
    ReportCycle(scope);
}

bool ReadDocument(const Json& json, const std::shared_ptr<NodeCatalog>& catalog, const DocumentOptions& options,
    Diagnostics& diagnostics, GraphDocument& document)
{
    const std::shared_ptr<DocumentTypes> types(
        new DocumentTypes{catalog, {catalog, options.places, options.limits}, {}});
    DocumentScope scope{*catalog, types->library, options, diagnostics, document};
    ReadContents(scope, json);
    if (const Json* const material = json.Find("material"))
        ReadMaterial(scope, *material);
    else if (!diagnostics.HasFaults())
        MakeRoot(scope);
    WarnOfUnused(scope);
    types->parameters = std::move(scope.parameters);
    NameParameters(types->parameters, document.graph);
    document.files = types->library.Files();
    document.types = types;
    return !diagnostics.HasFaults();
}

std::shared_ptr<const NodeType> ReadDocumentType(const std::string& file, const std::shared_ptr<NodeCatalog>& catalog,
    const DocumentPlaces& places, Diagnostics& diagnostics)
{
    const auto library = std::make_shared<DocumentLibrary>(catalog, places, GraphLimits());
    const NodeType* const type = library->Find(file, false, "", diagnostics);
    return {library, type};
}

} // namespace velto::host

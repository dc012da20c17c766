#include "schema.h"

#include "host/graph/values.h"
#include "host/registry/datatypes.h"
#include "host/registry/registry.h"
#include "velto/bsdf.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <ostream>

namespace velto::cli
{

using host::Json;
using host::NodePort;
using host::NodeType;

namespace
{

constexpr const char* kName = "^[A-Za-z_][A-Za-z0-9_]{0,255}$";
constexpr const char* kOutputName = "^[A-Za-z_]([A-Za-z0-9_.-]{0,254}[A-Za-z0-9_])?$";
constexpr const char* kOutputOfNode = "^[A-Za-z_][A-Za-z0-9_]{0,255}\\..+$";
constexpr Int kMostElements = 10'000;

using Members = std::initializer_list<std::pair<std::string_view, Json>>;

Json ObjectOf(Members members)
{
    Json json = Json::Object();
    for (const auto& [name, member] : members)
        json.Add(name, member);
    return json;
}

Json ListOf(std::initializer_list<Json> elements)
{
    Json json = Json::Array();
    for (const Json& element : elements)
        json.Append(element);
    return json;
}

template <class Texts>
Json TextsOf(const Texts& texts)
{
    Json json = Json::Array();
    for (const auto& text : texts)
        json.Append(Json(std::string_view(text)));
    return json;
}

Json Reference(std::string_view definition)
{
    return ObjectOf({{"$ref", fmt::format("#/$defs/{}", definition)}});
}

Json TypeIs(const char* type)
{
    return ObjectOf({{"type", type}});
}

Json Requires(const char* member)
{
    return ObjectOf({{"required", TextsOf(std::vector{member})}});
}

Json Described(Json json, const char* description)
{
    json.Add("description", description);
    return json;
}

// What `condition` holds for is `then`, anything else is `otherwise`. An editor says what is wrong with the one that it
// is, where a choice would say that it is none of several.
Json Choice(Json condition, Json then, Json otherwise)
{
    return ObjectOf({{"if", std::move(condition)}, {"then", std::move(then)}, {"else", std::move(otherwise)}});
}

// An object with these members, and comments.
Json ClosedObject(Json properties, Json required = Json::Array())
{
    properties.Add("comment", Reference("comment"));
    Json json = ObjectOf({{"type", "object"}, {"properties", std::move(properties)}, {"additionalProperties", false}});
    if (!required.Elements().empty())
        json.Add("required", std::move(required));
    return json;
}

// An object whose members people name; one that is called `comment` may be a comment.
Json NamedMembers(const char* pattern, std::string_view member, Int most)
{
    return ObjectOf({{"type", "object"}, {"propertyNames", ObjectOf({{"pattern", pattern}})},
        {"properties", ObjectOf({{"comment", Choice(TypeIs("object"), Reference(member), Json(true))}})},
        {"additionalProperties", Reference(member)}, {"maxProperties", most}});
}

Json Number(const Json& minimum, const Json& maximum)
{
    Json number = TypeIs("number");
    if (minimum.IsNumber())
        number.Add("minimum", minimum);
    if (maximum.IsNumber())
        number.Add("maximum", maximum);
    return Choice(
        TypeIs("string"), ObjectOf({{"enum", TextsOf(std::vector{"nan", "inf", "-inf"})}}), std::move(number));
}

template <class T>
Json Integer(const Json& minimum, const Json& maximum)
{
    const auto limit = [](const Json& stated, T ofType) { return stated.IsNumber() ? stated : Json(Int(ofType)); };
    return ObjectOf({{"type", "integer"}, {"minimum", limit(minimum, std::numeric_limits<T>::min())},
        {"maximum", limit(maximum, std::numeric_limits<T>::max())}});
}

Json Components(std::size_t count, const Json& minimum, const Json& maximum)
{
    const auto of = [](const Json& limit, std::size_t i) {
        return limit.IsArray() ? i < limit.Elements().size() ? limit.Elements()[i] : Json() : limit;
    };
    Json items = Json::Array();
    for (std::size_t i = 0; i < count; ++i)
        items.Append(Number(of(minimum, i), of(maximum, i)));
    return ObjectOf({{"type", "array"}, {"prefixItems", std::move(items)}, {"items", false}, {"minItems", Int(count)}});
}

// A value that stands in a document itself.
Json Value(const DataType* type, const Json& minimum = {}, const Json& maximum = {})
{
    if (type == host::TypeOf<Float>() || type == host::TypeOf<TimeValue>())
        return Number(minimum, maximum);
    if (type == host::TypeOf<Int>())
        return Integer<Int>(minimum, maximum);
    if (type == host::TypeOf<Int32>() || type == host::TypeOf<RenderMode>())
        return Integer<Int32>(minimum, maximum);
    if (type == host::TypeOf<UInt32>())
        return Integer<UInt32>(minimum, maximum);
    if (type == host::TypeOf<Bool>())
        return TypeIs("boolean");
    for (const auto& [components, count] : {std::pair(host::TypeOf<ColorA>(), 4), {host::TypeOf<Color>(), 3},
             {host::TypeOf<Vector2d>(), 2}, {host::TypeOf<Vector>(), 3}, {host::TypeOf<Vector4d>(), 4}})
    {
        if (type == components)
            return Components(static_cast<std::size_t>(count), minimum, maximum);
    }
    if (host::IsSearchPathsType(type))
        return ObjectOf({{"type", "array"}, {"items", TypeIs("string")}});
    if (type == host::TypeOf<DataDictionary>())
        return Reference("arguments");
    // What is left is written as text, or not at all.
    return host::IsWritable(type) ? TypeIs("string") : Json(false);
}

// The ids of an enumeration and their last words, where those are unique.
Json Values(const NodePort& port)
{
    Json values = Json::Array();
    Json labels = Json::Array();
    std::vector<std::string_view> seen;
    const auto add = [&](std::string_view value, std::size_t i) {
        if (std::find(seen.begin(), seen.end(), value) != seen.end())
            return;
        seen.push_back(value);
        values.Append(value);
        labels.Append(i < port.valueLabels.size() ? port.valueLabels[i] : std::string());
    };
    for (std::size_t i = 0; i < port.values.size(); ++i)
    {
        const std::string_view value = port.values[i];
        const std::string_view word = value.substr(value.rfind('.') + 1);
        if (host::FindValue(word, port.values) == value)
            add(word, i);
    }
    for (std::size_t i = 0; i < port.values.size(); ++i)
        add(port.values[i], i);
    if (port.type.Get() == host::TypeOf<Id>())
        add("", port.values.size()); // the node does without
    return ObjectOf({{"enum", std::move(values)}, {"enumDescriptions", std::move(labels)}});
}

// What one element of an input takes: a link, a parameter or a value.
Json Source(const NodePort& port)
{
    const DataType* const yields = host::FunctionResultType(port.type.Get());
    const DataType* const type = yields ? yields : port.type.Get();
    Json value = port.values.empty() ? Value(type, port.minimum, port.maximum) : Values(port);
    if (type == host::TypeOf<DataDictionary>())
        return ObjectOf({{"anyOf", ListOf({Reference("link"), std::move(value)})}});
    return Choice(TypeIs("object"), Reference("link"), std::move(value));
}

void AddTexts(const NodePort& port, Json& json)
{
    if (!port.label.empty())
        json.Add("title", port.label);
    if (!port.help.empty())
        json.Add("description", port.help);
    if (!port.shownDefault.IsNull())
        json.Add("default", port.shownDefault);
}

Json Input(const NodePort& port)
{
    Json json;
    if (port.IsBundle())
    {
        Json members = Json::Object();
        for (const NodePort& member : port.members)
        {
            Json element = Source(member); // one of its values, as there is one in each object
            AddTexts(member, element);
            members.Add(member.name, std::move(element));
        }
        json = ObjectOf({{"type", "array"}, {"items", ClosedObject(std::move(members))}, {"maxItems", kMostElements}});
    }
    else if (port.isVariadic && port.namedBy.empty())
        json = ObjectOf({{"type", "array"}, {"items", Source(port)}, {"maxItems", kMostElements}});
    else
        json = Source(port);
    AddTexts(port, json);
    return json;
}

// The inputs of a node. Those that its arguments make cannot be told.
Json Inputs(const NodeType& type)
{
    Json properties = Json::Object();
    Json patterns = Json::Object();
    std::map<std::string, Json> families; // of `x[0]`, `x[1]`: what `x` takes
    for (const NodePort& port : type.ports)
    {
        if (!port.input)
            continue;
        if (!port.namedBy.empty())
        {
            patterns.Add(fmt::format("^{}#", port.name), Source(port));
            continue;
        }
        properties.Add(port.name, Input(port));
        const auto bracket = port.name.find('[');
        if (bracket != port.name.npos)
            families.try_emplace(port.name.substr(0, bracket), Json::Array()).first->second.Append(Source(port));
    }
    for (auto& [name, elements] : families)
        properties.Add(name, ObjectOf({{"type", "array"}, {"prefixItems", std::move(elements)}, {"items", false}}));
    if (!properties.Find("comment"))
        properties.Add("comment", Reference("comment"));
    Json json = ObjectOf({{"type", "object"}, {"properties", std::move(properties)}});
    if (!patterns.GetMembers().empty())
        json.Add("patternProperties", std::move(patterns));
    json.Add("additionalProperties", !type.isDescribed && !type.arguments.empty() ? Reference("source") : Json(false));
    return json;
}

// The arguments that a node is built from.
Json Arguments(const NodeType& type, const host::NodeCatalog& catalog)
{
    std::vector<std::string> known = type.arguments;
    for (const host::InnerNode& inner : type.inner)
    {
        const bool isMade = type.isDescribed && !type.isDocument && !inner.forwarded;
        if (const std::shared_ptr<const NodeType> core = isMade ? catalog.Core(inner.type) : nullptr)
            known.insert(known.end(), core->arguments.begin(), core->arguments.end());
    }
    Json properties = Json::Object();
    for (const std::string& name : known)
    {
        if (!properties.Find(name))
            properties.Add(name, Reference("argument"));
    }
    return ClosedObject(std::move(properties));
}

class SchemaWriter
{
public:
    SchemaWriter(
        const host::NodeCatalog& catalog, const std::map<std::string, std::shared_ptr<const NodeType>>& documents)
        : catalog_(catalog)
    {
        for (const auto& type : catalog.Described())
        {
            std::vector<std::string> names{type->id};
            const auto isNamesake = [&](const auto& other) { return other->name == type->name; };
            if (std::count_if(catalog.Described().begin(), catalog.Described().end(), isNamesake) == 1 &&
                type->name != type->id)
                names.insert(names.begin(), type->name);
            AddNode(*type, names, "inputs." + type->id);
        }
        for (const std::string& id : host::EntryNames(registry::kCoreNodes.View()))
        {
            const std::shared_ptr<const NodeType> type = catalog.Core(id);
            if (type && !IsKnown(id))
                AddNode(*type, {id}, "inputs." + id);
        }
        for (const auto& [name, type] : documents)
        {
            if (!IsKnown(name))
                AddNode(*type, {name}, fmt::format("document.{}", inputs_.size()));
        }
    }

    Json Write()
    {
        Json definitions = Definitions();
        for (auto& [name, json] : inputs_)
            definitions.Add(name, std::move(json));
        Json properties = Json::Object();
        const auto add = [&properties](const char* name, Json member, const char* description) {
            properties.Add(name, Described(std::move(member), description));
        };
        add("$schema", TypeIs("string"), "The address of this schema, for editors.");
        add("version", ObjectOf({{"const", Int(1)}}), "The version of the format.");
        add("parameters", NamedMembers(kName, "parameter", kMostElements),
            "Values that have names: for people to turn, and inputs where the document is a node.");
        add("presets", NamedMembers(kName, "preset", kMostElements), "Values of parameters that go together.");
        add("nodes", NamedMembers(kName, "node", 100'000), "The nodes, by the names that links use.");
        add("outputs", Outputs(), "What is baked: ports of nodes, by name.");
        add("material", Reference("material"), "A material, each channel of which is an output.");
        properties.Add("ui", Reference("ui"));
        Json json = ObjectOf({{"$schema", "https://json-schema.org/draft/2020-12/schema"},
            {"title", "Graph document of velto " VELTO_VERSION}});
        const Json closed = ClosedObject(std::move(properties), TextsOf(std::vector{"version", "nodes"}));
        for (const auto& [name, member] : closed.GetMembers())
            json.Add(name, member);
        json.Add("anyOf", ListOf({Requires("outputs"), Requires("material")}));
        json.Add("$defs", std::move(definitions));
        return json;
    }

private:
    bool IsKnown(const std::string& name) const
    {
        return std::any_of(names_.Elements().begin(), names_.Elements().end(),
            [&](const Json& known) { return known.AsString() == name; });
    }

    void AddNode(const NodeType& type, const std::vector<std::string>& names, std::string definition)
    {
        for (const std::string& name : names)
        {
            names_.Append(Json(name));
            helps_.Append(Json(type.help));
        }
        Json condition = ObjectOf({{"properties", ObjectOf({{"type", ObjectOf({{"enum", TextsOf(names)}})}})},
            {"required", ListOf({Json("type")})}});
        Json inputs = Reference(definition);
        Json then = ObjectOf(
            {{"properties", ObjectOf({{"inputs", std::move(inputs)}, {"arguments", Arguments(type, catalog_)}})}});
        conditions_.Append(ObjectOf({{"if", std::move(condition)}, {"then", std::move(then)}}));
        inputs_.emplace_back(std::move(definition), Inputs(type));
    }

    Json Definitions() const
    {
        Json json = Json::Object();
        json.Add("comment",
            Described(ObjectOf({{"type", TextsOf(std::vector{"string", "array"})}, {"items", TypeIs("string")}}),
                "A text for people, or several. No command heeds it."));
        json.Add("ui", ObjectOf({{"type", "object"}, {"description", "What tools keep. No command heeds it."}}));
        json.Add("argument", ObjectOf({{"type", TextsOf(std::vector{"number", "boolean", "string", "array"})},
                                 {"items", TypeIs("string")}}));
        json.Add("arguments", ObjectOf({{"type", "object"}, {"additionalProperties", Reference("argument")}}));
        json.Add("port", ObjectOf({{"type", "string"}, {"pattern", kOutputOfNode}}));
        json.Add("link", Link());
        json.Add("source", Choice(TypeIs("object"), Reference("link"), Json(true)));
        json.Add("parameter", Parameter());
        json.Add("preset", ObjectOf({{"type", "object"}}));
        json.Add("node", Node());
        json.Add("output", Output());
        json.Add("material", Material());
        return json;
    }

    static Json Link()
    {
        Json link = ClosedObject(ObjectOf({{"from", Described(Reference("port"), "The output of a node, NODE.PORT.")},
            {"parameter", Described(ObjectOf({{"type", "string"}, {"pattern", kName}}),
                              "The parameter whose value stands here.")}}));
        link.Add("oneOf", ListOf({Requires("from"), Requires("parameter")}));
        return link;
    }

    static Json Parameter()
    {
        Json types = Json::Array();
        Json conditions = Json::Array();
        std::vector<std::string> names = host::WritableTypeNames();
        for (const std::string& name : names)
        {
            const DataType* const type = host::TypeNamed(name);
            if (!type)
                continue;
            types.Append(Json(name));
            Json condition = ObjectOf({{"properties", ObjectOf({{"type", ObjectOf({{"const", name}})}})}});
            Json then =
                ObjectOf({{"properties", ObjectOf({{"default", Value(type)}})}, {"required", ListOf({"default"})}});
            conditions.Append(ObjectOf({{"if", std::move(condition)}, {"then", std::move(then)}}));
        }
        types.Append(Json("ShadingContext"));
        const Json limit =
            Choice(TypeIs("array"), ObjectOf({{"items", TypeIs("number")}, {"minItems", Int(1)}}), TypeIs("number"));
        Json json = ClosedObject(
            ObjectOf({{"type", Described(ObjectOf({{"enum", std::move(types)}}), "The type of its values.")},
                {"default", ObjectOf({{"description", "Its value where nothing else is given."}})},
                {"min", Described(limit, "The least value that makes sense; of a vector, of each number.")},
                {"max", Described(limit, "The greatest value that makes sense.")},
                {"label", Described(TypeIs("string"), "What people call it.")},
                {"help", Described(TypeIs("string"), "What it does.")},
                {"values", ObjectOf({{"type", "array"}, {"items", TypeIs("string")},
                               {"description", "Of a choice: what there is to choose."}})}}),
            ListOf({"type"}));
        json.Add("allOf", std::move(conditions));
        return json;
    }

    Json Node() const
    {
        Json known = ObjectOf({{"enum", names_}, {"enumDescriptions", helps_}});
        Json file = ObjectOf({{"pattern", "\\.json$"}, {"description", "A document as a node."}});
        Json type = ObjectOf({{"type", "string"}, {"anyOf", ListOf({std::move(known), std::move(file)})}});
        Json inputs = ObjectOf({{"type", "object"}, {"additionalProperties", Json(true)}});
        Json json = ClosedObject(
            ObjectOf({{"type", Described(std::move(type), "The name or the id of a kind of node, or a document.")},
                {"inputs", Described(std::move(inputs), "Values and links, by the names of the node's ports.")},
                {"arguments", Described(Reference("arguments"), "What the node is built from; few nodes take any.")},
                {"ui", Reference("ui")}}),
            ListOf({"type"}));
        json.Add("allOf", conditions_);
        return json;
    }

    static Json Output()
    {
        const auto choice = [](const std::vector<const char*>& words, const char* help) {
            return ObjectOf({{"enum", TextsOf(words)}, {"description", help}});
        };
        Json object = ClosedObject(
            ObjectOf({{"from", Described(Reference("port"), "The output of a node, NODE.PORT.")},
                {"encoding", choice({"color", "data", "normal"}, "How files of 8 and 16 bits hold it.")},
                {"depth", choice({"uint8", "uint16", "half", "float"}, "Of its file, where the format has it.")},
                {"colorspace", choice({"srgb", "linear"}, "Of a colour in its file.")}}),
            ListOf({"from"}));
        Json isData =
            ObjectOf({{"properties", ObjectOf({{"encoding", ObjectOf({{"enum", ListOf({"data", "normal"})}})}})},
                {"required", ListOf({"encoding"})}});
        Json linear = ObjectOf({{"properties", ObjectOf({{"colorspace", ObjectOf({{"const", "linear"}})}})}});
        object.Add("allOf", ListOf({ObjectOf({{"if", std::move(isData)}, {"then", std::move(linear)}})}));
        return Choice(TypeIs("object"), std::move(object), Reference("port"));
    }

    static Json Outputs()
    {
        Json json = NamedMembers(kOutputName, "output", kMostElements);
        json.Add("minProperties", Int(1));
        return json;
    }

    template <std::size_t N>
    static Json NamesOf(const bsdf::Name (&names)[N])
    {
        Json properties = Json::Object();
        for (const bsdf::Name& name : names)
        {
            if (name.kind == bsdf::Kind::Context || name.kind == bsdf::Kind::Layers || name.kind == bsdf::Kind::Outputs)
                continue;
            if (name.kind == bsdf::Kind::Layer)
                properties.Add(name.id, ClosedObject(ObjectOf({{"from", Reference("port")}}), ListOf({"from"})));
            else if (name.kind == bsdf::Kind::Name)
                properties.Add(name.id, ObjectOf({{"type", "string"}, {"pattern", kName}}));
            else
            {
                NodePort port;
                port.type = Ref<const DataType>::Share(TypeOf(name.kind));
                properties.Add(name.id, Source(port));
            }
        }
        return properties;
    }

    static const DataType* TypeOf(bsdf::Kind kind)
    {
        switch (kind)
        {
        case bsdf::Kind::Switch:
            return host::TypeOf<Bool>();
        case bsdf::Kind::Count:
            return host::TypeOf<Int>();
        case bsdf::Kind::Colour:
            return host::TypeOf<Color>();
        case bsdf::Kind::Direction:
            return host::TypeOf<Vector>();
        default:
            return host::TypeOf<Float>();
        }
    }

    static Json Material()
    {
        Json properties = NamesOf(bsdf::kMaterialInputs);
        const auto list = [](Json entry, const char* help) {
            return ObjectOf(
                {{"type", "array"}, {"items", std::move(entry)}, {"maxItems", kMostElements}, {"description", help}});
        };
        Json layers =
            list(ClosedObject(NamesOf(bsdf::kLayerEntry), ListOf({"bsdflayer"})), "The layers of the material.");
        layers.Add("minItems", Int(1));
        properties.Add("bsdflayers", std::move(layers));
        properties.Add("aovs",
            list(ClosedObject(NamesOf(bsdf::kOutputEntry), ListOf({"id"})), "Additional outputs, by their ids."));
        return ClosedObject(std::move(properties), ListOf({"bsdflayers"}));
    }

    const host::NodeCatalog& catalog_;
    Json names_ = Json::Array();
    Json helps_ = Json::Array();
    Json conditions_ = Json::Array();
    std::vector<std::pair<std::string, Json>> inputs_;
};

// The documents of the libraries, by their names; what is none is left out.
std::map<std::string, std::shared_ptr<const NodeType>> LibraryDocuments(
    const std::vector<std::string>& libraries, const std::shared_ptr<host::NodeCatalog>& catalog)
{
    std::map<std::string, std::shared_ptr<const NodeType>> documents;
    for (const std::string& library : libraries)
    {
        std::error_code failure;
        for (std::filesystem::directory_iterator at(library, failure), end; !failure && at != end;
             at.increment(failure))
        {
            if (at->path().extension() != ".json" || documents.contains(at->path().stem().string()))
                continue;
            host::Diagnostics ignored;
            if (auto type = host::ReadDocumentType(at->path().string(), catalog, {{}, {}, libraries}, ignored))
                documents.emplace(at->path().stem().string(), std::move(type));
        }
    }
    return documents;
}

} // namespace

Json DocumentSchema(
    const host::NodeCatalog& catalog, const std::map<std::string, std::shared_ptr<const NodeType>>& documents)
{
    return SchemaWriter(catalog, documents).Write();
}

int Schema(const SchemaArguments& arguments, const Streams& streams)
{
    std::shared_ptr<host::Modules> modules;
    if (!LoadModules(arguments.modules, streams, modules))
        return kFailed;
    const auto catalog = std::make_shared<host::NodeCatalog>();
    std::vector<std::string> libraries = arguments.libraries;
    AddLibraries(libraries);
    streams.out << DocumentSchema(*catalog, LibraryDocuments(libraries, catalog)).Write(true) << '\n';
    return kSuccess;
}

} // namespace velto::cli

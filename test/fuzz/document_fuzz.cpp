// Graph documents that nobody ever wrote: the examples with their types, links, arguments and values changed, read,
// compiled, set up and sampled. Into an empty directory it first puts the examples.
#include "host/bake/view.h"
#include "host/host.h"
#include "host/registry/datatypes.h"
#include "host/system/output.h"
#include "host/texture/texture.h"
#include "test/fuzz/targets.h"
#include "test/support/files.h"

#include <chrono>
#include <cstring>
#include <fstream>
#include <random>

#include <paths.h>

namespace velto::test
{

namespace
{

using host::Json;
using Random = std::minstd_rand;

std::size_t Below(Random& random, std::size_t count)
{
    return count ? random() % count : 0;
}

template <class T>
const T& AnyOf(Random& random, const std::vector<T>& choices)
{
    return choices[Below(random, choices.size())];
}

// What there is to build documents of.
struct Vocabulary
{
    struct Port
    {
        std::string name;
        const DataType* type; // of a function, what it yields
        std::vector<std::string> words;
    };
    struct Type
    {
        std::string id;
        std::vector<Port> inputs;
        std::vector<Port> outputs;

        const Port* Input(std::string_view name) const
        {
            const auto found =
                std::find_if(inputs.begin(), inputs.end(), [&](const Port& port) { return port.name == name; });
            return found == inputs.end() ? nullptr : &*found;
        }
    };
    std::vector<Type> types;
    std::vector<std::string> words; // that enumerations know

    const Type* Find(std::string_view name) const
    {
        for (const Type& type : types)
        {
            if (type.id == name || (type.id.ends_with(name) && type.id[type.id.size() - name.size() - 1] == '.'))
                return &type;
        }
        return nullptr;
    }
};

const std::shared_ptr<host::Module>& TheModule()
{
    static const std::shared_ptr<host::Module> module = [] {
        host::SetOutputHandler([](auto, auto, std::string_view) {});
        host::SetResourceDirectory(VELTO_BUILD_DIR "/resource");
        host::SetTextureMemory(UInt(64) << 20);
        std::shared_ptr<host::Module> loaded;
        if (host::Module::Load(VELTO_BUILD_DIR "/modules/shadernodes.module", loaded).IsError())
            std::abort();
        return loaded;
    }();
    return module;
}

const Vocabulary& TheVocabulary()
{
    static const Vocabulary vocabulary = [] {
        TheModule();
        Vocabulary made;
        const host::NodeCatalog catalog;
        const auto add = [&](const std::string& id, const auto& ports) {
            Vocabulary::Type type{id, {}, {}};
            for (const host::NodePort& port : ports)
            {
                const DataType* const yielded = host::FunctionResultType(port.type.Get());
                (port.input ? type.inputs : type.outputs)
                    .push_back({port.name, yielded ? yielded : port.type.Get(), port.values});
                made.words.insert(made.words.end(), port.values.begin(), port.values.end());
            }
            made.types.push_back(std::move(type));
        };
        for (const auto& described : catalog.Described())
        {
            add(described->id, described->ports);
            for (const host::InnerNode& inner : described->inner)
            {
                if (const auto core = catalog.Core(inner.type); core && !made.Find(inner.type))
                    add(inner.type, core->ports);
            }
        }
        return made;
    }();
    return vocabulary;
}

// A document in pieces that can be exchanged.
struct Pieces
{
    struct Node
    {
        std::string name;
        Json type;
        Json arguments;
        Json::Members inputs;
    };
    std::vector<Node> nodes;
    Json::Members rest;

    static bool Take(const Json& document, Pieces& pieces)
    {
        const Json* const nodes = document.IsObject() ? document.Find("nodes") : nullptr;
        if (!nodes || !nodes->IsObject() || nodes->GetMembers().empty())
            return false;
        for (const auto& [name, node] : nodes->GetMembers())
        {
            if (!node.IsObject())
                return false;
            const auto member = [&node = node](const char* key) { return node.Find(key) ? *node.Find(key) : Json(); };
            pieces.nodes.push_back({name, member("type"), member("arguments"), member("inputs").GetMembers()});
        }
        for (const auto& [name, value] : document.GetMembers())
        {
            if (name != "nodes")
                pieces.rest.emplace_back(name, value);
        }
        return true;
    }

    Json Put() const
    {
        Json document = Json::Object();
        for (const auto& [name, value] : rest)
            document.Set(name, value);
        Json all = Json::Object();
        for (const Node& node : nodes)
        {
            Json made = Json::Object();
            made.Set("type", node.type);
            if (!node.arguments.IsNull())
                made.Set("arguments", node.arguments);
            Json inputs = Json::Object();
            for (const auto& [port, value] : node.inputs)
                inputs.Set(port, value);
            made.Set("inputs", inputs);
            all.Set(node.name, made);
        }
        document.Set("nodes", all);
        return document;
    }
};

Json AnyNumber(Random& random)
{
    static const std::vector<Json> numbers{0, 1, -1, 2, 3, 7, 100, 255, 4096, 65537, Int(1) << 31, Int(1) << 40,
        INT64_MAX, INT64_MIN, 0.5, -0.25, -0.0, 1e-9, 1e-300, 5e-324, 0.9999999999999999, 1e6, 1e18, 1e300,
        1.7976931348623157e308, "nan", "inf", "-inf"};
    return AnyOf(random, numbers);
}

// A link to an output, of that type if one is stated; null where none is soon found.
Json AnyLink(Random& random, const Pieces& pieces, const DataType* type = nullptr)
{
    for (int tries = 0; tries < 20; ++tries)
    {
        const Pieces::Node& node = AnyOf(random, pieces.nodes);
        const Vocabulary::Type* const made = TheVocabulary().Find(node.type.AsString());
        if (!made || made->outputs.empty())
            continue;
        const Vocabulary::Port& port = AnyOf(random, made->outputs);
        if (type && port.type != type)
            continue;
        Json link = Json::Object();
        link.Set("from", node.name + "." + port.name);
        return link;
    }
    return {};
}

Json AnyValue(Random& random, const Pieces& pieces, int depth = 0)
{
    static const std::vector<std::size_t> kLengths{0, 1, 2, 3, 4, 4, 5, 40};
    switch (Below(random, depth < 2 ? 8 : 4))
    {
    case 0:
    case 1:
        return AnyNumber(random);
    case 2:
        return AnyOf(random, TheVocabulary().words);
    case 3:
        return random() % 2 == 0;
    case 4:
    case 5:
    {
        Json array = Json::Array();
        for (std::size_t i = AnyOf(random, kLengths); i > 0; --i)
            array.Append(AnyValue(random, pieces, depth + 1));
        return array;
    }
    case 6:
        return {};
    default:
        return AnyLink(random, pieces);
    }
}

Json AnyInteger(Random& random)
{
    for (;;)
    {
        if (Json number = AnyNumber(random); number.IsInteger())
            return number;
    }
}

// A value that the port takes, most often.
Json AnyValueFor(Random& random, const Pieces& pieces, const Vocabulary::Port& port)
{
    if (random() % 32 == 0)
        return AnyValue(random, pieces);
    if (random() % 3 == 0)
    {
        if (Json link = AnyLink(random, pieces, port.type); !link.IsNull())
            return link;
    }
    const auto numbers = [&](int count) {
        Json array = Json::Array();
        for (; count > 0; --count)
            array.Append(random() % 3 ? Json(static_cast<double>(random() % 1000) / 500.0) : AnyNumber(random));
        return array;
    };
    if (port.type == host::TypeOf<Bool>())
        return random() % 2 == 0;
    if (port.type == host::TypeOf<Int>())
        return AnyInteger(random);
    if (port.type == host::TypeOf<Float>())
        return AnyNumber(random);
    if (port.type == host::TypeOf<InternedId>())
        return AnyOf(random, port.words.empty() ? TheVocabulary().words : port.words);
    if (port.type == host::TypeOf<ColorA>() || port.type == host::TypeOf<Vector4d>())
        return numbers(4);
    if (port.type == host::TypeOf<Vector>() || port.type == host::TypeOf<Color>())
        return numbers(3);
    if (port.type == host::TypeOf<Vector2d>())
        return numbers(2);
    return AnyLink(random, pieces, port.type);
}

// Changes something within a value, most often a number into one of its kind.
Json Changed(Random& random, const Json& value, const Pieces& pieces)
{
    if (random() % 32 == 0)
        return AnyValue(random, pieces);
    if (value.IsInteger() && random() % 8)
        return random() % 2 ? AnyInteger(random) : Json(static_cast<Int>(random() % 64) - 8);
    if (value.IsNumber())
        return random() % 2 ? AnyNumber(random)
                            : Json(value.AsNumber() * (static_cast<double>(random() % 4000) / 1000.0 - 1.0));
    if (value.IsBool())
        return !value.AsBool();
    if (value.IsString())
        return AnyOf(random, TheVocabulary().words);
    if (value.IsArray())
    {
        Json array = Json::Array();
        const auto& elements = value.Elements();
        const std::size_t changed = Below(random, elements.size());
        const std::size_t dropped = random() % 40 == 0 ? Below(random, elements.size()) : std::size_t(-1);
        for (std::size_t i = 0; i < elements.size(); ++i)
        {
            if (i != dropped)
                array.Append(i == changed ? Changed(random, elements[i], pieces) : elements[i]);
        }
        if (random() % 40 == 0)
            array.Append(elements.empty() ? AnyValue(random, pieces) : AnyOf(random, elements));
        return array;
    }
    if (value.IsObject() && value.Find("from"))
        return random() % 4 ? AnyLink(random, pieces, host::TypeOf<ColorA>()) : AnyLink(random, pieces);
    Json object = value.IsObject() ? value : Json::Object();
    if (const Json::Members& members = value.GetMembers(); !members.empty())
    {
        const auto& [name, member] = members[Below(random, members.size())];
        object.Set(name, Changed(random, member, pieces));
    }
    return object;
}

// Nodes of another document, under names of their own.
void Graft(Random& random, Pieces& pieces, const Pieces& other)
{
    constexpr std::size_t kMostNodes = 60;
    const std::string prefix = "g" + std::to_string(pieces.nodes.size()) + "_";
    for (Pieces::Node node : other.nodes)
    {
        if (pieces.nodes.size() >= kMostNodes)
            return;
        node.name.insert(0, prefix);
        for (auto& [port, value] : node.inputs)
        {
            const Json* const from = value.IsObject() ? value.Find("from") : nullptr;
            if (from && from->IsString())
            {
                if (random() % 16)
                    value.Set("from", prefix + from->AsString());
                else
                    value = AnyLink(random, pieces);
            }
        }
        pieces.nodes.push_back(std::move(node));
    }
}

void Mutate(Random& random, Pieces& pieces, const std::vector<Pieces>& others)
{
    const Vocabulary& vocabulary = TheVocabulary();
    Pieces::Node& node = pieces.nodes[Below(random, pieces.nodes.size())];
    const Vocabulary::Type* const type = vocabulary.Find(node.type.AsString());
    switch (random() % 12)
    {
    case 0:
        if (const Vocabulary::Type& other = AnyOf(random, vocabulary.types); true)
        {
            node.type = other.id;
            node.arguments = {};
            std::erase_if(node.inputs, [&](const auto& input) { return !other.Input(input.first); });
        }
        break;
    case 1:
        Graft(random, pieces, AnyOf(random, others));
        break;
    case 2:
    case 3:
    case 4:
        if (type && !type->inputs.empty())
        {
            const Vocabulary::Port& port = AnyOf(random, type->inputs);
            std::erase_if(node.inputs, [&](const auto& input) { return input.first == port.name; });
            node.inputs.emplace_back(port.name, AnyValueFor(random, pieces, port));
        }
        break;
    case 5:
        if (!node.arguments.IsNull())
            node.arguments = Changed(random, node.arguments, pieces);
        else if (!node.inputs.empty())
            node.inputs.erase(node.inputs.begin() + static_cast<std::ptrdiff_t>(Below(random, node.inputs.size())));
        break;
    case 6:
        for (auto& [name, value] : pieces.rest)
        {
            if (random() % (name == "material" ? 1 : 64) == 0)
                value = Changed(random, value, pieces);
        }
        break;
    case 7:
        for (auto& [name, value] : pieces.rest)
        {
            const Json link = AnyLink(random, pieces, host::TypeOf<ColorA>());
            if (name == "outputs" && value.IsObject() && link.IsObject())
                value.Set("o" + std::to_string(random() % 4), *link.Find("from"));
        }
        break;
    default:
        if (!node.inputs.empty())
        {
            auto& [name, value] = node.inputs[Below(random, node.inputs.size())];
            const Vocabulary::Port* const port = type ? type->Input(name) : nullptr;
            const bool isPlain = value.IsNumber() || value.IsBool() || value.IsArray();
            const bool isExchanged = port && (!isPlain || random() % 4 == 0);
            value = isExchanged ? AnyValueFor(random, pieces, *port) : Changed(random, value, pieces);
        }
    }
}

std::vector<std::string> Examples()
{
    std::vector<std::string> texts;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(VELTO_SOURCE_DIR "/examples"))
    {
        if (entry.path().extension() != ".json")
            continue;
        texts.push_back(ReadFile(entry.path()));
    }
    std::sort(texts.begin(), texts.end());
    return texts;
}

bool Parse(std::string_view text, Pieces& pieces)
{
    host::Diagnostics diagnostics;
    Json json;
    return host::ReadJson(text, json, diagnostics) && Pieces::Take(json, pieces);
}

// As a bake of 8 x 8 pixels samples, with a limit on the time of all.
void Sample(host::Graph& graph, host::BakeShape shape)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
    if (graph.setup->Run().IsError() || graph.program->outputs.empty())
        return;
    std::unique_ptr<host::Instance> instance;
    if (host::Instance::Create(*graph.setup, instance).IsError())
        return;
    instance->SetIndependentSamples();
    const host::BakeView view{8, 8, shape};
    for (int i = 0; i < 64 && std::chrono::steady_clock::now() < end; ++i)
    {
        if (host::FillContext(view, i % 8 + 0.5, i / 8 + 0.5, instance->Context()) && instance->Evaluate().IsError())
            return;
    }
}

} // namespace

} // namespace velto::test

using namespace velto::test;

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments)
{
    TheVocabulary();
    const std::filesystem::path last((*arguments)[*count - 1]);
    if (!std::filesystem::is_directory(last) || !std::filesystem::is_empty(last))
        return 0;
    int number = 0;
    for (const std::string& text : Examples())
        std::ofstream(last / std::to_string(number++), std::ios::binary) << text;
    return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(
    std::uint8_t* data, std::size_t size, std::size_t most, unsigned int seed)
{
    static const std::vector<Pieces> others = [] {
        std::vector<Pieces> taken;
        for (const std::string& text : Examples())
        {
            if (Pieces pieces; Parse(text, pieces))
                taken.push_back(std::move(pieces));
        }
        return taken;
    }();
    Random random(seed);
    Pieces pieces;
    if (random() % 50 == 0)
        return LLVMFuzzerMutate(data, size, most);
    if (!Parse({reinterpret_cast<const char*>(data), size}, pieces))
        pieces = AnyOf(random, others);
    for (std::size_t i = random() % 3 + 1; i > 0; --i)
        Mutate(random, pieces, others);
    const std::string text = pieces.Put().Write();
    if (text.size() > most)
        return size;
    std::memcpy(data, text.data(), text.size());
    return text.size();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    velto::host::GraphOptions options;
    options.searchPaths = {VELTO_SOURCE_DIR "/examples"};
    options.renderMode.value = static_cast<velto::Int32>(size % 3);
    velto::host::Diagnostics diagnostics;
    bool isGood = false;
    {
        velto::host::Graph graph;
        isGood = LoadGraph({reinterpret_cast<const char*>(data), size}, TheModule(), options, diagnostics, graph);
        // What takes longer by its estimate is refused by the command, or no matter of a fuzzer's.
        if (isGood && velto::host::EstimateWork(*graph.program).sum < 1e5)
            Sample(graph, size % 2 ? velto::host::BakeShape::Sphere : velto::host::BakeShape::Plane);
    }
    velto::host::DropIdleTextures();
    return isGood ? 0 : -1; // what is refused is nothing to go on from
}

#include "documentscope.h"
#include "material.h"
#include "values.h"

#include "host/system/guard.h"

#include <fmt/format.h>

#include <unordered_set>

namespace velto::host
{

namespace
{

class MaterialReader
{
public:
    explicit MaterialReader(DocumentScope& scope) : scope_(scope) {}

    void Read(const Json& json)
    {
        if (!json.IsObject())
            return scope_.diagnostics.Fault("material", fmt::format("expected an object, got {}", json.Description()));
        std::vector<std::string> known;
        for (const bsdf::Name& name : bsdf::kMaterialInputs)
        {
            if (name.kind != bsdf::Kind::Context)
                known.emplace_back(name.id);
        }
        CheckKeys(scope_, json, "material", known);
        const Json* const layers = json.Find("bsdflayers");
        const Json* const aovs = json.Find("aovs");
        if (!layers || !layers->IsArray() || layers->Elements().empty())
            scope_.diagnostics.Fault("material.bsdflayers", "a material has at least one layer: expected an array of "
                                                            "{\"active\", \"bsdflayer\", \"strength\"}");
        for (const auto& [name, value] : json.GetMembers())
        {
            const bsdf::Name* const input = FindMaterialInput(name);
            const std::string place = Join("material", name);
            if (!input || input->kind == bsdf::Kind::Context)
                continue; // said by CheckKeys
            if (input->kind == bsdf::Kind::Layers)
                ReadEntries(value, place, bsdf::kLayerEntry, [&](std::size_t i, const Json& entry) {
                    ReadLayer(entry, fmt::format("{}[{}]", place, i), fmt::format("layer{}", i + 1));
                });
            else if (input->kind == bsdf::Kind::Outputs)
                ReadEntries(value, place, bsdf::kOutputEntry,
                    [&](std::size_t i, const Json& entry) { ReadAov(entry, fmt::format("{}[{}]", place, i)); });
            else
                DriveChannel(name, name, *input, value, place);
        }
        if (scope_.diagnostics.HasFaults())
            return;
        const auto count = [](const Json* list) { return list && list->IsArray() ? list->Elements().size() : 0; };
        if (Result made = BuildMaterialRoot(count(layers), count(aovs), scope_.document.root); made.IsError())
        {
            ThrowIfOutOfMemory(made);
            return scope_.diagnostics.Fault("material", made.Message());
        }
        TakeArrivingChannels();
    }

private:
    struct Channel
    {
        std::string input;
        std::string name;
        CoreInput source;
        const DataType* type = nullptr;
        bool isNormal = false;
    };

    // Not the directions of conductors, whose three numbers are of red, green and blue.
    static bool IsNormal(std::string_view parameter) { return parameter == "normal"; }

    static bool IsActive(const Json& entry)
    {
        const Json* const active = entry.Find("active");
        return !active || !active->IsBool() || active->AsBool();
    }

    template <std::size_t N, class Visit>
    void ReadEntries(const Json& list, const std::string& place, const bsdf::Name (&members)[N], Visit&& visit)
    {
        if (!list.IsArray())
            return scope_.diagnostics.Fault(
                place, fmt::format("expected an array of objects, got {}", list.Description()));
        if (!HasFewElements(scope_, list, place))
            return;
        std::vector<std::string> known;
        for (const bsdf::Name& member : members)
            known.emplace_back(member.id);
        for (std::size_t i = 0; i < list.Elements().size(); ++i)
        {
            const Json& entry = list.Elements()[i];
            const std::string entryPlace = fmt::format("{}[{}]", place, i);
            if (!entry.IsObject())
            {
                scope_.diagnostics.Fault(entryPlace, fmt::format("expected an object, got {}", entry.Description()));
                continue;
            }
            CheckKeys(scope_, entry, entryPlace, known);
            const std::size_t channels = channels_.size();
            visit(i, entry);
            if (!IsActive(entry))
                channels_.resize(channels); // checked, and left out
        }
    }

    // `input` is the material's input through which the channel arrives.
    void DriveChannel(const std::string& input, const std::string& channel, const bsdf::Name& name, const Json& json,
        const std::string& place)
    {
        NodePort port;
        port.name = name.id;
        port.type = Ref<const DataType>::Share(TypeOfName(name));
        CoreInput source;
        if (ReadSource(scope_, material_, port, json, place, source))
            channels_.push_back({input, channel, std::move(source), port.type.Get(), IsNormal(name.id)});
    }

    // The members of an entry that are channels: links and values, not the switch that stands for itself. An output's
    // colour is the output.
    template <std::size_t N>
    void ReadMembers(const Json& entry, const std::string& place, const std::string& channel, const std::string& input,
        const bsdf::Name (&members)[N])
    {
        for (const bsdf::Name& member : members)
        {
            const Json* const value = entry.Find(member.id);
            const bool isPlainSwitch = value && member.kind == bsdf::Kind::Switch && value->IsBool();
            if (!value || isPlainSwitch || member.kind == bsdf::Kind::Layer || member.kind == bsdf::Kind::Name)
                continue;
            DriveChannel(input, member.kind == bsdf::Kind::Colour ? channel : fmt::format("{}.{}", channel, member.id),
                member, *value, fmt::format("{}.{}", place, member.id));
        }
    }

    void ReadLayer(const Json& entry, const std::string& place, const std::string& channel)
    {
        ReadMembers(entry, place, channel, "bsdflayers", bsdf::kLayerEntry);
        const Json* const link = entry.Find("bsdflayer");
        const Json* const from = link && link->IsObject() ? link->Find("from") : nullptr;
        const std::string linkPlace = place + ".bsdflayer";
        if (link && link->IsObject())
            CheckKeys(scope_, *link, linkPlace, {"from"});
        if (!from || !from->IsString())
            return scope_.diagnostics.Fault(
                linkPlace, "expected a link {\"from\": \"NODE.result\"} to a bsdflayer node");
        const NodePort* port = nullptr;
        CorePort ignored;
        std::size_t index = 0;
        if (!FindOutput(scope_, from->AsString(), linkPlace, port, ignored, index))
            return;
        if (port->type.Get() != LayerType())
            return scope_.diagnostics.Fault(linkPlace, fmt::format("{} is a {}, expected a BSDF layer",
                                                           Printable(from->AsString()), TypeName(port->type.Get())));
        for (const auto& [name, input] : scope_.nodes[index].parameters)
            channels_.push_back({"bsdflayers", fmt::format("{}.{}", channel, name), Copy(input),
                scope_.nodes[index].type->FindPort(name, true)->type.Get(), IsNormal(name)});
    }

    void ReadAov(const Json& entry, const std::string& place)
    {
        const Json* const id = entry.Find("id");
        std::string channel = "aov.";
        if (!id || !id->IsString() || !IsName(id->AsString()))
            scope_.diagnostics.Fault(place + ".id", "expected a name of letters, digits and _");
        else
            channel += id->AsString();
        if (id && IsActive(entry) && !aovs_.insert(channel).second)
            scope_.diagnostics.Fault(place + ".id", fmt::format("there are two outputs \"{}\"", id->AsString()));
        ReadMembers(entry, place, channel, "aovs", bsdf::kOutputEntry);
    }

    // What the module forwarded to the material's output is what the document drives.
    void TakeArrivingChannels()
    {
        std::unordered_set<std::string> names;
        for (const CoreOutput& output : scope_.document.graph.outputs)
            names.insert(output.name);
        for (const std::string& input : ArrivingInputs(AsHost(scope_.document.root)))
        {
            for (Channel& channel : channels_)
            {
                if (channel.input != input)
                    continue;
                if (names.contains(channel.name))
                    scope_.diagnostics.Fault(Join("outputs", channel.name), "the material has a channel of this name");
                if (channel.isNormal)
                    scope_.document.encodings[channel.name].content = PictureContent::Normal;
                scope_.document.graph.outputs.push_back({channel.name, std::move(channel.source), channel.type});
            }
        }
    }

    DocumentScope& scope_;
    DocumentNode material_; // reads, and is read by none
    std::vector<Channel> channels_;
    std::unordered_set<std::string> aovs_; // the names of their channels
};

} // namespace

void ReadMaterial(DocumentScope& scope, const Json& json)
{
    MaterialReader(scope).Read(json);
}

} // namespace velto::host

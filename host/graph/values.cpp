#include "values.h"

#include "host/registry/datatypes.h"
#include "host/registry/dictionary.h"
#include "host/text/interned.h"
#include "host/text/string.h"
#include "host/text/url.h"
#include "host/texture/texture.h"
#include "velto/bakedimagedata.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>

namespace velto::host
{

namespace
{

bool ReadFloat(const Json& json, const std::string& place, Diagnostics& diagnostics, Float& number)
{
    if (json.IsNumber())
    {
        number = json.AsNumber();
        return true;
    }
    if (json.IsString())
    {
        const std::string& text = json.AsString();
        constexpr Float inf = std::numeric_limits<Float>::infinity();
        if (text == "nan")
            number = std::numeric_limits<Float>::quiet_NaN();
        else if (text == "inf" || text == "-inf")
            number = text == "inf" ? inf : -inf;
        else
        {
            diagnostics.Fault(place, fmt::format("expected a number, got {}", json.Description()));
            return false;
        }
        return true;
    }
    diagnostics.Fault(place, fmt::format("expected a number, got {}", json.Description()));
    return false;
}

template <class T>
bool ReadInteger(const Json& json, const std::string& place, Diagnostics& diagnostics, T& number)
{
    constexpr Int low = std::numeric_limits<T>::min();
    constexpr Int high = std::numeric_limits<T>::max();
    Int value = 0;
    bool isWhole = json.IsInteger();
    if (isWhole)
        value = json.AsInteger();
    else if (json.GetKind() == Json::Kind::Real)
    {
        // 4.0 is a whole number, too.
        const Float real = json.AsNumber();
        isWhole = real == std::floor(real) && std::abs(real) < 9.0e18;
        value = isWhole ? static_cast<Int>(real) : 0;
    }
    else if (!json.IsNumber())
    {
        diagnostics.Fault(place, fmt::format("expected a whole number, got {}", json.Description()));
        return false;
    }
    if (!isWhole && json.GetKind() == Json::Kind::Real && std::abs(json.AsNumber()) < 9.0e18)
    {
        diagnostics.Fault(place, fmt::format("expected a whole number, got {}", json.Write()));
        return false;
    }
    if (!isWhole || value < low || value > high)
    {
        diagnostics.Fault(place, fmt::format("{} is out of range: expected {} to {}", json.Write(), low, high));
        return false;
    }
    number = static_cast<T>(value);
    return true;
}

bool ReadText(const Json& json, const std::string& place, Diagnostics& diagnostics)
{
    if (json.IsString())
        return true;
    diagnostics.Fault(place, fmt::format("expected a string, got {}", json.Description()));
    return false;
}

// An array of exactly as many numbers as the value has components.
bool ReadComponents(
    const Json& json, std::size_t count, const std::string& place, Diagnostics& diagnostics, Float* components)
{
    if (!json.IsArray())
    {
        diagnostics.Fault(place, fmt::format("expected {} numbers, got {}", count, json.Description()));
        return false;
    }
    if (json.Elements().size() != count)
    {
        diagnostics.Fault(place, fmt::format("expected {} numbers, got {}", count, json.Elements().size()));
        return false;
    }
    bool isGood = true;
    for (std::size_t i = 0; i < count; ++i)
        isGood = ReadFloat(json.Elements()[i], fmt::format("{}[{}]", place, i), diagnostics, components[i]) && isGood;
    return isGood;
}

template <class T>
Json WriteComponents(const void* value)
{
    Json json = Json::Array();
    const auto* const components = static_cast<const Float*>(value);
    for (std::size_t i = 0; i < sizeof(T) / sizeof(Float); ++i)
        json.Append(components[i]);
    return json;
}

template <class T>
bool ReadComponentsOf(const Json& json, const std::string& place, Diagnostics& diagnostics, T& value)
{
    return ReadComponents(json, sizeof(T) / sizeof(Float), place, diagnostics, reinterpret_cast<Float*>(&value));
}

// One field of a context, by name.
struct Field
{
    std::string_view name;
    const DataType* type;
    std::size_t offset;
};

const std::vector<Field>& ContextFields()
{
#define VELTO_FIELD(name, T)                                                                                           \
    {                                                                                                                  \
#name, TypeOf < T>(), offsetof(ShadingContext, name)                                                           \
    }
    static const std::vector<Field> fields{
        VELTO_FIELD(samplePosition, Vector),
        VELTO_FIELD(samplePositionPlusDeltaU, Vector),
        VELTO_FIELD(samplePositionPlusDeltaV, Vector),
        VELTO_FIELD(geometricNormal, Vector),
        VELTO_FIELD(secondNormal, Vector),
        VELTO_FIELD(shadingNormal, Vector),
        VELTO_FIELD(uvw, Vector),
        VELTO_FIELD(uvwPlusDeltaU, Vector),
        VELTO_FIELD(uvwPlusDeltaV, Vector),
        VELTO_FIELD(tangent, Vector),
        VELTO_FIELD(bitangent, Vector),
        VELTO_FIELD(uvwValid, Bool),
        VELTO_FIELD(subpixel, Vector2d),
        VELTO_FIELD(time, TimeValue),
        VELTO_FIELD(frameRate, Float),
        VELTO_FIELD(rayOrigin, Vector),
        VELTO_FIELD(rayDirection, Vector),
        VELTO_FIELD(rayOriginPlusDeltaU, Vector),
        VELTO_FIELD(rayOriginPlusDeltaV, Vector),
        VELTO_FIELD(rayDirectionPlusDeltaU, Vector),
        VELTO_FIELD(rayDirectionPlusDeltaV, Vector),
        VELTO_FIELD(filterOff, Bool),
    };
#undef VELTO_FIELD
    return fields;
}

// Fields whose shape no port type has.
constexpr std::string_view kOtherFields[] = {"tileModeU", "tileModeV", "pixel"};

std::vector<std::string> FieldNames()
{
    std::vector<std::string> names;
    for (const Field& field : ContextFields())
        names.emplace_back(field.name);
    for (const std::string_view name : kOtherFields)
        names.emplace_back(name);
    return names;
}

Json WriteContext(const ShadingContext& context)
{
    Json json = Json::Object();
    for (const Field& field : ContextFields())
        json.Add(field.name, WriteValue(field.type, reinterpret_cast<const std::byte*>(&context) + field.offset));
    json.Add("tileModeU", Int(context.tileModeU));
    json.Add("tileModeV", Int(context.tileModeV));
    Json pixel = Json::Array();
    pixel.Append(context.pixel[0]);
    pixel.Append(context.pixel[1]);
    json.Add("pixel", std::move(pixel));
    return json;
}

// How values of one type are read and written.
struct Codec
{
    const DataType* type;
    std::string_view name;
    bool (*read)(const Json&, const std::string&, Diagnostics&, Data&);
    Json (*write)(const void*);
};

template <class T>
bool Keep(const T& made, Data& value)
{
    ThrowIfError(value.Set(made));
    return true;
}

template <class T>
Codec NumberCodec(std::string_view name)
{
    return {TypeOf<T>(), name,
        [](const Json& json, const std::string& place, Diagnostics& diagnostics, Data& value) {
            T number{};
            if constexpr (std::is_same_v<T, Float>)
                return ReadFloat(json, place, diagnostics, number) && Keep(number, value);
            else
                return ReadInteger(json, place, diagnostics, number) && Keep(number, value);
        },
        [](const void* value) {
            if constexpr (std::is_same_v<T, Float>)
                return Json(*static_cast<const Float*>(value));
            else
                return Json(static_cast<Int>(*static_cast<const T*>(value)));
        }};
}

template <class T>
Codec ComponentsCodec(std::string_view name)
{
    return {TypeOf<T>(), name,
        [](const Json& json, const std::string& place, Diagnostics& diagnostics, Data& value) {
            T made{};
            return ReadComponentsOf(json, place, diagnostics, made) && Keep(made, value);
        },
        &WriteComponents<T>};
}

// A value made from a text.
template <class T, Result (*Make)(std::string_view, T&)>
bool ReadTextAs(const Json& json, const std::string& place, Diagnostics& diagnostics, Data& value)
{
    if (!ReadText(json, place, diagnostics))
        return false;
    T made;
    if (Result result = Make(json.AsString(), made); result.IsError())
    {
        ThrowIfOutOfMemory(result);
        diagnostics.Fault(place, result.Message());
        return false;
    }
    return Keep(made, value);
}

Result MakeInterned(std::string_view text, InternedId& id)
{
    VELTO_CHECK_ARGUMENT(text.size() <= Id::kMaxLength);
    id = Intern(text);
    return {};
}

// A text that is too long for an id is a fault.
bool MakeId(std::string_view text, const std::string& place, Diagnostics& diagnostics, Id& id)
{
    if (text.size() > Id::kMaxLength)
    {
        diagnostics.Fault(place, fmt::format("{} bytes; an id has at most {}", text.size(), Id::kMaxLength));
        return false;
    }
    ThrowIfError(Id::Create(text, id));
    return true;
}

bool ReadPaths(const Json& json, const std::string& place, Diagnostics& diagnostics, Data& value)
{
    if (!json.IsArray())
    {
        diagnostics.Fault(place, fmt::format("expected an array of strings, got {}", json.Description()));
        return false;
    }
    SearchPathsType paths;
    for (std::size_t i = 0; i < json.Elements().size(); ++i)
    {
        const Json& element = json.Elements()[i];
        Url url;
        if (!ReadText(element, fmt::format("{}[{}]", place, i), diagnostics))
            return false;
        ThrowIfError(MakeUrl(element.AsString(), url));
        ThrowIfError(paths.Append(std::move(url)));
    }
    const DataType* type = nullptr;
    ThrowIfError(DataTypeService().GetDataTypeForData(DataTypeTraits<SearchPathsType>::kId, &type));
    const Ref<const DataType> held = Ref<const DataType>::Adopt(type);
    ThrowIfError(value.Set(type, &paths));
    return true;
}

Json WritePaths(const void* value)
{
    Json json = Json::Array();
    for (const Url& url : *static_cast<const SearchPathsType*>(value))
        json.Append(Path(url));
    return json;
}

bool ReadDictionary(const Json& json, const std::string& place, Diagnostics& diagnostics, Data& value)
{
    DataDictionary dictionary;
    return ReadArguments(json, place, diagnostics, dictionary) && Keep(dictionary, value);
}

Json WriteDictionary(const void* value)
{
    const DictionaryObject* const dictionary = static_cast<const DataDictionary*>(value)->Get();
    Json json = Json::Object();
    for (Int i = 0; i < EntryCount(dictionary); ++i)
    {
        const DictionaryKey& key = EntryKey(dictionary, i);
        const Data& data = EntryData(dictionary, i);
        json.Add(key.name.IsEmpty() ? fmt::format("{}", key.number) : std::string(key.name.View()),
            WriteValue(data.Type(), data.Value()));
    }
    return json;
}

const std::vector<Codec>& Codecs()
{
    static const std::vector<Codec> codecs{
        NumberCodec<Float>("Float"),
        NumberCodec<Int>("Int"),
        NumberCodec<Int32>("Int32"),
        NumberCodec<UInt32>("UInt32"),
        {TypeOf<Bool>(), "Bool",
            [](const Json& json, const std::string& place, Diagnostics& diagnostics, Data& value) {
                if (json.IsBool())
                    return Keep(json.AsBool(), value);
                diagnostics.Fault(place, fmt::format("expected true or false, got {}", json.Description()));
                return false;
            },
            [](const void* value) { return Json(*static_cast<const Bool*>(value)); }},
        ComponentsCodec<ColorA>("ColorA"),
        ComponentsCodec<Color>("Color"),
        ComponentsCodec<Vector2d>("Vector2d"),
        ComponentsCodec<Vector>("Vector"),
        ComponentsCodec<Vector4d>("Vector4d"),
        {TypeOf<Id>(), "Id", &ReadTextAs<Id, &Id::Create>,
            [](const void* value) { return Json(static_cast<const Id*>(value)->View()); }},
        {TypeOf<InternedId>(), "InternedId", &ReadTextAs<InternedId, &MakeInterned>,
            [](const void* value) { return Json(static_cast<const InternedId*>(value)->View()); }},
        {TypeOf<TimeValue>(), "TimeValue",
            [](const Json& json, const std::string& place, Diagnostics& diagnostics, Data& value) {
                TimeValue time;
                return ReadFloat(json, place, diagnostics, time.seconds) && Keep(time, value);
            },
            [](const void* value) { return Json(static_cast<const TimeValue*>(value)->seconds); }},
        {TypeOf<RenderMode>(), "RenderMode",
            [](const Json& json, const std::string& place, Diagnostics& diagnostics, Data& value) {
                RenderMode mode;
                return ReadInteger(json, place, diagnostics, mode.value) && Keep(mode, value);
            },
            [](const void* value) { return Json(Int(static_cast<const RenderMode*>(value)->value)); }},
        {TypeOf<String>(), "String", &ReadTextAs<String, &MakeString>,
            [](const void* value) { return Json(Bytes(*static_cast<const String*>(value))); }},
        {TypeOf<Url>(), "Url",
            [](const Json& json, const std::string& place, Diagnostics& diagnostics, Data& value) {
                if (!ReadText(json, place, diagnostics))
                    return false;
                Url url;
                ThrowIfError(MakeUrlAt(json.AsString(), place, url));
                return Keep(url, value);
            },
            [](const void* value) { return Json(Path(*static_cast<const Url*>(value))); }},
        {TypeOf<LayerSet>(), "LayerSet", &ReadTextAs<LayerSet, &MakeLayerSet>,
            [](const void* value) {
                const auto& layers = *static_cast<const LayerSet*>(value);
                return Json(layers ? Bytes(layers->name) : std::string_view());
            }},
        {nullptr, "SearchPathsType", &ReadPaths, &WritePaths},
        {TypeOf<DataDictionary>(), "DataDictionary", &ReadDictionary, &WriteDictionary},
        {TypeOf<ShadingContext>(), "ShadingContext", nullptr,
            [](const void* value) { return WriteContext(*static_cast<const ShadingContext*>(value)); }},
        {TypeOf<Data>(), "Data", nullptr, nullptr},
    };
    return codecs;
}

const Codec* FindCodec(const DataType* type)
{
    for (const Codec& codec : Codecs())
    {
        if (codec.type ? codec.type == type : IsSearchPathsType(type))
            return &codec;
    }
    return nullptr;
}

} // namespace

bool IsWritable(const DataType* type)
{
    const Codec* const codec = FindCodec(type);
    return codec && codec->read;
}

const DataType* TypeNamed(std::string_view name)
{
    for (const Codec& codec : Codecs())
    {
        if (codec.name == name)
            return codec.type;
    }
    return nullptr;
}

std::vector<std::string> WritableTypeNames()
{
    std::vector<std::string> names;
    for (const Codec& codec : Codecs())
    {
        if (codec.read)
            names.emplace_back(codec.name);
    }
    return names;
}

std::string_view FindValue(std::string_view text, const std::vector<std::string>& values)
{
    std::string_view found;
    for (const std::string_view value : values)
    {
        if (value == text)
            return value;
        if (value.substr(value.rfind('.') + 1) != text || text.empty())
            continue;
        if (!found.empty())
            return {};
        found = value;
    }
    return found;
}

std::string TypeName(const DataType* type)
{
    for (const FunctionType& function : FunctionTypes())
    {
        if (function.type == type)
            return std::string(function.name);
    }
    const Codec* const codec = FindCodec(type);
    return std::string(codec ? codec->name : type->id.View());
}

bool ReadValue(const Json& json, const DataType* type, const std::string& place, Diagnostics& diagnostics, Data& value)
{
    const Codec* const codec = FindCodec(type);
    if (codec && codec->read)
        return codec->read(json, place, diagnostics, value);
    diagnostics.Fault(place, fmt::format("a {} takes a link, not a value", TypeName(type)));
    return false;
}

Json WriteValue(const DataType* type, const void* value)
{
    const Codec* const codec = FindCodec(type);
    if (codec && codec->write)
        return codec->write(value);
    Json json = Json::Object();
    json.Add("type", type->id.View());
    using pattern::twod::BakedImageDataRef;
    if (type->id == DataTypeTraits<BakedImageDataRef>::kId)
    {
        const auto& raster = *static_cast<const BakedImageDataRef*>(value);
        json.Add("width", Int(raster ? raster->width : 0));
        json.Add("height", Int(raster ? raster->height : 0));
    }
    return json;
}

bool ReadContext(const Json& json, const std::string& place, std::string_view skip, Diagnostics& diagnostics,
    ShadingContext& context)
{
    if (!json.IsObject())
    {
        diagnostics.Fault(place, fmt::format("expected an object of context fields, got {}", json.Description()));
        return false;
    }
    bool isGood = true;
    for (const auto& [name, member] : json.GetMembers())
    {
        if (name == skip)
            continue;
        const std::string memberPlace = place + "." + Printable(name);
        if (name == "tileModeU" || name == "tileModeV")
        {
            Int mode = 0;
            isGood = ReadInteger(member, memberPlace, diagnostics, mode) && isGood;
            if (mode < 0 || mode > 3)
            {
                diagnostics.Fault(memberPlace, fmt::format("{} is out of range: expected 0 to 3", mode));
                isGood = false;
            }
            (name == "tileModeU" ? context.tileModeU : context.tileModeV) = static_cast<std::uint8_t>(mode);
            continue;
        }
        if (name == "pixel")
        {
            if (!member.IsArray() || member.Elements().size() != 2)
            {
                diagnostics.Fault(memberPlace, fmt::format("expected 2 whole numbers, got {}", member.Description()));
                isGood = false;
                continue;
            }
            for (std::size_t i = 0; i < 2; ++i)
                isGood = ReadInteger(member.Elements()[i], fmt::format("{}[{}]", memberPlace, i), diagnostics,
                             context.pixel[i]) &&
                         isGood;
            continue;
        }
        const Field* field = nullptr;
        for (const Field& candidate : ContextFields())
            field = candidate.name == name ? &candidate : field;
        Data value;
        if (!field)
        {
            diagnostics.Fault(memberPlace, "there is no such context field" + Suggestion(name, FieldNames()));
            isGood = false;
        }
        else if (ReadValue(member, field->type, memberPlace, diagnostics, value))
            std::memcpy(
                reinterpret_cast<std::byte*>(&context) + field->offset, value.Value(), field->type->operations.size);
        else
            isGood = false;
    }
    return isGood;
}

bool ReadArguments(const Json& json, const std::string& place, Diagnostics& diagnostics, DataDictionary& arguments)
{
    if (!json.IsObject())
    {
        diagnostics.Fault(place, fmt::format("expected an object, got {}", json.Description()));
        return false;
    }
    ThrowIfError(Bound<DataDictionaryInterface>().Alloc(arguments.Receive()));
    bool isGood = true;
    const auto keep = [&](const Id& key, const auto& value) { ThrowIfError(SetData(arguments, key, value)); };
    for (const auto& [name, member] : json.GetMembers())
    {
        const std::string memberPlace = place + "." + Printable(name);
        Id key;
        if (!MakeId(name, memberPlace, diagnostics, key))
            isGood = false;
        else if (member.IsInteger())
            keep(key, member.AsInteger());
        else if (member.IsNumber())
            keep(key, member.AsNumber());
        else if (member.IsBool())
            keep(key, member.AsBool());
        else if (member.IsString())
        {
            String text;
            ThrowIfError(MakeString(member.AsString(), text));
            keep(key, text);
        }
        else if (member.IsArray())
        {
            BaseArray<Id> ids;
            for (std::size_t i = 0; i < member.Elements().size(); ++i)
            {
                const Json& element = member.Elements()[i];
                const std::string elementPlace = fmt::format("{}[{}]", memberPlace, i);
                Id id;
                isGood = ReadText(element, elementPlace, diagnostics) &&
                         MakeId(element.AsString(), elementPlace, diagnostics, id) && isGood;
                ThrowIfError(ids.Append(std::move(id)));
            }
            keep(key, ids);
        }
        else
        {
            diagnostics.Fault(memberPlace,
                fmt::format("expected a number, a string or an array of strings, got {}", member.Description()));
            isGood = false;
        }
    }
    return isGood;
}

} // namespace velto::host

#include "documentscope.h"
#include "values.h"

#include "host/corenode/convert.h"
#include "host/registry/datatypes.h"
#include "host/system/guard.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto::host
{

namespace
{

std::vector<std::string> ParameterNames(const DocumentScope& scope)
{
    std::vector<std::string> names;
    for (const DocumentParameter& parameter : scope.parameters)
        names.push_back(parameter.port.name);
    return names;
}

// `min` or `max`: a number, or one for each component.
void ReadLimit(DocumentScope& scope, const Json& json, const char* name, const std::string& place, Json& limit)
{
    const Json* const given = json.Find(name);
    if (!given)
        return;
    const auto& elements = given->Elements();
    const auto isNumber = [](const Json& element) { return element.IsNumber(); };
    if (given->IsNumber() || (!elements.empty() && std::all_of(elements.begin(), elements.end(), isNumber)))
        limit = *given;
    else
        scope.diagnostics.Fault(
            Join(place, name), fmt::format("expected a number, or an array of numbers, got {}", given->Description()));
}

void ReadText(DocumentScope& scope, const Json& json, const char* name, const std::string& place, std::string& text)
{
    const Json* const given = json.Find(name);
    if (!given)
        return;
    if (given->IsString())
        text = given->AsString();
    else
        scope.diagnostics.Fault(Join(place, name), fmt::format("expected a string, got {}", given->Description()));
}

void ReadValues(DocumentScope& scope, const Json& json, const std::string& place, NodePort& port)
{
    const Json* const values = json.Find("values");
    if (!values)
        return;
    const auto isText = [](const Json& value) { return value.IsString(); };
    if (!values->IsArray() || !std::all_of(values->Elements().begin(), values->Elements().end(), isText))
        return scope.diagnostics.Fault(
            place + ".values", fmt::format("expected an array of strings, got {}", values->Description()));
    for (const Json& value : values->Elements())
        port.values.push_back(value.AsString());
}

// The parameter's value, with warnings for one that people would not choose.
bool ReadParameterValue(
    DocumentScope& scope, const NodePort& port, const Json& json, const std::string& place, Data& value)
{
    Data read;
    if (!ReadPortValue(scope, port, json, place, read))
        return false;
    value = std::move(read);
    return true;
}

void ReadParameter(DocumentScope& scope, const std::string& name, const Json& json)
{
    const std::string place = Join("parameters", name);
    if (!IsName(name))
        return scope.diagnostics.Fault(
            place, "a name is letters, digits and _, not starting with a digit, and at most 256 long");
    if (!json.IsObject())
        return scope.diagnostics.Fault(place, fmt::format("expected an object, got {}", json.Description()));
    if (FindParameter(scope, name))
        return; // said when it was parsed
    CheckKeys(scope, json, place, {"type", "default", "min", "max", "label", "help", "values"});
    DocumentParameter parameter;
    NodePort& port = parameter.port;
    parameter.place = place;
    port.name = port.label = name;
    ReadLimit(scope, json, "min", place, port.minimum);
    ReadLimit(scope, json, "max", place, port.maximum);
    ReadText(scope, json, "label", place, port.label);
    ReadText(scope, json, "help", place, port.help);
    ReadValues(scope, json, place, port);
    std::string typeName;
    const Json* const type = json.Find("type");
    const Json* const given = json.Find("default");
    if (!type)
        return scope.diagnostics.Fault(place + ".type", "is missing");
    ReadText(scope, json, "type", place, typeName);
    const DataType* const known = TypeNamed(typeName);
    const bool isContext = known == TypeOf<ShadingContext>();
    if (!known || (!IsWritable(known) && !isContext))
    {
        if (type->IsString())
            scope.diagnostics.Fault(
                place + ".type", fmt::format("there is no type of values \"{}\"{}", Printable(typeName),
                                     Suggestion(typeName, WritableTypeNames())));
        return;
    }
    port.type = Ref<const DataType>::Share(known);
    if (given && !isContext)
    {
        port.shownDefault = *given;
        ReadParameterValue(scope, port, *given, place + ".default", parameter.value);
    }
    else if (given)
        scope.diagnostics.Fault(place + ".default", "a context has no default; it is that of the sample");
    else if (!isContext)
        scope.diagnostics.Fault(place + ".default", "is missing");
    scope.parameters.push_back(std::move(parameter));
}

// Gives a parameter a value from outside, or from a preset.
void SetParameter(DocumentScope& scope, const std::string& name, const Json& json, const std::string& place)
{
    if (DocumentParameter* const parameter = FindParameter(scope, name))
        ReadParameterValue(scope, parameter->port, json, place, parameter->value);
    else
        scope.diagnostics.Fault(place, "there is no such parameter" + Suggestion(name, ParameterNames(scope)));
}

// All presets are checked; those asked for are applied.
void ReadPresets(DocumentScope& scope, const Json* presets)
{
    if (presets && !presets->IsObject())
        return scope.diagnostics.Fault("presets", fmt::format("expected an object, got {}", presets->Description()));
    std::vector<std::string> names;
    static const Json::Members none;
    for (const auto& [name, preset] : presets ? presets->GetMembers() : none)
    {
        if (IsComment(name, preset))
            continue;
        names.push_back(name);
        const std::string place = Join("presets", name);
        if (!IsName(name))
            scope.diagnostics.Fault(
                place, "a name is letters, digits and _, not starting with a digit, and at most 256 long");
        if (!preset.IsObject())
        {
            scope.diagnostics.Fault(place, fmt::format("expected an object, got {}", preset.Description()));
            continue;
        }
        for (const auto& [parameter, value] : preset.GetMembers())
        {
            const DocumentParameter* const found = FindParameter(scope, parameter);
            Data ignored;
            if (IsComment(parameter, value) && !found)
                continue;
            if (!found)
                SetParameter(scope, parameter, value, Join(place, parameter)); // says that there is none
            else
                ReadParameterValue(scope, found->port, value, Join(place, parameter), ignored);
        }
    }
    for (const std::string& name : scope.options.presets)
    {
        const Json* const preset = presets ? presets->Find(name) : nullptr;
        if (!preset)
            scope.diagnostics.Fault(
                fmt::format("--preset {}", Printable(name)), "there is no such preset" + Suggestion(name, names));
        else if (preset->IsObject() && !scope.diagnostics.HasFaults())
        {
            for (const auto& [parameter, value] : preset->GetMembers())
            {
                if (DocumentParameter* const found = FindParameter(scope, parameter))
                {
                    Diagnostics said; // when it was checked
                    DocumentScope quiet{scope.catalog, scope.library, scope.options, said, scope.document};
                    ReadParameterValue(quiet, found->port, value, "", found->value);
                }
            }
        }
    }
}

} // namespace

DocumentParameter* FindParameter(DocumentScope& scope, std::string_view name)
{
    const auto found = std::find_if(scope.parameters.begin(), scope.parameters.end(),
        [&](const DocumentParameter& parameter) { return parameter.port.name == name; });
    return found == scope.parameters.end() ? nullptr : &*found;
}

void ReadParameters(DocumentScope& scope, const Json& root)
{
    const Json* const parameters = root.Find("parameters");
    if (parameters && !parameters->IsObject())
        scope.diagnostics.Fault("parameters", fmt::format("expected an object, got {}", parameters->Description()));
    else if (parameters && HasFewElements(scope, *parameters, "parameters"))
    {
        for (const auto& [name, json] : parameters->GetMembers())
        {
            if (!IsComment(name, json))
                ReadParameter(scope, name, json);
        }
    }
    ReadPresets(scope, root.Find("presets"));
    for (const Setting& setting : scope.options.settings)
    {
        if (setting.node.empty())
            SetParameter(scope, setting.port, setting.value, fmt::format("--set {}", Printable(setting.port)));
    }
}

void WarnOfUnused(DocumentScope& scope)
{
    for (const DocumentParameter& parameter : scope.parameters)
    {
        if (!parameter.isUsed && !scope.diagnostics.HasFaults())
            scope.diagnostics.Warning(parameter.place, "no input takes it");
    }
}

bool ReadParameterUse(
    DocumentScope& scope, const NodePort& port, const Json& json, const std::string& place, CoreInput& input)
{
    CheckKeys(scope, json, place, {"parameter"});
    const Json& name = *json.Find("parameter");
    if (!name.IsString())
    {
        scope.diagnostics.Fault(place, fmt::format("expected the name of a parameter, got {}", name.Description()));
        return false;
    }
    DocumentParameter* const parameter = FindParameter(scope, name.AsString());
    if (!parameter)
    {
        scope.diagnostics.Fault(place, fmt::format("there is no parameter \"{}\"{}", Printable(name.AsString()),
                                           Suggestion(name.AsString(), ParameterNames(scope))));
        return false;
    }
    parameter->isUsed = true;
    const DataType* const yields = FunctionResultType(port.type.Get());
    const DataType* const wanted = yields ? yields : port.type.Get();
    const DataType* const type = parameter->port.type.Get();
    if (type != wanted && !IsConvertible(type, wanted))
    {
        scope.diagnostics.Fault(place, fmt::format("{} is a {}, which does not turn into a {}", name.AsString(),
                                           TypeName(type), TypeName(wanted)));
        return false;
    }
    // Where a parameter chooses among the values of a port, it knows them as the port does.
    if (parameter->port.values.empty() && !port.values.empty())
    {
        parameter->port.values = port.values;
        parameter->port.hasFallback = port.hasFallback;
    }
    input.origin = parameter->port.name;
    if (parameter->value.IsEmpty())
        return true;
    if (const Json known = WriteValue(type, parameter->value.Value()); known.IsString() && !port.values.empty())
        return ReadPortValue(scope, port, known, parameter->place, input.value);
    if (type == wanted)
        ThrowIfError(input.value.CopyFrom(parameter->value));
    else
        ThrowIfError(ConvertValue(parameter->value, wanted, input.value));
    return true;
}

} // namespace velto::host

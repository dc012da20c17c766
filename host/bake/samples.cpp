#include "samples.h"

#include "changes.h"

#include "host/graph/values.h"
#include "host/registry/datatypes.h"
#include "host/system/message.h"
#include "host/system/output.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <map>

namespace velto::host
{

namespace
{

struct Sample
{
    ShadingContext context;
    std::vector<InputChange> changes;
};

bool ReadSample(const Json& json, const std::string& place, const ChangeableInputs& changeable,
    Diagnostics& diagnostics, Sample& sample)
{
    sample.context.uvwValid = true;
    if (!ReadContext(json, place, "set", diagnostics, sample.context))
        return false;
    if (!json.Find("uvwPlusDeltaU"))
        sample.context.uvwPlusDeltaU = sample.context.uvw;
    if (!json.Find("uvwPlusDeltaV"))
        sample.context.uvwPlusDeltaV = sample.context.uvw;
    if (const Json* const set = json.Find("set"))
    {
        if (!set->IsObject())
        {
            diagnostics.Fault(place + ".set", fmt::format("expected an object, got {}", set->Description()));
            return false;
        }
        for (const auto& [origin, value] : set->GetMembers())
            changeable.Read(origin, value, place + ".set." + Printable(origin), diagnostics, sample.changes);
    }
    return !diagnostics.HasFaults();
}

// Collects the messages of a sample.
class Listener
{
public:
    Listener()
    {
        before_ = SetOutputHandler([this](OutputChannel channel, LogTarget, std::string_view line) {
            Json& list = channel == OutputChannel::Log ? log : channel == OutputChannel::Message ? messages : stops;
            list.Append(Json(line));
        });
    }
    ~Listener() { SetOutputHandler(std::move(before_)); }

    void MoveTo(Json& result)
    {
        const auto move = [&result](const char* name, Json& list) {
            if (!list.Elements().empty())
                result.Add(name, std::exchange(list, Json::Array()));
        };
        move("log", log);
        move("messages", messages);
        move("stops", stops);
    }

private:
    OutputHandler before_;
    Json log = Json::Array();
    Json messages = Json::Array();
    Json stops = Json::Array();
};

Json DescribeError(const Result& error, const Program& program)
{
    Json json = Json::Object();
    json.Add("kind", error.Kind());
    json.Add("message", error.Message());
    if (const std::string* const node = Instance::FailedNode(program))
        json.Add("node", *node);
    return json;
}

Json DescribeCounts(const Program& program, const std::vector<std::string>& names, const EvaluationCounts& counts)
{
    std::map<std::string_view, UInt> sums;
    for (std::size_t i = 0; i < counts.size(); ++i)
    {
        // Nodes inside a used document count for the node that uses it.
        const std::string_view name = program.nodeNames[i];
        sums[name.substr(0, name.find('/'))] += counts[i];
    }
    Json json = Json::Object();
    for (const std::string& name : names)
        json.Add(name, Json(sums[name]));
    return json;
}

} // namespace

std::set<std::string> VariableInputs(const Json& samples)
{
    std::set<std::string> inputs;
    for (const Json& sample : samples.Elements())
    {
        const Json* const set = sample.IsObject() ? sample.Find("set") : nullptr;
        if (!set || !set->IsObject())
            continue;
        for (const auto& [origin, value] : set->GetMembers())
            inputs.insert(origin);
    }
    return inputs;
}

bool EvaluateSamples(
    Graph& graph, const Json& list, bool withCounts, Diagnostics& diagnostics, Json& results, bool& anyFailed)
{
    if (!list.IsArray())
    {
        diagnostics.Fault("", fmt::format("expected an array of samples, got {}", list.Description()));
        return false;
    }
    const ChangeableInputs changeable(graph.document.graph);
    std::vector<Sample> samples(list.Elements().size());
    for (std::size_t i = 0; i < samples.size(); ++i)
        ReadSample(list.Elements()[i], fmt::format("[{}]", i), changeable, diagnostics, samples[i]);
    if (diagnostics.HasFaults())
        return false;

    const Program& program = *graph.program;
    EvaluationCounts counts(program.nodeNames.size(), 0);
    std::unique_ptr<Instance> instance;
    if (Result made = Instance::Create(*graph.setup, instance); made.IsError())
    {
        diagnostics.Fault("", made.Message());
        return false;
    }
    instance->CountInto(withCounts ? &counts : nullptr);
    graph.setup->CountInto(withCounts ? &counts : nullptr);

    anyFailed = false;
    Json entries = Json::Array();
    Listener listener;
    for (std::size_t i = 0; i < samples.size(); ++i)
    {
        std::fill(counts.begin(), counts.end(), 0);
        Result ran;
        for (const InputChange& change : samples[i].changes)
        {
            // An input that no output needs has no constant in the program.
            if (graph.setup->TypeOfConstant(change.origin) && ran.IsOk())
                ran = graph.setup->Set(change.origin, change.value);
        }
        // A failure here fails the samples that need the value, and they report it.
        if (i == 0 || !samples[i].changes.empty())
            graph.setup->Run().Ignore();
        else
            graph.setup->RunAgainIfFailed().Ignore();
        instance->Context() = samples[i].context;
        instance->Context().searchPaths = graph.searchPaths.get();
        instance->Context().renderMessages = graph.messages.get();
        if (ran.IsOk())
            ran = instance->Evaluate();
        graph.setup->CollectCounts();

        Json entry = Json::Object();
        if (ran.IsOk())
        {
            Json outputs = Json::Object();
            for (std::size_t k = 0; k < program.outputs.size(); ++k)
                outputs.Add(program.outputs[k].name, WriteValue(program.outputs[k].type, instance->Output(k)));
            entry.Add("outputs", std::move(outputs));
        }
        else
        {
            anyFailed = true;
            entry.Add("error", DescribeError(ran, program));
        }
        listener.MoveTo(entry);
        if (withCounts)
            entry.Add("evaluations", DescribeCounts(program, graph.document.nodeNames, counts));
        entries.Append(std::move(entry));
    }
    graph.setup->CountInto(nullptr);
    results = Json::Object();
    results.Add("results", std::move(entries));
    return true;
}

} // namespace velto::host

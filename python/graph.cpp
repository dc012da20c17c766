#include "graph.h"

#include "values.h"

#include "host/graph/values.h"

#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>

namespace velto::python
{

namespace
{

using host::Json;

// The directories that a variable of the environment names, with colons between them.
void AddFromEnvironment(const char* variable, std::vector<std::string>& directories)
{
    const char* const value = std::getenv(variable);
    std::string_view left = value ? value : "";
    while (!left.empty())
    {
        const std::size_t end = std::min(left.find(':'), left.size());
        if (end > 0)
            directories.emplace_back(left.substr(0, end));
        left.remove_prefix(std::min(end + 1, left.size()));
    }
}

host::GraphOptions OptionsOf(const LoadOptions& given)
{
    host::GraphOptions options;
    options.file = given.file;
    options.renderMode.value = given.renderMode;
    options.searchPaths = given.searchPaths;
    options.libraries = given.libraries;
    options.presets = given.presets;
    options.outputs = {given.outputs.begin(), given.outputs.end()};
    AddFromEnvironment("VELTO_SEARCH_PATH", options.searchPaths);
    AddFromEnvironment("VELTO_LIBRARY", options.libraries);
    if (!given.file.empty())
        options.searchPaths.push_back(std::filesystem::absolute(given.file).parent_path().string());
    for (const auto& [key, value] : given.settings)
    {
        const auto name = py::cast<std::string>(key);
        const std::size_t dot = name.find('.');
        host::Setting setting;
        setting.node = dot == name.npos ? std::string() : name.substr(0, dot);
        setting.port = dot == name.npos ? name : name.substr(dot + 1);
        setting.value = ToJson(value, name);
        options.settings.push_back(std::move(setting));
    }
    return options;
}

// Reading documents shares what the host knows of nodes.
std::mutex& LoadMutex()
{
    static std::mutex& mutex = *new std::mutex;
    return mutex;
}

std::string Names(const host::Program& program)
{
    std::string names;
    for (const host::OutputPlan& output : program.outputs)
        names += (names.empty() ? "" : ", ") + output.name;
    return names;
}

// One that can be changed, or a list or an object of such.
bool IsInput(const host::ChangeableInputs& inputs, const std::string& name)
{
    return std::any_of(inputs.All().begin(), inputs.All().end(), [&](const auto& known) {
        const std::string& origin = known.first;
        return origin.starts_with(name) &&
               (origin.size() == name.size() || origin[name.size()] == '[' || origin[name.size()] == '.');
    });
}

std::string Suggested(const host::ChangeableInputs& inputs, const std::string& name)
{
    std::vector<std::string> names;
    for (const auto& [origin, input] : inputs.All())
        names.push_back(origin);
    return host::Suggestion(name, names);
}

} // namespace

PyGraph::PyGraph(const py::object& document, const LoadOptions& options)
    : file_(options.file), isForced_(options.isForced)
{
    const Work work;
    Load(document, options);
}

void PyGraph::Load(const py::object& document, const LoadOptions& options)
{
    const std::shared_ptr<host::Modules> modules = TheModules();
    const host::GraphOptions read = OptionsOf(options);
    const bool isText = py::isinstance<py::bytes>(document);
    const std::string text = isText ? py::cast<std::string>(document) : std::string();
    const Json json = isText ? Json() : ToJson(document, "document");
    host::Diagnostics diagnostics;
    bool isGood = false;
    {
        const py::gil_scoped_release unlocked;
        const std::lock_guard lock(LoadMutex());
        isGood = isText ? host::LoadGraph(text, modules, read, diagnostics, graph_)
                        : host::LoadDocument(json, modules, read, diagnostics, graph_);
    }
    if (!isGood)
        ThrowDocumentError(file_, diagnostics);
    Warn(file_, diagnostics);
}

py::list PyGraph::Inputs()
{
    const GraphLock::Shared lock(lock_);
    std::map<std::string, const host::CoreInput*> sources;
    const auto note = [&](const host::CoreInput& input) {
        if (!input.origin.empty() && !input.value.IsEmpty())
            sources.emplace(input.origin, &input);
    };
    for (const host::CoreNode& node : graph_.document.graph.nodes)
    {
        for (const auto& [port, input] : node.inputs)
            note(input);
    }
    for (const host::CoreOutput& output : graph_.document.graph.outputs)
        note(output.source);
    py::list list;
    const host::ChangeableInputs changeable(graph_.document.graph);
    for (const auto& [name, input] : changeable.All())
    {
        const auto source = sources.find(name);
        py::object value = py::none();
        if (source != sources.end())
            value = FromValue(source->second->value.Type(), source->second->value.Value());
        py::object values = py::none();
        if (input.values && !input.values->empty())
            values = py::cast(*input.values);
        list.append(py::make_tuple(name, host::TypeName(input.type), value, values));
    }
    return list;
}

void PyGraph::ChangeInputs(const py::dict& values)
{
    const Work work;
    const GraphLock::Alone lock(lock_);
    const host::ChangeableInputs changeable(graph_.document.graph);
    host::Diagnostics diagnostics;
    std::vector<host::InputChange> changes;
    for (const auto& [key, value] : values)
    {
        const auto name = py::cast<std::string>(key);
        if (!IsInput(changeable, name))
            throw py::key_error(name + ": the document gives no value for this input" + Suggested(changeable, name));
        changeable.Read(name, ToJson(value, name), name, diagnostics, changes);
    }
    if (diagnostics.HasFaults())
        ThrowDocumentError(file_, diagnostics);
    Result changed;
    {
        const py::gil_scoped_release unlocked;
        samplers_.clear();
        isOutdated_ = true;
        changed = host::ChangeInputs(graph_, changes);
    }
    if (changed.IsError())
        ThrowEvaluationError(changed, {});
}

py::list PyGraph::Outputs()
{
    const GraphLock::Shared lock(lock_);
    py::list list;
    for (const host::OutputPlan& output : graph_.program->outputs)
        list.append(py::make_tuple(
            output.name, host::TypeName(output.type), host::NumbersOf(output.type), host::ChannelsOf(output.type)));
    return list;
}

void PyGraph::CheckDemands() const
{
    std::string complaint = isForced_ ? std::string() : host::WorkComplaint(*graph_.program, "force=True");
    if (!complaint.empty())
        ThrowEvaluationError(MakeError(error::kIllegalArgument, complaint), {});
    complaint = host::MemoryComplaint(host::MemoryDemands(graph_, {}));
    if (!complaint.empty())
        ThrowEvaluationError(MakeError(error::kOutOfMemory, complaint), {});
}

// What fails here fails the samples that need it, and is said by them.
void PyGraph::Update()
{
    const GraphLock::Alone lock(lock_);
    if (!isOutdated_)
        return;
    CheckDemands();
    std::atomic<bool> stop = false;
    graph_.setup->SetStop(&stop);
    const auto run = [&] { graph_.setup->Update().Ignore(); };
    try
    {
        RunInterruptibly(stop, run);
    }
    catch (...)
    {
        graph_.setup->SetStop(nullptr);
        throw;
    }
    graph_.setup->SetStop(nullptr);
    samplers_.clear(); // what they keep is of the values before
    isOutdated_ = false;
}

host::Sampler& PyGraph::SamplerOf(const Modes& modes)
{
    const std::lock_guard lock(samplersMutex_);
    std::unique_ptr<host::Sampler>& sampler = samplers_[modes];
    if (!sampler)
    {
        ShadingContext shared;
        shared.uvwValid = modes[0] != 0;
        shared.tileModeU = modes[1];
        shared.tileModeV = modes[2];
        shared.filterOff = modes[3] != 0;
        shared.searchPaths = graph_.searchPaths.get();
        shared.renderMessages = graph_.messages.get();
        if (const Result made = host::Sampler::Create(*graph_.setup, shared, sampler); made.IsError())
            ThrowEvaluationError(made, {});
    }
    return *sampler;
}

std::vector<std::size_t> PyGraph::ChosenOutputs(
    const std::optional<std::vector<std::string>>& names, bool forPictures) const
{
    const std::vector<host::OutputPlan>& outputs = graph_.program->outputs;
    std::vector<std::size_t> chosen;
    if (!names)
    {
        for (std::size_t i = 0; i < outputs.size(); ++i)
        {
            if (host::NumbersOf(outputs[i].type) > 0)
                chosen.push_back(i);
        }
        return chosen;
    }
    for (const std::string& name : *names)
    {
        const auto found = std::find_if(
            outputs.begin(), outputs.end(), [&](const host::OutputPlan& output) { return output.name == name; });
        if (found == outputs.end())
            throw py::value_error(
                fmt::format("outputs: there is no {}; the graph has {}", name, Names(*graph_.program)));
        if (host::NumbersOf(found->type) == 0)
            throw py::value_error(fmt::format("outputs: {} is a {}, which is no {}", name, host::TypeName(found->type),
                forPictures ? "picture" : "array of numbers"));
        chosen.push_back(static_cast<std::size_t>(found - outputs.begin()));
    }
    return chosen;
}

void AddGraph(py::module_& module)
{
    py::class_<PyGraph>(module, "Graph")
        .def(py::init(
            [](const py::object& document, const std::string& file, const py::dict& settings,
                std::vector<std::string> presets, std::vector<std::string> searchPaths,
                std::vector<std::string> libraries, std::vector<std::string> outputs, int renderMode, bool isForced) {
                return std::make_unique<PyGraph>(
                    document, LoadOptions{file, settings, std::move(presets), std::move(searchPaths),
                                  std::move(libraries), std::move(outputs), renderMode, isForced});
            }))
        .def("inputs", &PyGraph::Inputs)
        .def("change_inputs", &PyGraph::ChangeInputs)
        .def("outputs", &PyGraph::Outputs)
        .def("sample", &PyGraph::Sample)
        .def("bake", [](PyGraph& self, std::pair<int, int> size, const std::optional<std::vector<std::string>>& outputs,
                         int supersample, int threads, const std::optional<std::array<int, 4>>& crop, double time,
                         double frameRate, bool isSphere, const py::object& progress) {
            return self.Bake(
                {size.first, size.second, outputs, supersample, threads, crop, time, frameRate, isSphere}, progress);
        });
}

} // namespace velto::python

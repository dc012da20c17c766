#include "fingerprint.h"

#include "pictures.h"

#include "host/graph/values.h"
#include "host/system/guard.h"
#include "host/system/sha256.h"
#include "velto/porttypes.h"

#include "host/registry/datatypes.h"

#include <fmt/format.h>

#include <fstream>
#include <set>

namespace velto::host
{

namespace
{

void AddFile(const std::filesystem::path& file, Sha256& sum)
{
    std::ifstream stream(file, std::ios::binary);
    std::vector<char> bytes(1 << 16);
    while (stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size())) || stream.gcount() > 0)
        sum.Add(bytes.data(), static_cast<std::size_t>(stream.gcount()));
}

class Fingerprint
{
public:
    explicit Fingerprint(const Graph& graph)
    {
        if (graph.searchPaths)
        {
            const Json paths = WriteValue(TypeOf<SearchPathsType>(), graph.searchPaths.get());
            for (const Json& path : paths.Elements())
                folders_.emplace_back(path.AsString());
        }
        for (const CoreNode& node : graph.document.graph.nodes)
        {
            sum_.AddText(node.type);
            AddValue(TypeOf<DataDictionary>(), &node.arguments);
            for (const auto& [port, input] : node.inputs)
            {
                sum_.AddText(port);
                Add(input);
            }
        }
        for (const std::string& file : PictureFiles(graph))
        {
            std::error_code ignored;
            const bool isThere = std::filesystem::is_regular_file(file, ignored);
            sum_.AddText(isThere ? "+" : "-");
            if (isThere)
                AddFileOnce(file);
        }
    }

    void Add(const CoreInput& input)
    {
        sum_.AddText(input.link ? fmt::format("{}.{}", input.link->node, input.link->port) : std::string());
        sum_.AddText(input.connected ? "+" : "-");
        if (!input.value.IsEmpty())
            AddValue(input.value.Type(), input.value.Value());
    }

    void AddText(std::string_view text) { sum_.AddText(text); }
    void AddFileAt(const std::filesystem::path& file) { AddFile(file, sum_); }
    std::string Finish() { return sum_.Finish(); }

private:
    void AddValue(const DataType* type, const void* value)
    {
        sum_.AddText(TypeName(type));
        AddJson(WriteValue(type, value));
    }

    void AddJson(const Json& json)
    {
        sum_.AddText(json.Write());
        if (json.IsString())
            AddNamedFile(json.AsString());
    }

    void AddNamedFile(const std::string& name)
    {
        if (name.empty())
            return;
        std::error_code ignored;
        std::vector<std::filesystem::path> places{name};
        for (const std::filesystem::path& folder : folders_)
            places.push_back(folder / name);
        for (const std::filesystem::path& place : places)
        {
            if (std::filesystem::is_regular_file(place, ignored))
                return AddFileOnce(place);
        }
    }

    void AddFileOnce(const std::filesystem::path& file)
    {
        if (files_.insert(file).second)
            AddFile(file, sum_);
    }

    Sha256 sum_;
    std::set<std::filesystem::path> files_; // that were added
    std::vector<std::filesystem::path> folders_;
};

} // namespace

Result BakeFingerprint(const Graph& graph, std::size_t output, const BakeOptions& options,
    const std::vector<std::filesystem::path>& modules, std::string_view settings, std::string& hash)
{
    return Guarded([&]() -> Result {
        Fingerprint print(graph);
        print.AddText(settings);
        for (const std::filesystem::path& module : modules)
            print.AddFileAt(module);
        print.AddText(graph.program->outputs[output].name);
        print.Add(graph.document.graph.outputs[output].source);
        const BakeView& view = options.view;
        print.AddText(fmt::format("{} {} {} {} {} {}", view.width, view.height, static_cast<int>(view.shape),
            view.supersample, options.seconds, options.framesPerSecond));
        hash = print.Finish();
        return {};
    });
}

} // namespace velto::host

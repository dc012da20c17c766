#include "host/loader/module.h"

#include "cli/module.h"
#include "host/graph/catalog.h"
#include "host/registry/registry.h"
#include "host/system/configuration.h"
#include "host/system/output.h"
#include "test/support/eval.h"
#include "test/support/files.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include <paths.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velto::host
{

namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string FileOf(const std::string& name)
{
    return VELTO_TEST_MODULES "/" + name + ".module";
}

// What can be seen of all loaded modules.
struct Published
{
    std::map<std::string, std::vector<std::string>> registries;
    std::size_t switches;

    static Published Now()
    {
        Published now{{}, Configuration().size()};
        for (const std::string& name : RegistryNames())
        {
            if (std::vector<std::string> entries = EntryNames(name); !entries.empty())
                now.registries[name] = std::move(entries);
        }
        return now;
    }
    friend bool operator==(const Published&, const Published&) = default;
};

bool IsPublished(const std::string& node)
{
    return FindEntry(registry::kCoreNodes.View(), node) != nullptr;
}

struct Broken
{
    std::string name;
    Id kind;
    std::vector<std::string> texts;
};

class BrokenModule : public ::testing::TestWithParam<Broken>
{
};

TEST_P(BrokenModule, IsRefusedByNameAndLeavesNothing)
{
    const Published before = Published::Now();
    std::shared_ptr<Module> module;
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        const Result loaded = Module::Load(FileOf(GetParam().name), module);
        EXPECT_EQ(GetParam().kind.View(), loaded.Kind());
        for (const std::string& text : GetParam().texts)
            EXPECT_THAT(std::string(loaded.Message()), HasSubstr(text));
        EXPECT_EQ(nullptr, module);
        EXPECT_TRUE(before == Published::Now());
    }
}

INSTANTIATE_TEST_SUITE_P(Table, BrokenModule,
    ::testing::ValuesIn(std::vector<Broken>{
        {"there_is_none", error::kUnresolved, {"there_is_none.module"}},
        {"no_export", error::kIllegalArgument, {"no_export.module", "g_velto"}},
        {"foreign_stamp", error::kIllegalArgument, {"foreign_stamp.module", "4711", "21014"}},
        {"unknown_interface", error::kUnresolved, {"net.velto.test.interface.nowhere"}},
        {"unknown_method", error::kUnresolved, {"Alloc@", "net.velto.interface.system"}},
        {"unknown_framework", error::kUnresolved, {"net.velto.test.needy", "net.velto.test.framework"}},
        {"unknown_label", error::kUnresolved, {"unknown_label", ".nosuchlabel"}},
        {"cycle", error::kIllegalState, {"hen -> egg -> hen"}},
        {"entry_twice", error::kIllegalArgument, {"net.velto.test.twice", "net.velto.corenode.registry.corenodes"}},
        {"failing_step", error::kIllegalState, {"The second step does not work."}},
        {"no_records", error::kIllegalArgument, {"no_records.module", "it has no records"}},
        {"loop", error::kIllegalArgument, {"loop.module", "a record stands in a chain twice"}},
    }),
    [](const auto& info) { return info.param.name; });

class BrokenFile : public ::testing::Test
{
protected:
    ~BrokenFile() override { std::filesystem::remove(kFile); }

    void ExpectRefused(const std::string& bytes, const std::string& text)
    {
        std::ofstream(kFile, std::ios::binary) << bytes;
        ExpectRefused(text);
        std::filesystem::remove(kFile);
    }
    void ExpectRefused(const std::string& text)
    {
        std::shared_ptr<Module> module;
        const Result loaded = Module::Load(kFile, module);
        EXPECT_EQ(error::kIllegalArgument.View(), loaded.Kind()) << text;
        EXPECT_THAT(std::string(loaded.Message()), HasSubstr(text));
        EXPECT_THAT(std::string(loaded.Message()), HasSubstr(kFile));
    }

    const std::string kFile = ::testing::TempDir() + "broken" + std::to_string(getpid()) + ".module";
};

TEST_F(BrokenFile, IsRefusedBeforeItIsMapped)
{
    const std::string whole = test::ReadFile(FileOf("probe"));
    ASSERT_GT(whole.size(), 4096u);
    ExpectRefused("", "not a shared library");
    ExpectRefused("int main() {}", "not a shared library");
    std::string foreign = whole;
    foreign[18] = '\x7F'; // the machine
    ExpectRefused(foreign, "not a shared library of this machine");
    std::string entryless = whole;
    entryless[56] = '\xFF'; // the number of program headers
    entryless[57] = '\xFF';
    ExpectRefused(entryless, "the file is cut short");
    ExpectRefused(whole.substr(0, 63), "not a shared library");
    for (const std::size_t share : {1, 2, 4, 6})
        ExpectRefused(whole.substr(0, whole.size() * share / 16), "the file is cut short");
    ASSERT_EQ(0, mkfifo(kFile.c_str(), 0600)); // nobody will ever write to it
    ExpectRefused("not a regular file");
    std::filesystem::remove(kFile);
    std::filesystem::create_directory(kFile);
    ExpectRefused("not a regular file");
}

TEST(ModuleLoad, MissesItsDescriptions)
{
    SetResourceDirectory("/nowhere/at/all");
    std::shared_ptr<Module> module;
    const Result loaded = Module::Load(VELTO_BUILD_DIR "/modules/shadernodes.module", module);
    SetResourceDirectory(VELTO_BUILD_DIR "/resource");
    EXPECT_EQ(error::kUnresolved.View(), loaded.Kind());
    EXPECT_THAT(std::string(loaded.Message()), HasSubstr("/nowhere/at/all/modules/shadernodes.module"));
    EXPECT_TRUE(Module::Load(VELTO_BUILD_DIR "/modules/shadernodes.module", module).IsOk());
}

TEST(ModuleLoad, UndoesStepsInReverse)
{
    std::vector<std::string> lines;
    SetOutputHandler([&](OutputChannel, LogTarget, std::string_view line) { lines.emplace_back(line); });
    std::shared_ptr<Module> module;
    EXPECT_TRUE(Module::Load(FileOf("failing_step"), module).IsError());
    SetOutputHandler({});
    EXPECT_THAT(lines, ElementsAre("first runs", "second fails", "second ends", "first ends"));
}

class ProbeModule : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (IsPublished("net.velto.test.sum"))
            GTEST_SKIP()
                << "a test before this one keeps the probe loaded; every case is meant to have its own process";
        test::TheModule(); // graphs need it
    }
};

// What a graph of the probe's nodes gives: a sum, and the directory of its file.
std::string EvaluateProbe(const std::shared_ptr<Module>& module)
{
    constexpr std::string_view document = R"({"version": 1, "nodes": {
        "u": {"type": "net.velto.test.coordinate"},
        "pre": {"type": "net.velto.test.pre", "inputs": {"size": 3}},
        "home": {"type": "net.velto.test.home"},
        "sum": {"type": "net.velto.test.sum", "inputs": {"first": {"from": "u.result"}, "terms": [2, {"from": "pre.table"}]}}},
        "outputs": {"o": "sum.result", "home": "home.result"}})";
    Diagnostics diagnostics;
    Graph graph;
    if (!LoadGraph(document, module, {}, diagnostics, graph))
        return diagnostics.All().front().text;
    Json results;
    bool anyFailed = false;
    EvaluateSamples(graph, test::Parse(R"([{"uvw": [0.5, 0, 0]}])"), false, diagnostics, results, anyFailed);
    return test::Output(results, "o") + test::Output(results, "home");
}

// The data types that a module has worked out, as its record lists them.
std::vector<std::string> ResolvedTypes(const Module& module)
{
    std::vector<std::string> types;
    for (const ModuleRecord* record = module.Export().moduleRecords; record; record = record->nextModule)
    {
        for (const DataTypeRecord* type = record->dataTypes; type; type = type->next)
        {
            if (type->resolved)
                types.emplace_back(type->resolved->id.View());
        }
    }
    return types;
}

TEST_F(ProbeModule, PublishesUnloadsAndLoadsAgain)
{
    const Published before = Published::Now();
    for (int round = 0; round < 3; ++round)
    {
        std::shared_ptr<Module> module;
        ASSERT_TRUE(Module::Load(FileOf("probe"), module).IsOk());
        EXPECT_TRUE(IsPublished("net.velto.test.sum"));
        EXPECT_EQ(before.switches + 2, Configuration().size());
        EXPECT_EQ("probe", module->Export().moduleId.View());
        EXPECT_EQ("370\"" VELTO_TEST_MODULES "\"", EvaluateProbe(module));
        EXPECT_THAT(ResolvedTypes(*module), ::testing::Contains("net.velto.render.datatype.shadingcontext"));
        module.reset();
        EXPECT_TRUE(before == Published::Now());
    }
}

// A program keeps the module of its nodes, whoever else lets go of it.
TEST_F(ProbeModule, LivesAsLongAsItsGraphs)
{
    std::shared_ptr<Module> module;
    ASSERT_TRUE(Module::Load(FileOf("probe"), module).IsOk());
    Graph graph;
    Diagnostics diagnostics;
    ASSERT_TRUE(LoadGraph(R"({"version": 1, "nodes": {"n": {"type": "net.velto.test.count"}},
        "outputs": {"o": "n.calls"}})",
        module, {}, diagnostics, graph));
    module.reset();
    EXPECT_TRUE(IsPublished("net.velto.test.count"));
    ASSERT_TRUE(graph.setup->Run().IsOk());
    std::unique_ptr<Instance> instance;
    ASSERT_TRUE(Instance::Create(*graph.setup, instance).IsOk());
    EXPECT_TRUE(instance->Evaluate().IsOk());
    instance.reset();
    graph = {};
    EXPECT_FALSE(IsPublished("net.velto.test.count"));
}

TEST_F(ProbeModule, TakesAFileOnce)
{
    std::shared_ptr<Module> first;
    ASSERT_TRUE(Module::Load(FileOf("probe"), first).IsOk());
    const Published before = Published::Now();
    std::shared_ptr<Module> second;
    const Result again = Module::Load(FileOf("probe"), second);
    EXPECT_EQ(error::kIllegalState.View(), again.Kind());
    EXPECT_THAT(std::string(again.Message()), HasSubstr("loaded already"));
    EXPECT_TRUE(before == Published::Now());
    EXPECT_EQ("370\"" VELTO_TEST_MODULES "\"", EvaluateProbe(first));
}

class SeveralModules : public ::testing::Test
{
protected:
    // Loads them, and expects an error that names all of `texts`; nothing of them is left.
    static void ExpectRefused(
        const std::vector<std::filesystem::path>& files, const std::vector<std::string_view>& texts)
    {
        const Published before = Published::Now();
        std::shared_ptr<Modules> modules;
        const Result loaded = Modules::Load(files, modules);
        EXPECT_EQ(error::kIllegalArgument.View(), loaded.Kind());
        for (const std::string_view text : texts)
            EXPECT_THAT(std::string(loaded.Message()), HasSubstr(std::string(text)));
        EXPECT_EQ(nullptr, modules);
        EXPECT_TRUE(before == Published::Now());
    }
};

TEST_F(SeveralModules, ThatPublishOneIdAreBothNamed)
{
    const std::string shader = VELTO_BUILD_DIR "/modules/shadernodes.module";
    const std::filesystem::path copy = ::testing::TempDir() + "copy" + std::to_string(getpid()) + ".module";
    std::filesystem::copy_file(FileOf("probe"), copy);
    ExpectRefused({FileOf("probe"), copy},
        {copy.string() + ": ", FileOf("probe"), "net.velto.test.coordinate", registry::kCoreNodes.View()});
    std::filesystem::remove(copy);
    ExpectRefused({shader, FileOf("rival")},
        {FileOf("rival") + ": ", shader, "rival.module/contrast.json", "net.velto.pattern.node.effect.contrast"});
}

TEST_F(SeveralModules, AreLoadedOnceEachAndNameWhatIsTheirs)
{
    const std::string probe = FileOf("probe");
    std::shared_ptr<Modules> modules;
    ASSERT_TRUE(Modules::Load({probe, FileOf("rival"), VELTO_TEST_MODULES "/../modules/probe.module"}, modules).IsOk());
    EXPECT_EQ(2u, modules->All().size());
    EXPECT_EQ(probe, PublisherOf(registry::kCoreNodes.View(), "net.velto.test.sum"));
    EXPECT_EQ("", PublisherOf(registry::kDescriptionProcessors.View(), "net.velto.node.processor.template"));

    // Without the module that wires contexts, and in a list of its own.
    const NodeCatalog catalog;
    ASSERT_EQ(2u, catalog.Described().size()); // the layer is the host's
    EXPECT_EQ("rival", catalog.Described()[0]->module);
    EXPECT_EQ("probe", catalog.Core("net.velto.test.sum")->module);
    Graph graph;
    Diagnostics diagnostics;
    EXPECT_TRUE(LoadGraph(R"({"version": 1, "nodes": {"n": {"type": "contrast", "inputs": {"x": 3}}},
        "outputs": {"o": "n.result"}})",
        modules, {}, diagnostics, graph));
}

// --- What the shader nodes' module says of itself. ---

Json DescribeModule()
{
    std::ostringstream out;
    std::ostringstream err;
    const cli::ModuleArguments arguments{{{VELTO_BUILD_DIR "/modules/shadernodes.module"}}, true};
    EXPECT_EQ(cli::kSuccess, cli::Module(arguments, {out, err})) << err.str();
    Json json;
    Diagnostics diagnostics;
    EXPECT_TRUE(ReadJson(out.str(), json, diagnostics)); // without loading the module for good
    return json;
}

std::vector<std::string> Texts(const Json& list)
{
    std::vector<std::string> texts;
    for (const Json& element : list.Elements())
        texts.push_back(element.AsString());
    return texts;
}

void CheckDescription()
{
    const Json json = DescribeModule();
    EXPECT_EQ(0x5216, json.Find("stamp")->AsInteger());
    EXPECT_EQ("net.velto.shadernodes", Texts(*json.Find("moduleRecords")).back());

    const Json& registries = *json.Find("registries");
    EXPECT_THAT(Texts(*registries.Find(registry::kDataTypes.View())),
        ::testing::IsSupersetOf({"net.velto.render.datatype.placement2ddata",
            "net.velto.datatype.scattercachedbucketdata", "net.velto.render.datatype.bakedimagedata"}));
    EXPECT_THAT(Texts(*registries.Find(registry::kBuiltinNodes.View())),
        ElementsAre("net.velto.pattern.node.utility.passthrough"));
    for (const Json& interface : json.Find("interfaces")->Elements())
        EXPECT_EQ(interface.Find("slots")->AsInteger(), interface.Find("bound")->AsInteger()) << interface.Write();
}

TEST(ShaderNodesModule, DescribesItselfAndLoadsAgain)
{
    if (IsPublished("net.velto.render.corenode.bump"))
        GTEST_SKIP() << "a test before this one keeps the module loaded; every case is meant to have its own process";
    for (int round = 0; round < 2; ++round)
        CheckDescription();
}

// The symbols that `nm` lists, without versions.
std::vector<std::string> Symbols(const std::string& options)
{
    const std::string command = VELTO_NM " -D " + options + " " VELTO_BUILD_DIR "/modules/shadernodes.module";
    std::vector<std::string> names;
    FILE* const pipe = popen(command.c_str(), "r");
    char line[512];
    while (pipe && std::fgets(line, sizeof(line), pipe))
    {
        std::string name(line);
        name.erase(name.find_last_not_of(" \n") + 1);
        name.erase(0, name.find_last_of(' ') + 1);
        names.push_back(name);
    }
    EXPECT_TRUE(pipe && pclose(pipe) == 0) << command;
    return names;
}

TEST(ModuleFile, ExportsOneSymbolAndNeedsOnlyTheRuntimeLibraries)
{
    EXPECT_THAT(Symbols("--defined-only"), ElementsAre("g_velto"));
    if (std::string_view(VELTO_SANITIZE) != "")
        GTEST_SKIP() << "sanitizers add symbols of their own";
    for (const std::string& name : Symbols("--undefined-only"))
    {
        const bool isOptional = name.starts_with("_ITM_") || name == "__gmon_start__";
        EXPECT_TRUE(isOptional || name.find("@GLIBC_") != name.npos || name.find("@GLIBCXX_") != name.npos ||
                    name.find("@CXXABI_") != name.npos)
            << name;
    }
}

} // namespace

} // namespace velto::host

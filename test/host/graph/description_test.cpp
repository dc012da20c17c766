// What becomes of a directory of descriptions when a module that points to it is loaded.
#include "host/graph/description.h"

#include "host/loader/module.h"
#include "host/loader/services.h"
#include "host/registry/registry.h"
#include "host/system/allocator.h"
#include "host/system/output.h"
#include "host/text/url.h"
#include "test/support/files.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <paths.h>

namespace velto::host
{

namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::string_view kContrast = R"("n": {"type": "net.velto.pattern.corenode.effect.contrast"})";
constexpr std::string_view kTemplate = "net.velto.node.processor.template";

// A description, whole but for what stands in these places.
std::string Description(std::string_view id, std::string_view nodes = kContrast, std::string_view inputs = "",
    std::string_view processor = kTemplate)
{
    return fmt::format(R"({{"id": "net.velto.test.node.{}", "classification": "node", "processor": "{}", "label": "",
        "category": "", "help": "", "nodes": {{{}}}, "inputs": [{}],
        "outputs": [{{"name": "result", "from": "n.result"}}]}})",
        id, processor, nodes, inputs);
}

class DescriptionTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (FindEntry(registry::kCoreNodes.View(), "net.velto.corenode.if"))
            GTEST_SKIP() << "a test before this one keeps the module; every case is meant to have its own process";
        std::filesystem::create_directories(directory_);
        SetResourceDirectory(folder_.Path(""));
    }
    void Put(const std::string& name, std::string_view text) const { std::ofstream(directory_ / name) << text; }

    // Loads the module; `lines_` is what it says, without the folder.
    Result Load()
    {
        module_.reset();
        lines_.clear();
        SetOutputHandler([this](OutputChannel, LogTarget, std::string_view line) {
            const std::string folder = directory_.parent_path().string() + "/";
            std::string text(line);
            if (const auto at = text.find(folder); at != text.npos)
                text.erase(at, folder.size());
            lines_.push_back(std::move(text));
        });
        Result loaded = Module::Load(VELTO_BUILD_DIR "/modules/shadernodes.module", module_);
        SetOutputHandler({});
        return loaded;
    }

    static std::vector<std::string> Names()
    {
        std::vector<std::string> names;
        for (const auto& type : DescribedNodes())
            names.push_back(type->name);
        return names;
    }

    const test::TemporaryFolder folder_;
    const std::filesystem::path directory_ = folder_.Path("modules/shadernodes.module");
    std::shared_ptr<Module> module_;
    std::vector<std::string> lines_;
};

TEST_F(DescriptionTest, AMissingDirectoryIsNamed)
{
    std::filesystem::remove(directory_);
    EXPECT_THAT(std::string(Load().Message()), HasSubstr("There is no directory " + directory_.string()));
    EXPECT_THAT(lines_, IsEmpty());
    std::ofstream(directory_) << "{}";
    EXPECT_THAT(std::string(Load().Message()), HasSubstr("There is no directory"));
    EXPECT_THAT(Names(), IsEmpty());
}

// One that is wrong does not keep the others out. All that is wrong is said, at its place and once, though both
// databases are over the directory.
TEST_F(DescriptionTest, WhatIsWrongIsLeftOutWithAWarning)
{
    struct Row
    {
        std::string text;
        std::string warning; // after the file's name; empty: none
    };
    const Row rows[] = {
        {Description(
             "first", R"("n": {"type": "net.velto.pattern.corenode.string.concat", "arguments": {"strings": 2}})"),
            ""},
        {R"({"id": "a", "id": "b"})", "id: the key stands here twice"},
        {R"({"classification": "node"})", "id: is missing"},
        {R"({"id": "net.velto.test.node.other", "classification": "other"})", ""},
        {Description("processor", kContrast, "", "net.velto.test.nosuch"), ""},
        {Description("type", R"("n": {"type": "net.velto.pattern.corenode.effect.contrst"})"),
            "nodes.n.type: there is no core node \"net.velto.pattern.corenode.effect.contrst\"; did you mean "
            "\"net.velto.pattern.corenode.effect.contrast\"?"},
        {Description(
             "arguments", R"("n": {"type": "net.velto.pattern.corenode.string.concat", "arguments": {"strings": -2}})"),
            "nodes.n.arguments: The argument strings must be a number of elements, 0 or more."},
        {Description("link", R"("s": {"type": "net.velto.pattern.corenode.string.concat"}, "n": {
            "type": "net.velto.pattern.corenode.effect.contrast", "inputs": {"maskred": {"from": "s.result"}}})"),
            "nodes.n.inputs.maskred: s.result is a String, which does not turn into a Bool"},
        {Description("first"), "id: another description has this id"},
        {Description("bundle", kContrast, R"({"name": "knots", "bundle": []})"),
            "inputs[0].bundle: expected an array of ports"},
        {Description("single", kContrast, R"({"name": "knots", "bundle": [{"name": "c", "to": ["n.color"]}]})"),
            "inputs[0].bundle[0]: expected a port whose inner port takes any number of elements"},
        {Description("member", R"("n": {"type": "net.velto.pattern.corenode.string.concat"})",
             R"({"name": "texts", "bundle": [{"name": "s", "to": ["n.strings"]}], "default": [{"t": "x"}]})"),
            "inputs[0].default[0].t: the bundle has no such member"},
        {Description("unlisted", kContrast, R"({"include": "../mask", "to": "n"})"),
            "inputs[0]: there is no list \"../mask\""},
        {Description("nowhere", kContrast, R"({"include": "mask"})"), "inputs[0]: expected \"to\", one of the nodes"},
        {Description("last"), ""},
    };
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < std::size(rows); ++i)
    {
        const std::string name = fmt::format("{:02}.json", i);
        Put(name, rows[i].text);
        if (!rows[i].warning.empty())
            expected.push_back(fmt::format(
                "velto: warning: shadernodes.module/{}: {}; the description is left out", name, rows[i].warning));
    }
    Put("last.txt", "{");
    std::filesystem::create_directory(directory_ / "folder.json");
    expected.push_back(
        "velto: warning: shadernodes.module/folder.json: cannot be read: is it a file?; the description is "
        "left out");
    for (int round = 0; round < 2; ++round)
    {
        ASSERT_EQ("", Load().Message());
        EXPECT_EQ(expected, lines_);
        EXPECT_THAT(Names(), ElementsAre("first", "last"));
    }
    module_.reset();
    EXPECT_THAT(Names(), IsEmpty());
}

// A processor that writes down what it makes and what is destroyed of it.
std::vector<std::string> written;

Result WriteDown(
    const DescriptionProcessorObject*, const Id& id, const DescriptionObject*, ProcessedDescription* result)
{
    written.push_back(fmt::format("make {}", id.View()));
    if (id == Id("fails"))
        return MakeError(error::kIllegalState, "The processor does not work.");
    result->value = new std::string(id.View());
    result->destroy = [](void* value) {
        const std::unique_ptr<std::string> made(static_cast<std::string*>(value));
        written.push_back("drop " + *made);
    };
    return {};
}

TEST_F(DescriptionTest, AProcessorRunsForEachDatabaseAndItsResultsEndInReverse)
{
    Services();
    static DescriptionProcessorObject processor;
    processor.process = &WriteDown;
    processor.references = 1 << 30;
    Data data;
    ASSERT_TRUE(data.Set(DescriptionProcessor::Share(&processor)).IsOk());
    constexpr Id id("net.velto.test.processor");
    ASSERT_TRUE(RegistryService().InsertEntry(registry::kDescriptionProcessors, id, data).IsOk());
    Put("a.json", Description("a", kContrast, "", id.View()));
    Put("b.json", Description("b", kContrast, "", id.View()));
    ASSERT_EQ("", Load().Message());
    module_.reset();
    EXPECT_THAT(written, ElementsAre("make a", "make b", "make a", "make b", "drop b", "drop a", "drop b", "drop a"));

    written.clear();
    std::filesystem::rename(directory_ / "b.json", directory_ / "fails.json");
    Put("z.json", Description("z", kContrast, "", id.View()));
    const Result loaded = Load();
    EXPECT_EQ("The processor does not work.", loaded.Message());
    EXPECT_THAT(written, ElementsAre("make a", "make fails", "drop a"));
    EXPECT_FALSE(FindEntry(registry::kCoreNodes.View(), "net.velto.corenode.if"));
    EXPECT_TRUE(RegistryService().EraseEntry(registry::kDescriptionProcessors, id).IsOk());
}

// No fault of the description: nothing is left out, the load fails.
TEST_F(DescriptionTest, OutOfMemoryIsPassedOn)
{
    Put("a.json", Description("a", kContrast, R"({"name": "color", "to": ["n.color"], "default": [1, 0, 0, 1]})"));
    ASSERT_EQ("", Load().Message());
    const Data* const entry = FindEntry(registry::kDescriptionProcessors.View(), kTemplate);
    ASSERT_TRUE(entry);
    const DescriptionProcessor& processor = *entry->As<DescriptionProcessor>();
    velto::Description description;
    ASSERT_TRUE(
        DescriptionService()
            .LoadDescription("net.velto.shadernodes.module", description::kDataLanguage, "a", description.Receive())
            .IsOk());
    std::vector<std::string> lines;
    SetOutputHandler([&](OutputChannel, LogTarget, std::string_view line) { lines.emplace_back(line); });
    Int failures = 0;
    for (bool hasFailed = true; hasFailed && failures < 10'000; failures += hasFailed)
    {
        ProcessedDescription result;
        AllocationFault::FailAt(failures);
        const Result made = processor->process(processor.Get(), "a", description.Get(), &result);
        AllocationFault::Disarm();
        hasFailed = AllocationFault::Requests() > failures;
        EXPECT_EQ(made.IsOk(), result.value != nullptr) << failures;
        if (made.IsError())
            EXPECT_EQ(error::kOutOfMemory.View(), made.Kind());
        if (result.destroy)
            result.destroy(result.value);
    }
    SetOutputHandler({});
    EXPECT_GT(failures, 5);
    EXPECT_THAT(lines, IsEmpty());
}

} // namespace

} // namespace velto::host

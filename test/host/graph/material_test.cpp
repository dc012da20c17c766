// Materials as documents, and the nodes that are graphs.
#include "test/support/eval.h"

namespace velto::test
{

namespace
{

constexpr std::string_view kNodes = R"("version": 1, "nodes": {
    "board": {"type": "net.velto.pattern.corenode.generator.checkerboard", "inputs": {
        "color1": [0.25, 0.5, 0.75, 1], "color2": [0, 0, 0, 1]}},
    "pass": {"type": "passthrough", "inputs": {"color": {"from": "board.result"}}},
    "base": {"type": "bsdflayer", "inputs": {"color": {"from": "pass.passthrough"}, "roughness": 0.3}},
    "coat": {"type": "bsdflayer", "inputs": {"color": [1, 1, 1]}}})";

std::string Material(std::string_view material)
{
    return std::string("{").append(kNodes).append(", \"material\": ").append(material).append("}");
}

TEST(Material, DrivenInputsBecomeChannels)
{
    const host::Json results = EvalJson(Material(R"({
        "displacement": {"from": "board.result"}, "emission": [1, 2, 3],
        "bsdflayers": [
            {"bsdflayer": {"from": "base.result"}, "strength": {"from": "board.result"}},
            {"active": false, "bsdflayer": {"from": "coat.result"}},
            {"active": true, "bsdflayer": {"from": "coat.result"}, "strength": 0.5}],
        "aovs": [{"id": "mask", "color": [0, 1, 0]}, {"id": "mask", "color": [1, 1, 1], "active": false},
            {"active": {"from": "board.result"}, "id": "lit", "color": [1, 0, 0]}]})"),
        R"([{"uvw": [0.25, 0.25, 0]}])");
    const host::Json* const outputs = Entry(results).Find("outputs");
    ASSERT_TRUE(outputs) << results.Write();
    // Colours arrive as colours, numbers as their luminance; in the order in which they arrive at the output.
    const std::string luminance = host::WriteNumber(0.25 * 0.2125 + 0.5 * 0.7154 + 0.75 * 0.0721);
    EXPECT_EQ(outputs->Write(), R"({"layer1.strength": )" + luminance +
                                    R"(, "layer1.color": [0.25, 0.5, 0.75], "layer1.roughness": 0.3, )"
                                    R"("layer3.strength": 0.5, "layer3.color": [1, 1, 1], )"
                                    R"("emission": [1, 2, 3], "displacement": )" +
                                    luminance +
                                    R"(, "aov.mask": [0, 1, 0], "aov.lit.active": true, "aov.lit": [1, 0, 0]})");
}

TEST(Material, SamplesMayChangeTheParametersOfLayers)
{
    const host::Json results = EvalJson(Material(R"({"bsdflayers": [
        {"bsdflayer": {"from": "base.result"}}, {"bsdflayer": {"from": "base.result"}}]})"),
        R"([{}, {"set": {"base.roughness": 0.9}}])");
    EXPECT_EQ("0.3", Output(results, "layer2.roughness", 0));
    EXPECT_EQ("0.9", Output(results, "layer1.roughness", 1));
    EXPECT_EQ("0.9", Output(results, "layer2.roughness", 1));
}

TEST(Material, MayDriveNothing)
{
    host::Graph graph;
    ASSERT_TRUE(Load(R"({"version": 1, "nodes": {"idle": {"type": "bsdflayer"}},
        "material": {"bsdflayers": [{"bsdflayer": {"from": "idle.result"}}]}})",
        graph));
    EXPECT_TRUE(graph.program->outputs.empty());
    EXPECT_EQ(22u + 1u, host::DescribeNodeSystem(host::AsHost(graph.document.root)).Find("inputs")->Elements().size());
}

TEST(Material, FaultsStandAtTheirPlaces)
{
    struct Case
    {
        std::string_view material;
        std::string_view fault;
    };
    const Case cases[] = {
        {R"({"emission": [1, 1, 1]})", "material.bsdflayers: a material has at least one layer"},
        {R"({"bsdflayers": []})", "material.bsdflayers: a material has at least one layer"},
        {R"({"bsdflayers": [{"bsdflayer": {"from": "board.result"}}]})",
            "material.bsdflayers[0].bsdflayer: board.result is a ColorA"},
        {R"({"bsdflayers": [{"bsdflayer": {"from": "base.result"}}], "emision": [1, 1, 1]})",
            "material.emision: is not known here; did you mean \"emission\"?"},
        {R"({"bsdflayers": [{"bsdflayer": {"from": "base.result"}}], "normal": {"from": "pass.passthrough"}})",
            "material.normal: pass.passthrough is a ColorA, which does not turn into a Vector"},
        {R"({"bsdflayers": [{"bsdflayer": {"from": "base.result"}, "strenght": 1}]})",
            "material.bsdflayers[0].strenght: is not known here; did you mean \"strength\"?"},
        {R"({"bsdflayers": [{"bsdflayer": {"from": "base.result"}}], "alpha": "much"})",
            "material.alpha: expected a number"},
        {R"({"bsdflayers": [{"bsdflayer": {"from": "base.result", "form": 1}}]})",
            "material.bsdflayers[0].bsdflayer.form: is not known here; did you mean \"from\"?"},
        {R"({"bsdflayers": [{"active": false, "bsdflayer": {"from": "base.result"}, "strength": true}]})",
            "material.bsdflayers[0].strength: expected a number, got true"},
        {R"({"bsdflayers": [{"active": false}]})", "material.bsdflayers[0].bsdflayer: expected a link"},
        {R"({"bsdflayers": [{"bsdflayer": {"from": "base.result"}}], "aovs": [{"active": "no", "id": "a"}]})",
            "material.aovs[0].active: expected true or false, got the string \"no\""},
        {R"({"bsdflayers": [{"bsdflayer": {"from": "base.result"}}], "aovs": [{"id": "a"}, {"id": "a"}]})",
            "material.aovs[1].id: there are two outputs \"a\""},
        {R"({"bsdflayers": [{"bsdflayer": {"from": "base.result"}}], "emission": [1, 1, 1]},
            "outputs": {"emission": "board.result"})",
            "outputs.emission: the material has a channel of this name"},
    };
    for (const Case& c : cases)
        EXPECT_NE(Faults(Material(c.material)).find(c.fault), std::string::npos) << c.fault << "\n"
                                                                                 << Faults(Material(c.material));
    EXPECT_NE(Faults(R"({"version": 1, "nodes": {"base": {"type": "bsdflayer"},
        "lit": {"type": "net.velto.pattern.corenode.strength", "inputs": {"input": {"from": "base.result"}}}},
        "outputs": {"o": "lit.output"}})")
                  .find("nodes.lit.inputs.input: base.result is a net.velto.render.datatype.bsdflayer"),
        std::string::npos);
}

TEST(DescribedNodes, PassthroughHandsOnAndDefaultsToBlack)
{
    const host::Json results = EvalJson(R"({"version": 1, "nodes": {
        "a": {"type": "passthrough"},
        "b": {"type": "passthrough", "inputs": {"color": [1, 2, 3, 4]}},
        "c": {"type": "passthrough", "inputs": {"color": {"from": "b.passthrough"}}}},
        "outputs": {"a": "a.passthrough", "c": "c.passthrough"}})");
    EXPECT_EQ(Output(results, "a"), "[0, 0, 0, 1]");
    EXPECT_EQ(Output(results, "c"), "[1, 2, 3, 4]");
}

TEST(DescribedNodes, LocalContextFollowsContext)
{
    const auto document = [](std::string_view inputs) {
        return std::string(R"({"version": 1, "nodes": {
            "moved": {"type": "placement2d", "inputs": {"localOffset": [0.5, 0]}},
            "board": {"type": "checkerboard", "inputs": {)")
            .append(inputs)
            .append(R"("color1": [1, 1, 1, 1], "color2": [0, 0, 0, 1]}}}, "outputs": {"color": "board.result"}})");
    };
    const auto board = [&](std::string_view inputs, const host::GraphOptions& options = {}) {
        return Output(EvalJson(document(inputs), R"([{"uvw": [0.25, 0.25, 0]}])", options), "color");
    };
    EXPECT_EQ(board(""), "[1, 1, 1, 1]");
    EXPECT_EQ(board(R"("contextLocal": {"from": "moved.result"}, )"), "[0, 0, 0, 1]");
    EXPECT_EQ(board(R"("context": {"from": "moved.result"}, )"), "[0, 0, 0, 1]");
    host::GraphOptions options;
    options.settings.resize(1);
    ASSERT_TRUE(host::ParseSetting(R"(board.context={"from": "moved.result"})", options.settings[0]));
    EXPECT_EQ(board("", options), "[0, 0, 0, 1]");
    EXPECT_EQ(Faults(document(R"("context": {"from": "moved.reslt"}, )")),
        "nodes.board.inputs.context: moved has no output \"reslt\"; did you mean \"result\"?\n");
}

TEST(DescribedNodes, DefaultsHoldForCoreNodesToo)
{
    const host::Json results = EvalJson(R"({"version": 1, "nodes": {
        "n": {"type": "net.velto.pattern.corenode.effect.invertcolor", "inputs": {"color": [0.25, 0.5, 1, 1]}}},
        "outputs": {"color": "n.result"}})");
    EXPECT_EQ(Output(results, "color"), "[0.75, 0.5, 0, 1]"); // the mask lets colours pass and not alpha
}

// Nobody but the renderer sees into it.
TEST(Material, ALayerMayBeAnOutputOfADocument)
{
    EXPECT_EQ(R"({"type": "net.velto.render.datatype.bsdflayer"})",
        Output(
            EvalJson(R"({"version": 1, "nodes": {"n": {"type": "bsdflayer"}}, "outputs": {"o": "n.result"}})"), "o"));
}

} // namespace

} // namespace velto::test

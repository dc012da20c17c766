#include "test/support/node_table.h"

#include <fmt/format.h>

namespace velto::test
{

#define VELTO_BLEND "net.velto.pattern.corenode.effect.blend"
#define VELTO_LAYER "net.velto.pattern.corenode.effect.layer"
#define VELTO_MODE "net.velto.render.blendmode."

NODE_TABLE(BlendTable, VELTO_BLEND,
    {
        {"an empty mode is over", R"({"background": [1, 0, 0, 1], "foreground": [0, 1, 0, 0.25], "blendMode": ""})",
            "[0.75, 0.25, 0, 1]"},
        {"a mode",
            R"({"background": [0.5, 1, 0.25, 1], "foreground": [0.5, 0.5, 2, 1], "blendMode": ")" VELTO_MODE
            R"(multiply"})",
            "[0.25, 0.5, 0.5, 1]"},
        {"a mode that is not there", R"({"blendMode": "nowhere"})", R"({"error": "net.velto.error.nullptr"})"},
        {"all masked out is the background", R"({"background": [0.1, 0.2, 0.3, 0.4], "foreground": [1, 1, 1, 1],
        "maskred": false, "maskgreen": false, "maskblue": false, "maskalpha": false, "alphaHandling": "one"})",
            "[0.1, 0.2, 0.3, 0.4]"},
    });

#define VELTO_ALPHA(handling, more)                                                                                    \
    R"({"background": [0, 0, 0, 0.5], "foreground": [0, 0, 0, 0.25], "alphaHandling": ")" handling R"(")" more "}"

NODE_TABLE(AlphaHandlingTable, VELTO_BLEND,
    {
        {"as the mode blends it", VELTO_ALPHA("blend", ""), "[0, 0, 0, 0.625]"},
        {"as the mode blends it, by its share", VELTO_ALPHA("blend", R"(, "maskblend": 0.5)"), "[0, 0, 0, 0.5625]"},
        {"background", VELTO_ALPHA("background", ""), "[0, 0, 0, 0.5]"},
        {"foreground", VELTO_ALPHA("foreground", R"(, "maskblend": 0.5)"), "[0, 0, 0, 0.25]"},
        {"zero", VELTO_ALPHA("zero", ""), "[0, 0, 0, 0]"},
        {"one", VELTO_ALPHA("one", ""), "[0, 0, 0, 1]"},
        {"compositing by the share", VELTO_ALPHA("compositing", R"(, "maskblend": 0.5)"), "[0, 0, 0, 0.5625]"},
        {"compositing whatever the mode says",
            VELTO_ALPHA("compositing", R"(, "blendMode": ")" VELTO_MODE R"(passfolder")"), "[0, 0, 0, 0.625]"},
        {"compositing without a share", VELTO_ALPHA("compositing", R"(, "maskblend": 0)"), "[0, 0, 0, 0.5]"},
        {"unknown", VELTO_ALPHA("two", ""), "[0, 0, 0, 0.625]"},
        {"masked out", VELTO_ALPHA("zero", R"(, "maskalpha": false)"), "[0, 0, 0, 0.5]"},
    });

TEST(BlendNode, KeepsItsHandlerUntilTheModeChanges)
{
    const std::string document = R"({"version": 1, "nodes": {"b": {"type": ")" VELTO_BLEND R"(",
        "inputs": {"background": [0.5, 0.5, 0.5, 1], "foreground": [0.25, 0.25, 0.25, 1], "blendMode": ""}}},
        "outputs": {"c": "b.result", "last": "b.lastBlendMode"}})";
    const host::Json results = EvalJson(document, R"([{}, {},
        {"set": {"b.blendMode": ")" VELTO_MODE R"(multiply"}}, {"set": {"b.blendMode": "nowhere"}}, {},
        {"set": {"b.blendMode": ")" VELTO_MODE R"(multiply"}}, {"set": {"b.blendMode": ""}}])");
    const char* const colors[] = {"[0.25, 0.25, 0.25, 1]", "[0.25, 0.25, 0.25, 1]", "[0.125, 0.125, 0.125, 1]",
        "net.velto.error.nullptr", "net.velto.error.nullptr", "[0.125, 0.125, 0.125, 1]", "[0.25, 0.25, 0.25, 1]"};
    for (std::size_t i = 0; i < std::size(colors); ++i)
        EXPECT_EQ(Output(results, "c", i), colors[i]) << "sample " << i;
    EXPECT_EQ(Output(results, "last", 0), R"("")");
    EXPECT_EQ(Output(results, "last", 2), R"(")" VELTO_MODE R"(multiply")");
}

// Two layers, `top` over `bottom`; what is left out of `inputs` is white at full strength.
std::string Layers(std::string_view inputs)
{
    return fmt::format(R"({{"version": 1, "nodes": {{"n": {{"type": "{}", "arguments": {{"layers": ["top", "bottom"]}},
        "inputs": {{{}}}}}}}, "outputs": {{"c": "n.result"}}}})",
        VELTO_LAYER, inputs);
}

std::string Stack(std::string_view inputs)
{
    return Output(EvalJson(Layers(inputs)), "c");
}

TEST(LayerNode, TheFirstLayerIsOnTop)
{
    EXPECT_EQ(Stack(R"("color#top": [0.5, 0.5, 0.5, 1], "mode#top": ")" VELTO_MODE R"(multiply",
        "color#bottom": [1, 0.5, 0, 1], "mode#bottom": ")" VELTO_MODE R"(over")"),
        "[0.5, 0.25, 0, 1]");
    EXPECT_EQ(Stack(R"("color#top": [0, 1, 0, 1], "strength#top": 0.25, "color#bottom": [1, 0, 0, 1])"),
        "[0.75, 0.25, 0, 1]");
    EXPECT_EQ(
        Stack(R"("color#top": [1, 1, 1, 0.5], "strength#top": 3, "color#bottom": [0, 0, 0, 1])"), "[1.5, 1.5, 1.5, 1]")
        << "strength is not limited";
}

TEST(LayerNode, LayersWithoutEffect)
{
    EXPECT_EQ(Stack(R"("active#top": false, "active#bottom": false)"), "[0, 0, 0, 0]");
    EXPECT_EQ(
        Stack(R"("color#top": [1, 1, 1, 1], "strength#top": 0, "color#bottom": [0.5, 0, 0, 1])"), "[0.5, 0, 0, 1]");
    EXPECT_EQ(
        Stack(R"("color#top": [1, 1, 1, 1], "strength#top": -1, "color#bottom": [0.5, 0, 0, 1])"), "[0.5, 0, 0, 1]");
    EXPECT_EQ(Stack(R"("active#top": false, "mode#top": "nowhere", "color#bottom": [0.5, 0, 0, 1])"), "[0.5, 0, 0, 1]");
    EXPECT_EQ(Stack(R"("strength#top": 0, "mode#top": "", "color#bottom": [0.5, 0, 0, 1])"), "[0.5, 0, 0, 1]");
}

TEST(LayerNode, HasNoModeByDefault)
{
    EXPECT_EQ(Stack(R"("mode#top": "", "color#bottom": [0.5, 0, 0, 1])"), "net.velto.error.nullptr");
}

TEST(LayerNode, AnUnknownModeFailsWhenItComes)
{
    const host::Json results =
        EvalJson(Layers(R"("color#top": [0.5, 0.5, 0.5, 1], "mode#top": "nowhere", "strength#top": 0,
            "color#bottom": [1, 1, 1, 1])"),
            R"([{}, {}, {"set": {"n.strength#top": 1}}, {"set": {"n.mode#top": ")" VELTO_MODE R"(multiply"}},
            {"set": {"n.mode#top": "elsewhere"}}, {}])");
    const char* const expected[] = {
        "net.velto.error.nullptr", // the entry takes the mode over and finds no class
        "[1, 1, 1, 1]",            // nothing has changed since, and the layer has no strength
        "net.velto.error.nullptr", // no handler to blend with
        "[0.5, 0.5, 0.5, 1]", "net.velto.error.nullptr",
        "[0.5, 0.5, 0.5, 1]", // by the handler of the last mode that was known
    };
    for (std::size_t i = 0; i < std::size(expected); ++i)
        EXPECT_EQ(Output(results, "c", i), expected[i]) << "sample " << i;
}

TEST(LayerNode, AnInactiveLayerKeepsItsMode)
{
    const host::Json results =
        EvalJson(Layers(R"("color#top": [0.5, 0.5, 0.5, 1], "active#top": true, "mode#top": ")" VELTO_MODE
                        R"(multiply", "color#bottom": [0.5, 0.5, 0.5, 1])"),
            R"([{}, {"set": {"n.active#top": false, "n.mode#top": "nowhere"}},
            {"set": {"n.active#top": true, "n.mode#top": ")" VELTO_MODE R"(multiply"}}])");
    for (const auto& [i, expected] :
        {std::pair(0, "[0.25, 0.25, 0.25, 1]"), {1, "[0.5, 0.5, 0.5, 1]"}, {2, "[0.25, 0.25, 0.25, 1]"}})
        EXPECT_EQ(Output(results, "c", i), expected) << "sample " << i;
}

} // namespace velto::test

#include "test/support/node_table.h"

namespace velto::test
{

NODE_TABLE(ClampTable, "net.velto.toolkit.corenode.maths.clamp",
    {
        {"between", R"({"value": 0.25, "min": 0, "max": 1})", "0.25"},
        {"below", R"({"value": -3, "min": -1, "max": 1})", "-1"},
        {"above", R"({"value": 3, "min": -1, "max": 1})", "1"},
        {"a maximum below the minimum counts as it", R"({"value": 3, "min": 1, "max": -1})", "1"},
    });

NODE_TABLE(MixTable, "net.velto.toolkit.corenode.maths.mix",
    {
        {"a share", R"({"a": 2, "b": 6, "factor": 0.25})", "3"},
        {"the ends are exact", R"({"a": 1e20, "b": 0.1, "factor": 1})", "0.1"},
        {"clamped", R"({"a": 2, "b": 6, "factor": 2, "clamp": true})", "6"},
        {"beyond", R"({"a": 2, "b": 6, "factor": 2, "clamp": false})", "10"},
    });

NODE_TABLE(SmoothStepTable, "net.velto.toolkit.corenode.maths.smoothstep",
    {
        {"below", R"({"value": 1, "from": 2, "to": 4})", "0"},
        {"a quarter", R"({"value": 2.5, "from": 2, "to": 4})", "0.15625"},
        {"a quarter, straight", R"({"value": 2.5, "from": 2, "to": 4, "curve": "linear"})", "0.25"},
        {"a quarter, smoother", R"({"value": 2.5, "from": 2, "to": 4, "curve": "smoother"})", "0.103515625"},
        {"falling", R"({"value": 2.5, "from": 4, "to": 2, "curve": "linear"})", "0.75"},
        {"a step belongs to what is above", R"({"value": 2, "from": 2, "to": 2})", "1"},
        {"below a step", R"({"value": 1.9, "from": 2, "to": 2})", "0"},
    });

NODE_TABLE(RemapTable, "net.velto.toolkit.corenode.maths.remap",
    {
        {"a range", R"({"value": 3, "fromMin": 2, "fromMax": 6, "toMin": 10, "toMax": 20})", "12.5"},
        {"turned round", R"({"value": 3, "fromMin": 6, "fromMax": 2, "toMin": 10, "toMax": 20})", "17.5"},
        {"beyond", R"({"value": 10, "fromMin": 2, "fromMax": 6, "toMin": 10, "toMax": 20, "clamp": false})", "30"},
        {"clamped", R"({"value": 10, "fromMin": 2, "fromMax": 6, "toMin": 10, "toMax": 20, "clamp": true})", "20"},
        {"an empty range is a step", R"({"value": 2, "fromMin": 2, "fromMax": 2, "toMin": 10, "toMax": 20})", "20"},
    });

NODE_TABLE(CompareTable, "net.velto.toolkit.corenode.maths.compare",
    {
        {"equal", R"({"a": 2, "b": 2, "relation": "equal"})", "true"},
        {"equal enough", R"({"a": 2, "b": 2.5, "relation": "equal", "tolerance": 0.5})", "true"},
        {"not equal", R"({"a": 2, "b": 2.5, "relation": "notequal"})", "true"},
        {"less", R"({"a": 2, "b": 2.5, "relation": "less"})", "true"},
        {"not less by so little", R"({"a": 2, "b": 2.5, "relation": "less", "tolerance": 0.5})", "false"},
        {"less or equal", R"({"a": 2.5, "b": 2, "relation": "lessorequal", "tolerance": 0.5})", "true"},
        {"greater", R"({"a": 2, "b": 2, "relation": "greater"})", "false"},
        {"greater or equal", R"({"a": 2, "b": 2, "relation": "greaterorequal"})", "true"},
        {"infinities are equal", R"({"a": "inf", "b": "inf", "relation": "equal"})", "true"},
        {"what is no number equals nothing", R"({"a": "nan", "b": "nan", "relation": "notequal"})", "true"},
    });

TEST(ChooseTest, TakesTheNearestAndEvaluatesNoOther)
{
    const std::string document = R"({"version": 1, "nodes": {
        "a": {"type": "net.velto.toolkit.corenode.maths.colormath", "inputs": {"a": [1, 0, 0, 1]}},
        "c": {"type": "net.velto.toolkit.corenode.maths.choose", "inputs": {"index": 1,
            "in": [{"from": "a.result"}, [0, 1, 0, 0.5], [0, 0, 1, 1]]}}}, "outputs": {"result": "c.result"}})";
    const std::string samples = R"([{"set": {"c.index": -5, "a.a": [1, 0, 0, 1]}}, {"set": {"c.index": 1}},
        {"set": {"c.index": 99}}])";
    const host::Json varying = EvalJson(document, samples);
    EXPECT_EQ("[1, 0, 0, 1]", Output(varying, "result", 0));
    EXPECT_EQ("[0, 1, 0, 0.5]", Output(varying, "result", 1));
    EXPECT_EQ("[0, 0, 1, 1]", Output(varying, "result", 2));
    const host::Json fixed = EvalJson(document, R"([{"set": {"a.a": [1, 0, 0, 1]}}])");
    EXPECT_EQ("[0, 1, 0, 0.5]", Output(fixed, "result"));
    EXPECT_LE(Evaluations(fixed, "a"), 0);
}

NODE_TABLE(HistogramRangeTable, "net.velto.toolkit.corenode.color.histogramrange",
    {
        {"half, in the middle", R"({"value": 1, "range": 0.5, "position": 0.5})", "0.75"},
        {"all", R"({"value": 0.3, "range": 1, "position": 0.9})", "0.3"},
        {"a single value", R"({"value": 0.3, "range": 0, "position": 0.9})", "0.9"},
        {"what is beside", R"({"value": 7, "range": 0.5, "position": 0})", "0.5"},
    });

NODE_TABLE(LevelsTable, "net.velto.toolkit.corenode.color.levels",
    {
        {"ranges", R"({"color": [0.25, 0.5, 1, 0.3], "inBlack": 0.25, "inWhite": 0.75, "gamma": 1, "outWhite": 2})",
            "[0, 1, 2, 0.3]"},
        {"gamma brightens", R"({"color": [0.25, 1, 0, 1], "inWhite": 1, "gamma": 2, "outWhite": 1})", "[0.5, 1, 0, 1]"},
        {"inverted", R"({"color": [0.25, 1, 0, 1], "inBlack": 1, "inWhite": 0, "gamma": 1, "outWhite": 1})",
            "[0.75, 0, 1, 1]"},
        {"a step", R"({"color": [0.25, 0.5, 0.75, 1], "inBlack": 0.5, "inWhite": 0.5, "gamma": 1, "outWhite": 1})",
            "[0, 1, 1, 1]"},
    });

NODE_TABLE(TimeTable, "net.velto.toolkit.corenode.context.time",
    {
        {"a loop", R"({"length": 2})", R"({"seconds": 5, "frame": 125, "loop": 0.5})",
            R"({"time": 5, "frameRate": 25})"},
        {"an offset", R"({"length": 2, "offset": -5.5})", R"({"seconds": -0.5, "frame": -12.5, "loop": 0.75})",
            R"({"time": 5, "frameRate": 25})"},
        {"no loop", R"({"length": 0})", R"({"seconds": 5, "loop": 0})", R"({"time": 5})"},
    });

NODE_TABLE(CoordinateTable, "net.velto.toolkit.corenode.context.coordinate",
    {
        {"all of a sample", "{}",
            R"({"uv": [0.25, 0.5, 2], "u": 0.25, "v": 0.5, "position": [1, 2, 3], "normal": [0, 1, 0],
                "tangent": [1, 0, 0], "bitangent": [0, 0, 1], "ray": [0, -1, 0]})",
            R"({"uvw": [0.25, 0.5, 2], "samplePosition": [1, 2, 3], "shadingNormal": [0, 1, 0], "tangent": [1, 0, 0],
                "bitangent": [0, 0, 1], "rayDirection": [0, -1, 0]})"},
        {"no place", "{}", R"({"uv": [0, 0, 0], "u": 0})", R"({"uvwValid": false, "uvw": [0.25, 0.5, 2]})"},
    });

} // namespace velto::test

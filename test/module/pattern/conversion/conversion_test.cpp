#include "test/support/node_table.h"

namespace velto::test
{

#define VELTO_CONVERSION "net.velto.pattern.corenode.conversion."

NODE_TABLE(ComposeColorTable, VELTO_CONVERSION "composecolor",
    {
        {"in port order", R"({"red": 1, "green": -2, "blue": 3})", "[1, -2, 3]"},
    });

NODE_TABLE(ComposeColorATable, VELTO_CONVERSION "composecolora",
    {
        {"nothing connected", R"({"rgb": [1, 2, 3], "alpha": 0.5})", "[1, 2, 3, 0.5]"},
        {"a connected 0 counts", R"({"rgb": [1, 2, 3], "red": 0, "alpha": 0.5})", "[0, 2, 3, 0.5]"},
        {"green", R"({"rgb": [1, 2, 3], "green": 9, "alpha": 0.5})", "[1, 9, 3, 0.5]"},
        {"blue", R"({"rgb": [1, 2, 3], "blue": 9, "alpha": 0.5})", "[1, 2, 9, 0.5]"},
        {"all", R"({"rgb": [1, 2, 3], "red": 4, "green": 5, "blue": 6, "alpha": 7})", "[4, 5, 6, 7]"},
    });

NODE_TABLE(ComposeVector2Table, VELTO_CONVERSION "composevector2",
    {
        {"in port order", R"({"x": 1, "y": "inf"})", R"([1, "inf"])"},
    });

NODE_TABLE(ComposeVector3Table, VELTO_CONVERSION "composevector3",
    {
        {"in port order", R"({"x": 1, "y": -2, "z": 3})", "[1, -2, 3]"},
    });

NODE_TABLE(ComposeVector4Table, VELTO_CONVERSION "composevector4",
    {
        {"in port order", R"({"x": 1, "y": -2, "z": 3, "w": 4})", "[1, -2, 3, 4]"},
    });

NODE_TABLE(ConvertDegreesTable, VELTO_CONVERSION "convertdegrees",
    {
        {"to degrees", R"({"value": 2, "mode": "radtodeg"})", "114.59155902616465"},
        {"to radians", R"({"value": 180, "mode": "degtorad"})", "3.141592653589793"},
    });

NODE_TABLE(SplitColorTable, VELTO_CONVERSION "splitcolorcomponents",
    {
        {"all outputs", R"({"color": [1, 2, 3, 4], "index": 0})",
            R"({"rgb": [1, 2, 3], "r": 1, "g": 2, "b": 3, "a": 4, "indexedComponent": 1})"},
        {"the last index", R"({"color": [1, 2, 3, 4], "index": 3})", R"({"indexedComponent": 4})"},
    });

NODE_TABLE(SplitVectorTable, VELTO_CONVERSION "splitvectorcomponents",
    {
        {"all outputs", R"({"vector": [1, 2, 3, 4], "index": 1})",
            R"({"xyz": [1, 2, 3], "xy": [1, 2], "x": 1, "y": 2, "z": 3, "w": 4, "indexedComponent": 2})"},
        {"the last index", R"({"vector": [1, 2, 3, 4], "index": 3})", R"({"indexedComponent": 4})"},
    });

#define VELTO_COLOR(mode, alpha) R"({"color": [0.5, 0.25, 2, 4], "mode": ")" mode R"(", "useAlpha": )" alpha "}"

NODE_TABLE(ColorToFloatTable, VELTO_CONVERSION "colortofloat",
    {
        {"red", VELTO_COLOR("red", "true"), "0.5"},
        {"green", VELTO_COLOR("green", "false"), "0.25"},
        {"blue", VELTO_COLOR("blue", "false"), "2"},
        {"alpha, used or not", VELTO_COLOR("alpha", "false"), "4"},
        {"average of four", VELTO_COLOR("average", "true"), "1.6875"},
        {"average of three", VELTO_COLOR("average", "false"), "0.9166666666666666", "{}", 1e-15},
        {"length of four", R"({"color": [1, 1, 1, 1], "mode": "length", "useAlpha": true})", "2"},
        {"length of three", R"({"color": [2, 3, 6, 1], "mode": "length", "useAlpha": false})", "7"},
        {"squared length of four", VELTO_COLOR("squaredlength", "true"), "20.3125"},
        {"squared length of three", VELTO_COLOR("squaredlength", "false"), "4.3125"},
        {"luminance", VELTO_COLOR("luminance", "false"), "0.4293", "{}", 1e-15},
        {"luminance never looks at alpha", VELTO_COLOR("luminance", "true"), "0.4293", "{}", 1e-15},
        {"sum of four", VELTO_COLOR("sum", "true"), "6.75"},
        {"sum of three", VELTO_COLOR("sum", "false"), "2.75"},
        {"smallest of four", R"({"color": [3, 2, 1, 0], "mode": "min", "useAlpha": true})", "0"},
        {"smallest of three", R"({"color": [3, 2, 1, 0], "mode": "min", "useAlpha": false})", "1"},
        {"largest of four", VELTO_COLOR("max", "true"), "4"},
        {"largest of three", VELTO_COLOR("max", "false"), "2"},
        {"unknown", VELTO_COLOR("hue", "true"), "0"},
        {"none", VELTO_COLOR("", "true"), "0"},
    });

#define VELTO_VECTOR(mode) R"({"vector": [1, -2, 4, 2], "mode": ")" mode R"("})"

NODE_TABLE(VectorToFloatTable, VELTO_CONVERSION "vectortofloat",
    {
        {"x", VELTO_VECTOR("x"), "1"},
        {"y", VELTO_VECTOR("y"), "-2"},
        {"z", VELTO_VECTOR("z"), "4"},
        {"w", VELTO_VECTOR("w"), "2"},
        {"average", VELTO_VECTOR("average"), "1.25"},
        {"length", VELTO_VECTOR("length"), "5"},
        {"squared length", VELTO_VECTOR("squaredlength"), "25"},
        {"sum", VELTO_VECTOR("sum"), "5"},
        {"smallest", VELTO_VECTOR("min"), "-2"},
        {"largest", VELTO_VECTOR("max"), "4"},
        {"luminance is offered and has no formula", VELTO_VECTOR("luminance"), "0"},
        {"none", VELTO_VECTOR(""), "0"},
    });

#undef VELTO_COLOR
#undef VELTO_VECTOR

// What a node leaves alone keeps its value from the sample before.
TEST(Conversion, OutputsWithoutAValueStayAsTheyWere)
{
    const auto values = [](std::string_view type, std::string_view inputs, std::string_view output,
                            std::string_view samples) {
        const std::string document = R"({"version": 1, "nodes": {"n": {"type": ")" VELTO_CONVERSION +
                                     std::string(type) + R"(", "inputs": )" + std::string(inputs) +
                                     R"(}}, "outputs": {"o": "n.)" + std::string(output) + R"("}})";
        const host::Json results = EvalJson(document, samples);
        std::string text;
        for (std::size_t i = 0; i < Parse(samples).Elements().size(); ++i)
            text += Output(results, "o", i) + " ";
        return text;
    };
    EXPECT_EQ(values("splitcolorcomponents", R"({"color": [1, 2, 3, 4], "index": 2})", "indexedComponent",
                  R"([{}, {"set": {"n.index": 4}}, {"set": {"n.index": -1}}, {"set": {"n.index": 1}}])"),
        "3 3 3 2 ");
    EXPECT_EQ(values("splitvectorcomponents", R"({"vector": [1, 2, 3, 4], "index": 2})", "indexedComponent",
                  R"([{}, {"set": {"n.index": 4}}, {"set": {"n.index": -1}}, {"set": {"n.index": 1}}])"),
        "3 3 3 2 ");
    EXPECT_EQ(
        values("convertdegrees", R"({"value": 180, "mode": "degtorad"})", "result",
            R"([{}, {"set": {"n.mode": "gon"}}, {"set": {"n.mode": ""}}, {"set": {"n.value": 0, "n.mode": "radtodeg"}}])"),
        "3.141592653589793 3.141592653589793 3.141592653589793 0 ");
}

} // namespace velto::test

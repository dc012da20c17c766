// Every operation of the nodes that have an operation port: as a constant, for which a node of its own stands, and as
// an input that samples change.
#include "test/support/node_table.h"

#include <fmt/format.h>

namespace velto::test
{

namespace
{

struct OperationRow
{
    std::string operation;
    std::string inputs; // without braces
    std::string expected;
};

void CheckOperations(const std::string& word, const std::vector<OperationRow>& rows)
{
    const std::string type = "net.velto.toolkit.corenode.maths." + word;
    for (const OperationRow& row : rows)
    {
        const std::string name = row.operation + " of " + row.inputs;
        CheckRow(type,
            {name, fmt::format(R"({{"operation": "{}", {}}})", row.operation, row.inputs), row.expected, "{}", 1e-15});
        CheckRow(
            type, {name + ", as the sample says", fmt::format(R"({{"operation": "", {}}})", row.inputs), row.expected,
                      fmt::format(R"({{"set": {{"node.operation": "{}"}}}})", row.operation), 1e-15});
    }
}

std::string Numbers(double a, double b = 0.0, double c = 0.0)
{
    return fmt::format(R"("a": {}, "b": {}, "c": {})", a, b, c);
}

std::string Is(double result)
{
    return fmt::format("{}", result);
}

TEST(MathOperations, AreDefinedForAllNumbers)
{
    CheckOperations("math",
        {{"add", Numbers(2, 3), Is(5)}, {"subtract", Numbers(2, 3), Is(-1)}, {"multiply", Numbers(2, -3), Is(-6)},
            {"divide", Numbers(3, -2), Is(-1.5)}, {"divide", Numbers(3, 0), Is(0)},
            {"multiplyadd", Numbers(2, 3, 4), Is(10)}, {"power", Numbers(2, 10), Is(1024)},
            {"power", Numbers(-2, 3), Is(-8)}, {"power", Numbers(-2, 0.5), Is(0)}, {"power", Numbers(0, -1), Is(0)},
            {"power", Numbers(0, 0), Is(1)}, {"modulo", Numbers(7, 3), Is(1)}, {"modulo", Numbers(-7, 3), Is(2)},
            {"modulo", Numbers(7, -3), Is(-2)}, {"modulo", Numbers(7, 0), Is(0)}, {"minimum", Numbers(2, -3), Is(-3)},
            {"maximum", Numbers(2, 3), Is(3)}, {"absolute", Numbers(-2), Is(2)}, {"sign", Numbers(-2), Is(-1)},
            {"sign", Numbers(0), Is(0)}, {"sign", Numbers(0.5), Is(1)}, {"floor", Numbers(-1.5), Is(-2)},
            {"ceiling", Numbers(-1.5), Is(-1)}, {"ceiling", Numbers(1.2), Is(2)}, {"round", Numbers(-1.5), Is(-1)},
            {"round", Numbers(2.5), Is(3)}, {"fraction", Numbers(-1.25), Is(0.75)}, {"squareroot", Numbers(9), Is(3)},
            {"squareroot", Numbers(-9), Is(0)}, {"exponential", Numbers(0), Is(1)}, {"logarithm", Numbers(8, 2), Is(3)},
            {"logarithm", Numbers(1, 0), Is(0)}, {"logarithm", Numbers(2, 1), Is(0.6931471805599453)},
            {"logarithm", Numbers(0, 2), Is(0)}, {"logarithm", Numbers(-1, 2), Is(0)},
            {"sine", Numbers(1.5707963267948966), Is(1)}, {"cosine", Numbers(3.141592653589793), Is(-1)},
            {"tangent", Numbers(0.7853981633974483), Is(1)}, {"arctangent2", Numbers(1, 0), Is(1.5707963267948966)},
            {"arctangent2", Numbers(0, -1), Is(3.141592653589793)}, {"lessthan", Numbers(2, 3), Is(1)},
            {"lessthan", Numbers(3, 3), Is(0)}, {"greaterthan", Numbers(3, 2), Is(1)},
            {"greaterthan", Numbers(3, 3), Is(0)}, {"compare", Numbers(2, 2.5, 0.5), Is(1)},
            {"compare", Numbers(2, 2.5, 0.25), Is(0)}, {"wrap", Numbers(5.5, 1, 4), Is(2.5)},
            {"wrap", Numbers(-0.5, 1, 4), Is(2.5)}, {"wrap", Numbers(4, 1, 4), Is(1)},
            {"wrap", Numbers(5, 1, 1), Is(1)}, {"pingpong", Numbers(1.25, 1), Is(0.75)},
            {"pingpong", Numbers(-0.25, 1), Is(0.25)}, {"pingpong", Numbers(2, 0), Is(0)},
            {"no operation", Numbers(2, 3), Is(5)}});
}

std::string Vectors(std::string_view a, std::string_view b, std::string_view rest = R"("scale": 1)")
{
    return fmt::format(R"("a": {}, "b": {}, {})", a, b, rest);
}

// The value stands beside the result where the row names it.
TEST(VectorMathOperations, AreDefinedForAllVectors)
{
    CheckOperations(
        "vectormath", {{"add", Vectors("[1, 2, 3]", "[3, 5, 7]"), R"({"result": [4, 7, 10], "value": 4})"},
                          {"subtract", Vectors("[1, 2, 3]", "[3, 5, 7]"), "[-2, -3, -4]"},
                          {"multiply", Vectors("[1, 2, 3]", "[3, 5, 7]"), "[3, 10, 21]"},
                          {"divide", Vectors("[1, 2, 3]", "[2, 0, 4]"), "[0.5, 0, 0.75]"},
                          {"multiplyadd", Vectors("[1, 2, 3]", "[3, 5, 7]", R"("c": [1, 1, 2])"), "[4, 11, 23]"},
                          {"modulo", Vectors("[7, -7, 7]", "[3, 3, 0]"), "[1, 2, 0]"},
                          {"minimum", Vectors("[1, 2, 3]", "[3, 1, 7]"), "[1, 1, 3]"},
                          {"maximum", Vectors("[1, 2, 3]", "[3, 1, 7]"), "[3, 2, 7]"},
                          {"absolute", Vectors("[-1, 2, -3]", "[0, 0, 0]"), "[1, 2, 3]"},
                          {"floor", Vectors("[-1.5, 2.5, 3]", "[0, 0, 0]"), "[-2, 2, 3]"},
                          {"fraction", Vectors("[-1.25, 2.5, 3]", "[0, 0, 0]"), "[0.75, 0.5, 0]"},
                          {"scale", Vectors("[1, 2, 3]", "[0, 0, 0]", R"("scale": 2)"), "[2, 4, 6]"},
                          {"normalise", Vectors("[0, 3, 4]", "[0, 0, 0]"), "[0, 0.6, 0.8]"},
                          {"normalise", Vectors("[0, 0, 0]", "[0, 0, 0]"), "[0, 0, 0]"},
                          {"mix", Vectors("[1, 2, 3]", "[5, 6, 7]", R"("scale": 0.25)"), "[2, 3, 4]"},
                          {"rotate", Vectors("[1, 0, 5]", "[0, 0, 2]", R"("scale": 1.5707963267948966)"), "[0, 1, 5]"},
                          {"rotate", Vectors("[1, 2, 3]", "[0, 0, 0]", R"("scale": 1)"), "[1, 2, 3]"},
                          {"reflect", Vectors("[1, -2, 3]", "[0, 2, 0]"), "[1, 2, 3]"},
                          {"project", Vectors("[1, -2, 3]", "[0, 2, 0]"), "[0, -2, 0]"},
                          {"project", Vectors("[1, -2, 3]", "[0, 0, 0]"), "[0, 0, 0]"},
                          {"cross", Vectors("[1, 0, 0]", "[0, 1, 0]"), "[0, 0, 1]"},
                          {"dot", Vectors("[1, 2, 3]", "[3, 5, 7]"), R"({"result": [34, 34, 34], "value": 34})"},
                          {"length", Vectors("[2, 3, 6]", "[0, 0, 0]"), R"({"result": [7, 7, 7], "value": 7})"},
                          {"distance", Vectors("[3, 3, 6]", "[1, 0, 0]"), R"({"result": [7, 7, 7], "value": 7})"}});
}

TEST(ColorMathOperations, LeaveTheFirstAlpha)
{
    const std::string inputs = R"("a": [0.5, -2, 4, 0.25], "b": [0.25, 0.5, 0, 1], "c": [2, 0.5, 1, 1])";
    CheckOperations(
        "colormath", {{"add", inputs, "[0.75, -1.5, 4, 0.25]"}, {"subtract", inputs, "[0.25, -2.5, 4, 0.25]"},
                         {"multiply", inputs, "[0.125, -1, 0, 0.25]"}, {"divide", inputs, "[2, -4, 0, 0.25]"},
                         {"multiplyadd", inputs, "[2.125, -0.5, 1, 0.25]"},
                         {"power", inputs, "[0.8408964152537145, 0, 1, 0.25]"}, {"modulo", inputs, "[0, 0, 0, 0.25]"},
                         {"minimum", inputs, "[0.25, -2, 0, 0.25]"}, {"maximum", inputs, "[0.5, 0.5, 4, 0.25]"},
                         {"absolute", inputs, "[0.5, 2, 4, 0.25]"}, {"difference", inputs, "[0.25, 2.5, 4, 0.25]"},
                         {"clamp", inputs, "[0.5, 0.5, 1, 0.25]"}, {"mix", inputs, "[0, -0.75, 0, 0.25]"},
                         {"floor", inputs, "[0, -2, 4, 0.25]"}, {"fraction", inputs, "[0.5, 0, 0, 0.25]"}});
}

} // namespace

} // namespace velto::test

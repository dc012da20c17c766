#include "test/support/direct_call.h"
#include "test/support/node_table.h"

#include "velto/porttypes.h"

namespace velto::test
{

NODE_TABLE(StrengthTable, "net.velto.pattern.corenode.strength",
    {
        {"alpha passes", R"({"input": [1, -2, 0.5, 0.25], "strength": 2})", R"({"output": [2, -4, 1, 0.25]})"},
        {"0", R"({"input": [1, 2, 3, 0.5], "strength": 0})", R"({"output": [0, 0, 0, 0.5]})"},
        {"negative", R"({"input": [1, 2, 3, 1], "strength": -1})", R"({"output": [-1, -2, -3, 1]})"},
    });

NODE_TABLE(Transform2dTable, "net.velto.pattern.corenode.effect.transform2d",
    {
        {"neutral", R"({"point": [3, -2], "scale": [1, 1], "pivot": [0.5, 0.25]})", "[3, -2]"},
        {"the translation is taken off", R"({"point": [3, -2], "translate": [1, 2], "scale": [1, 1], "pivot": [0, 0]})",
            "[2, -4]"},
        {"scale multiplies about the pivot", R"({"point": [3, 1], "scale": [2, 0.5], "pivot": [1, -1]})", "[5, 0]"},
        {"scale 0 is the pivot", R"({"point": [3, 1], "rotate": 1, "scale": [0, 0], "pivot": [0.25, 0.75]})",
            "[0.25, 0.75]"},
        {"a quarter turn from x to y, then the scale",
            R"({"point": [2, 1], "rotate": 1.5707963267948966, "scale": [3, 5], "pivot": [1, 1]})", "[1, 6]", "{}",
            1e-15},
        {"translated before the turn",
            R"({"point": [1, 0], "translate": [0, 1], "rotate": 1.5707963267948966, "scale": [1, 1], "pivot": [0, 0]})",
            "[1, 1]", "{}", 1e-15},
    });

namespace
{

constexpr std::string_view kIf = "net.velto.corenode.if<net.velto.render.datatype.shadingcontext>";
constexpr std::string_view kSwitchSingle = "net.velto.corenode.switchsingle<net.velto.render.datatype.shadingcontext>";

TEST(If, ChoosesASampleOfABatchAtATime)
{
    DirectCall call(kIf, {}, 4);
    constexpr int kNeverABool = 2;
    const int conditions[] = {1, 0, kNeverABool, 1};
    for (std::size_t i = 0; i < 4; ++i)
    {
        call.Port<std::uint8_t>(0, i) = static_cast<std::uint8_t>(conditions[i]);
        call.Port<ShadingContext>(1, i).frameRate = 10.0 + i;
        call.Port<ShadingContext>(1, i).rayDirectionPlusDeltaV.z = 0.5;
        call.Port<ShadingContext>(2, i).frameRate = 20.0 + i;
    }
    ASSERT_TRUE(call.Run().IsOk());
    const Float expected[] = {10.0, 21.0, 22.0, 13.0};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(call.Port<ShadingContext>(3, i).frameRate, expected[i]) << i;
    EXPECT_EQ(call.Port<ShadingContext>(3, 0).rayDirectionPlusDeltaV.z, 0.5) << "the whole context";
    EXPECT_EQ(call.Group().record->kind, MicroNodeKind::Batch);
}

TEST(If, RunsNothingOfAnEmptyBatch)
{
    DirectCall call(kIf);
    call.Port<ShadingContext>(2).frameRate = 5.0;
    call.Head().first = 1;
    call.Head().end = 1;
    ASSERT_TRUE(call.Run().IsOk());
    EXPECT_EQ(call.Port<ShadingContext>(3).frameRate, 0.0);
}

TEST(SwitchSingle, TakesTheNearestElement)
{
    DirectCall call(kSwitchSingle, Arguments("in", Int(3)));
    for (std::size_t i = 0; i < 3; ++i)
        call.Port<ShadingContext>(2 + i).frameRate = 1.0 + i;
    const std::pair<Int, Float> rows[] = {{0, 1.0}, {1, 2.0}, {2, 3.0}, {3, 3.0}, {100, 3.0}, {-1, 1.0}, {-5, 1.0},
        {std::numeric_limits<Int>::max(), 3.0}, {std::numeric_limits<Int>::min(), 1.0}};
    for (const auto& [index, expected] : rows)
    {
        call.Port<Int>(0) = index;
        ASSERT_TRUE(call.Run().IsOk());
        EXPECT_EQ(call.Port<ShadingContext>(1).frameRate, expected) << index;
    }
}

TEST(SwitchSingle, LeavesItsOutputAloneWithoutElements)
{
    for (const DataDictionary& arguments : {DataDictionary(), Arguments("in", Int(0))})
    {
        DirectCall call(kSwitchSingle, arguments);
        call.Port<ShadingContext>(1).frameRate = 7.0;
        ASSERT_TRUE(call.Run().IsOk());
        EXPECT_EQ(call.Port<ShadingContext>(1).frameRate, 7.0);
    }
}

// Three contexts with 1, 2 and 3 tiles along u, a checkerboard's coordinate to tell them by.
std::string Document(std::string_view type, std::string_view inputs)
{
    std::string nodes;
    for (const char* const tiles : {"1", "2", "3"})
        nodes += std::string("\"p") + tiles + R"(": {"type": "net.velto.render.corenode.placement2d",
            "inputs": {"localLength": [1, 1], "localRepetitions": [)" +
                 tiles + R"(, 1]}}, )";
    return R"({"version": 1, "nodes": {)" + nodes + R"("s": {"type": ")" + std::string(type) + R"(", "inputs": )" +
           std::string(inputs) + R"(}}, "outputs": {"c": "s.out"}})";
}

double U(const host::Json& results, std::size_t sample = 0)
{
    const host::Json* const outputs = Entry(results, sample).Find("outputs");
    return outputs ? outputs->Find("c")->Find("uvw")->Elements()[0].AsNumber() : -1.0;
}

TEST(If, AConstantConditionRemovesTheOtherBranch)
{
    for (const bool condition : {true, false})
    {
        const host::Json results = EvalJson(Document(kIf, std::string(R"({"in": [)") + (condition ? "true" : "false") +
                                                              R"(, {"from": "p2.result"}, {"from": "p3.result"}]})"),
            R"([{"uvw": [0.25, 0, 0]}])");
        EXPECT_EQ(U(results), condition ? 0.5 : 0.75);
        EXPECT_EQ(Evaluations(results, "p2"), condition ? 1 : 0);
        EXPECT_EQ(Evaluations(results, "p3"), condition ? 0 : 1);
        EXPECT_EQ(Evaluations(results, "s"), 0) << "the branch stands for the node";
    }
}

TEST(If, AConditionThatChangesIsAskedForEverySample)
{
    const host::Json results =
        EvalJson(Document(kIf, R"({"in": [true, {"from": "p2.result"}, {"from": "p3.result"}]})"),
            R"([{"uvw": [0.25, 0, 0]}, {"uvw": [0.25, 0, 0], "set": {"s.in[0]": false}}])");
    EXPECT_EQ(U(results, 0), 0.5);
    EXPECT_EQ(U(results, 1), 0.75);
}

TEST(SwitchSingle, AConstantIndexRemovesTheOtherBranches)
{
    const auto inputs = [](Int index) {
        return R"({"index": )" + std::to_string(index) +
               R"(, "in": [{"from": "p1.result"}, {"from": "p2.result"}, {"from": "p3.result"}]})";
    };
    for (const Int index : {0, 1, 2})
    {
        const host::Json results = EvalJson(Document(kSwitchSingle, inputs(index)), R"([{"uvw": [0.25, 0, 0]}])");
        EXPECT_EQ(U(results), 0.25 * (index + 1));
        for (const Int branch : {0, 1, 2})
            EXPECT_EQ(Evaluations(results, "p" + std::to_string(branch + 1)), branch == index) << index;
        EXPECT_EQ(Evaluations(results, "s"), 0);
    }
    // Out of range, the node itself decides.
    for (const Int index : {-1, 3})
    {
        const host::Json results = EvalJson(Document(kSwitchSingle, inputs(index)), R"([{"uvw": [0.25, 0, 0]}])");
        EXPECT_EQ(U(results), index < 0 ? 0.25 : 0.75);
        EXPECT_EQ(Evaluations(results, "s"), 1);
    }
}

} // namespace

} // namespace velto::test

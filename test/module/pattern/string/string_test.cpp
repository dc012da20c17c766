#include "host/text/string.h"
#include "test/support/direct_call.h"
#include "test/support/failing_new.h"
#include "test/support/node_table.h"

namespace velto::test
{

#define VELTO_STRING "net.velto.pattern.corenode.string."

NODE_TABLE(ConcatTable, VELTO_STRING "concat",
    {
        {"in order", R"({"strings": ["a", "", "bé", "c"]})", R"({"result": "abéc"})"},
        {"of nothing", R"({"strings": []})", R"({"result": ""})"},
        {"of empty ones", R"({"strings": ["", ""]})", R"({"result": ""})"},
        {"left out", "{}", R"({"result": ""})"},
    });

NODE_TABLE(LengthTable, VELTO_STRING "length",
    {
        {"in characters", R"({"string": "Größe 🎨"})", R"({"result": 7})"},
        {"of the empty string", R"({"string": ""})", R"({"result": 0})"},
        {"of none", "{}", R"({"result": 0})"},
    });

NODE_TABLE(LetterCaseTable, VELTO_STRING "case",
    {
        {"lower", R"({"string": "HÉllo", "mode": "lowercase"})", R"({"result": "héllo"})"},
        {"upper", R"({"string": "héllo", "mode": "uppercase"})", R"({"result": "HÉLLO"})"},
        {"capitalised", R"({"string": "hELLO wORLD", "mode": "capitalize"})", R"({"result": "Hello world"})"},
        {"capitalised beyond ASCII", R"({"string": "éCOLE ÉTÉ", "mode": "capitalize"})", R"({"result": "École été"})"},
        {"capitalised single", R"({"string": "é", "mode": "capitalize"})", R"({"result": "É"})"},
        {"capitalised empty", R"({"string": "", "mode": "capitalize"})", R"({"result": ""})"},
        {"unknown mode", R"({"string": "hELLO", "mode": "titlecase"})", R"({"result": "hELLO"})"},
        {"no mode", R"({"string": "hELLO", "mode": ""})", R"({"result": "hELLO"})"},
    });

NODE_TABLE(PrefixSuffixTable, VELTO_STRING "prefixsuffix",
    {
        {"both", R"({"string": "b", "prefix": "<", "suffix": ">"})", R"({"result": "<b>"})"},
        {"prefix only", R"({"string": "b", "prefix": "<"})", R"({"result": "<b"})"},
        {"suffix only", R"({"suffix": ">"})", R"({"result": ">"})"},
    });

NODE_TABLE(SearchAndReplaceTable, VELTO_STRING "searchandreplace",
    {
        {"every occurrence", R"({"string": "a.b.c", "search": ".", "replace": "::"})", R"({"result": "a::b::c"})"},
        {"by nothing", R"({"string": "a.b.c", "search": "."})", R"({"result": "abc"})"},
        {"an empty search changes nothing", R"({"string": "abc", "search": "", "replace": "x"})",
            R"({"result": "abc"})"},
        {"in none", R"({"search": "a", "replace": "x"})", R"({"result": ""})"},
    });

NODE_TABLE(SubstringTable, VELTO_STRING "substr",
    {
        {"inside", R"({"string": "abcdef", "start": 2, "count": 3})", R"({"result": "cde"})"},
        {"a negative start is no part of the count", R"({"string": "abcdef", "start": -3, "count": 2})",
            R"({"result": "ab"})"},
        {"a start behind the end", R"({"string": "abc", "start": 10, "count": 1})", R"({"result": ""})"},
        {"a negative count", R"({"string": "abcdef", "start": 2, "count": -1})", R"({"result": ""})"},
        {"a count beyond the end", R"({"string": "abcdef", "start": 4, "count": 10})", R"({"result": "ef"})"},
        {"the largest count", R"({"string": "abcdef", "start": 4, "count": 9223372036854775807})",
            R"({"result": "ef"})"},
        {"the smallest numbers",
            R"({"string": "abcdef", "start": -9223372036854775808, "count": -9223372036854775808})",
            R"({"result": ""})"},
        {"in characters", R"({"string": "日é🎨z", "start": 1, "count": 2})", R"({"result": "é🎨"})"},
        {"of none", R"({"start": 0, "count": 1})", R"({"result": ""})"},
    });

NODE_TABLE(TruncateTable, VELTO_STRING "truncate",
    {
        {"shorter", R"({"string": "日é🎨z", "count": 3})", R"({"result": "日é🎨"})"},
        {"to nothing", R"({"string": "abc", "count": 0})", R"({"result": ""})"},
        {"a negative count", R"({"string": "abc", "count": -1})", R"({"result": ""})"},
        {"longer than the string", R"({"string": "日é", "count": 3})", R"({"result": "日é"})"},
        {"the largest count", R"({"string": "abc", "count": 9223372036854775807})", R"({"result": "abc"})"},
        {"of none", R"({"count": 3})", R"({"result": ""})"},
    });

TEST(Print, WritesALineAnEvaluationAndPassesTheStringOn)
{
    const host::Json results = EvalJson(R"({"version": 1, "nodes": {"p": {"type": ")" VELTO_STRING R"(print",
        "inputs": {"string": "é"}}}, "outputs": {"o": "p.passthrough"}})",
        R"([{}, {}, {"set": {"p.string": ""}}, {"set": {"p.string": "b"}}])");
    const auto log = [&](std::size_t i) {
        const host::Json* const lines = Entry(results, i).Find("log");
        return lines ? lines->Write() : "none";
    };
    EXPECT_EQ(log(0), R"(["é"])");
    EXPECT_EQ(log(1), R"(["é"])") << "a line for each sample, though nothing changes";
    EXPECT_EQ(log(2), "none");
    EXPECT_EQ(log(3), R"(["b"])");
    EXPECT_EQ(Output(results, "o", 0), R"("é")");
    EXPECT_EQ(Output(results, "o", 2), R"("é")") << "an empty string leaves the output alone";
    EXPECT_EQ(Output(results, "o", 3), R"("b")");
}

TEST(StringNodes, BrokenUtf8IsAFaultAtItsPlace)
{
    const std::string document = R"({"version": 1, "nodes": {"n": {"type": ")" VELTO_STRING R"(length",
        "inputs": {"string": "a)"
                                 "\xff"
                                 R"(b"}}}, "outputs": {"o": "n.result"}})";
    EXPECT_TRUE(Faults(document).starts_with("nodes.n.inputs.string: ")) << Faults(document);
}

namespace
{

String Made(std::string_view text)
{
    String string;
    EXPECT_TRUE(host::MakeString(text, string).IsOk());
    return string;
}

// What a node makes of its inputs while the `n`-th request for memory fails; -1: none does.
Result RunFailingAt(DirectCall& call, Int n)
{
    const FailingNew failing(n);
    return call.Run();
}

TEST(Concat, AFailedAppendDropsWhatWasJoinedAndGoesOn)
{
    constexpr Int kCount = 100;
    const String million = Made(std::string(1'000'000, 'x'));
    DirectCall call(VELTO_STRING "concat", Arguments("strings", kCount));
    for (Int i = 0; i < kCount; ++i)
        call.Port<String>(1 + i) = million;
    const auto lengthAfter = [&](Int n) {
        EXPECT_TRUE(RunFailingAt(call, n).IsOk()) << n;
        return Bytes(call.Port<String>(0)).size();
    };
    EXPECT_EQ(lengthAfter(-1), 100'000'000u);
    EXPECT_EQ(lengthAfter(0), 99'000'000u) << "only the first string is lost";
    // Later requests are fewer and fewer, since the text grows ahead of what it holds.
    std::size_t before = 99'000'000;
    Int n = 2;
    for (; before != 100'000'000; ++n)
    {
        const std::size_t length = lengthAfter(n);
        EXPECT_EQ(length % 1'000'000, 0u);
        EXPECT_TRUE(length <= before || length == 100'000'000) << n;
        before = length;
    }
    EXPECT_GT(n, 5);
    EXPECT_EQ(million->references, kCount + 1) << "the inputs are as they were";
    EXPECT_EQ(Bytes(million).size(), 1'000'000u);
}

TEST(StringNodes, OnlyTwoReportThatMemoryIsShort)
{
    const std::string text(100, 'a');
    struct Row
    {
        const char* type;
        std::vector<std::string> kinds; // of the errors, by the request that fails
    };
    const std::string none;
    const std::string outOfMemory(error::kOutOfMemory.View());
    const Row rows[] = {
        {VELTO_STRING "prefixsuffix", {none}},
        {VELTO_STRING "searchandreplace", {"net.velto.error.nullptr", "net.velto.error.nullptr", outOfMemory}},
    };
    for (const Row& row : rows)
    {
        DirectCall call(row.type);
        for (std::size_t i = 0; i < 3; ++i)
            call.Port<String>(i) = Made(text);
        call.Port<String>(2) = Made(text + text);
        for (std::size_t n = 0; n < row.kinds.size(); ++n)
        {
            call.Port<String>(3) = Made("before");
            const Result ran = RunFailingAt(call, static_cast<Int>(n));
            EXPECT_EQ(ran.Kind(), row.kinds[n]) << row.type << ", request " << n;
            if (ran.IsError())
            {
                EXPECT_EQ(Bytes(call.Port<String>(3)), "before") << row.type << ", request " << n;
            }
        }
        EXPECT_TRUE(RunFailingAt(call, -1).IsOk());
        EXPECT_NE(Bytes(call.Port<String>(3)), "before");
    }

    DirectCall substring(VELTO_STRING "substr");
    substring.Port<String>(0) = Made(text);
    substring.Port<Int>(2) = 50;
    substring.Port<String>(3) = Made("before");
    const Result ran = RunFailingAt(substring, 0);
    ASSERT_EQ(ran.Kind(), outOfMemory);
    EXPECT_NE(std::string_view(ran.Error()->where.file).find("substr_node"), std::string_view::npos);
    EXPECT_EQ(Bytes(substring.Port<String>(3)), "before");
    substring.Port<Int>(2) = 0;
    EXPECT_TRUE(RunFailingAt(substring, 0).IsOk()) << "there is nothing to be short of";

    DirectCall truncated(VELTO_STRING "truncate");
    truncated.Port<String>(0) = Made(text);
    truncated.Port<Int>(1) = 50;
    EXPECT_TRUE(RunFailingAt(truncated, 0).IsOk());
    EXPECT_EQ(Bytes(truncated.Port<String>(2)), "");
}

} // namespace

} // namespace velto::test

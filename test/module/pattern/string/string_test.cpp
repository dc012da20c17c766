#include "host/system/output.h"
#include "host/text/string.h"
#include "test/support/direct_call.h"
#include "test/support/failing_new.h"
#include "test/support/node_table.h"

namespace velto::test
{

#define VELTO_STRING "net.velto.pattern.corenode.string."

NODE_TABLE(ConcatTable, VELTO_STRING "concat",
    {
        {"in order", R"({"strings": ["a", "", "bé", "c"]})", R"("abéc")"},
        {"of nothing", R"({"strings": []})", R"("")"},
        {"of empty ones", R"({"strings": ["", ""]})", R"("")"},
        {"left out", "{}", R"("")"},
    });

NODE_TABLE(LengthTable, VELTO_STRING "length",
    {
        {"in characters", R"({"string": "Größe 🎨"})", "7"},
        {"of the empty string", R"({"string": ""})", "0"},
        {"of none", "{}", "0"},
    });

NODE_TABLE(LetterCaseTable, VELTO_STRING "case",
    {
        {"lower", R"({"string": "HÉllo", "mode": "lowercase"})", R"("héllo")"},
        {"upper", R"({"string": "héllo", "mode": "uppercase"})", R"("HÉLLO")"},
        {"capitalised", R"({"string": "hELLO wORLD", "mode": "capitalize"})", R"("Hello world")"},
        {"capitalised beyond ASCII", R"({"string": "éCOLE ÉTÉ", "mode": "capitalize"})", R"("École été")"},
        {"capitalised single", R"({"string": "é", "mode": "capitalize"})", R"("É")"},
        {"capitalised empty", R"({"string": "", "mode": "capitalize"})", R"("")"},
        {"unknown mode", R"({"string": "hELLO", "mode": "titlecase"})", R"("hELLO")"},
        {"no mode", R"({"string": "hELLO", "mode": ""})", R"("hELLO")"},
    });

NODE_TABLE(PrefixSuffixTable, VELTO_STRING "prefixsuffix",
    {
        {"both", R"({"string": "b", "prefix": "<", "suffix": ">"})", R"("<b>")"},
        {"prefix only", R"({"string": "b", "prefix": "<"})", R"("<b")"},
        {"suffix only", R"({"suffix": ">"})", R"(">")"},
    });

NODE_TABLE(SearchAndReplaceTable, VELTO_STRING "searchandreplace",
    {
        {"every occurrence", R"({"string": "a.b.c", "search": ".", "replace": "::"})", R"("a::b::c")"},
        {"from left to right", R"({"string": "aaaa", "search": "aa", "replace": "a"})", R"("aa")"},
        {"in characters", R"({"string": "日本日", "search": "日", "replace": "é"})", R"("é本é")"},
        {"by nothing", R"({"string": "a.b.c", "search": "."})", R"("abc")"},
        {"an empty search changes nothing", R"({"string": "abc", "search": "", "replace": "x"})", R"("abc")"},
        {"in none", R"({"search": "a", "replace": "x"})", R"("")"},
    });

NODE_TABLE(SubstringTable, VELTO_STRING "substr",
    {
        {"inside", R"({"string": "abcdef", "start": 2, "count": 3})", R"("cde")"},
        {"a negative start is no part of the count", R"({"string": "abcdef", "start": -3, "count": 2})", R"("ab")"},
        {"a start behind the end", R"({"string": "abc", "start": 10, "count": 1})", R"("")"},
        {"a negative count", R"({"string": "abcdef", "start": 2, "count": -1})", R"("")"},
        {"a count beyond the end", R"({"string": "abcdef", "start": 4, "count": 10})", R"("ef")"},
        {"the largest count", R"({"string": "abcdef", "start": 4, "count": 9223372036854775807})", R"("ef")"},
        {"the smallest numbers",
            R"({"string": "abcdef", "start": -9223372036854775808, "count": -9223372036854775808})", R"("")"},
        {"in characters", R"({"string": "日é🎨z", "start": 1, "count": 2})", R"("é🎨")"},
        {"of none", R"({"start": 0, "count": 1})", R"("")"},
    });

NODE_TABLE(TruncateTable, VELTO_STRING "truncate",
    {
        {"shorter", R"({"string": "日é🎨z", "count": 3})", R"("日é🎨")"},
        {"to nothing", R"({"string": "abc", "count": 0})", R"("")"},
        {"a negative count", R"({"string": "abc", "count": -1})", R"("")"},
        {"longer than the string", R"({"string": "日é", "count": 3})", R"("日é")"},
        {"the largest count", R"({"string": "abc", "count": 9223372036854775807})", R"("abc")"},
        {"of none", R"({"count": 3})", R"("")"},
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

// Lost text is no error here: the node goes on with what comes after it.
TEST(Concat, AFailedAppendDropsWhatWasJoinedAndGoesOn)
{
    constexpr Int kCount = 100;
    const String thousand = Made(std::string(1000, 'x'));
    DirectCall call(VELTO_STRING "concat", Arguments("strings", kCount));
    for (Int i = 0; i < kCount; ++i)
        call.Port<String>(1 + i) = thousand;
    const auto lengthWithout = [&](Int n) {
        const FailingNew failing(n);
        EXPECT_TRUE(call.Run().IsOk()) << n;
        return Bytes(call.Port<String>(0)).size();
    };
    EXPECT_EQ(lengthWithout(-1), 100'000u);
    EXPECT_EQ(lengthWithout(0), 99'000u) << "the first string alone is lost";
    const std::size_t later = lengthWithout(5);
    EXPECT_TRUE(later < 99'000 && later % 1000 == 0) << later;
    EXPECT_EQ(thousand->references, kCount + 1) << "the inputs are as they were";
}

} // namespace

} // namespace velto::test

// Blackbody, keyer and thin film.
#include "host/system/allocator.h"
#include "test/support/direct_call.h"
#include "test/support/node_table.h"

namespace velto::test
{

NODE_TABLE(BlackbodyTable, "net.velto.pattern.corenode.generator.blackbody",
    {
        {"embers", R"({"temperature": 20})",
            R"({"result": [2.3569107678143273, 0.10379528335402982, -0.0511616666133142]})", "{}", 1e-12},
        {"a lamp", R"({"temperature": 52})",
            R"({"result": [1.6433984912611157, 0.7768683438426707, 0.24599139342747367]})", "{}", 1e-12},
        {"daylight", R"({"temperature": 113.4})",
            R"({"result": [0.9313044880376598, 0.8780072311495486, 0.9232968104791945]})", "{}", 1e-12},
        {"a blue star", R"({"temperature": 400})",
            R"({"result": [0.38006090381232505, 0.5110231461532665, 0.9805461041623257]})", "{}", 1e-12},
        {"too cold to glow", R"({"temperature": 0})", R"({"result": [0, 0, 0]})"},
    });

NODE_TABLE(KeyerTable, "net.velto.pattern.corenode.effect.keyer",
    {
        {"half way up",
            R"({"color": [0.5, 1, 0, 0.3], "key": [0, 1, 0], "toleranceMin": 0, "toleranceMax": 0.5, "mode": "keyout"})",
            R"({"result": [0.25, 0.5, 0, 0.5], "mask": 0.5})"},
        {"the key itself",
            R"({"color": [0, 1, 0, 1], "key": [0, 1, 0], "toleranceMin": 0, "toleranceMax": 0.5, "mode": "keyout"})",
            R"({"result": [0, 0, 0, 0], "mask": 0})"},
        {"keyed in",
            R"({"color": [0, 1, 0, 0], "key": [0, 1, 0], "toleranceMin": 0.1, "toleranceMax": 0.5, "mode": "keyin"})",
            R"({"result": [0, 1, 0, 1], "mask": 1})"},
        {"an unknown mode keys out",
            R"({"color": [1, 1, 1, 1], "key": [0, 1, 0], "toleranceMin": 0, "toleranceMax": 2, "mode": ""})",
            R"({"result": [1, 1, 1, 1], "mask": 1})"},
        {"equal tolerances",
            R"({"color": [1, 1, 1, 1], "key": [0, 1, 0], "toleranceMin": 0.5, "toleranceMax": 0.5, "mode": "keyout"})",
            R"({"result": [0, 0, 0, 0], "mask": 0})"},
        {"a ramp that falls",
            R"({"color": [0.5, 1, 0, 1], "key": [0, 1, 0], "toleranceMin": 1, "toleranceMax": 0, "mode": "keyout"})",
            R"({"mask": 0.75})"},
    });

// A thin film behind its pre node.
static std::string Film(std::string_view inputs, int samples)
{
    return R"({"version": 1, "nodes": {
        "pre": {"type": "net.velto.pattern.corenode.generator.thinfilmpre", "inputs": {"spectralsamples": )" +
           std::to_string(samples) + R"(}},
        "film": {"type": "net.velto.pattern.corenode.generator.thinfilm",
            "inputs": {"thinfilminit": {"from": "pre.thinfilminit"}, )" +
           std::string(inputs) + R"(}}}, "outputs": {"result": "film.result"}})";
}

struct FilmRow
{
    const char* name;
    const char* inputs;
    int samples;
    const char* sample;
    const char* expected;
};

TEST(ThinFilmTest, Rows)
{
    const char* const facing =
        R"({"geometricNormal": [0, 0, 1], "shadingNormal": [0, 0, 1], "rayDirection": [0, 0, -1]})";
    const char* const bubble = R"("ior": 1.33, "thickness": 400, "variation": 50)";
    const FilmRow rows[] = {
        {"facing", bubble, 16, facing, "[-0.020404366785668294, 0.02849056808854925, 0.03370936971088259, 1]"},
        {"a negative thickness is made up for", R"("ior": 1.33, "thickness": -50, "variation": 450)", 16, facing,
            "[0.03140640335677384, -0.004834450153755634, 0.05579897124756016, 1]"},
        {"one band", R"("ior": 1.5, "thickness": 300, "variation": 0)", 1, facing,
            "[0.04799237946074354, 0.03797897403970169, 0.03614934527680058, 1]"},
        {"less than no band is one", R"("ior": 1.5, "thickness": 300, "variation": 0)", -7, facing,
            "[0.04799237946074354, 0.03797897403970169, 0.03614934527680058, 1]"},
        {"oblique", R"("ior": 1.4, "thickness": 500, "variation": 0)", 8,
            R"({"geometricNormal": [0, 0, 1], "shadingNormal": [0, 0, 1],
                "rayDirection": [0.7833269096274834, 0, -0.6216099682706644]})",
            "[-0.03235252769586225, 0.048490332643893845, 0.08181998141539415, 1]"},
        {"the shading normal turns with the back side", R"("ior": 1.4, "thickness": 500, "variation": 0)", 8,
            R"({"geometricNormal": [0, 0, -1], "shadingNormal": [0, 0, -1],
                "rayDirection": [0.7833269096274834, 0, -0.6216099682706644]})",
            "[-0.03235252769586225, 0.048490332643893845, 0.08181998141539415, 1]"},
        {"no film is thinner than a nanometre", R"("ior": 1.33, "thickness": 0.5, "variation": -4)", 4, facing,
            "[3.710850275453544e-09, 5.804047160294347e-09, 1.4385286871023334e-08, 1]"},
        {"no contrast, no colour", R"("ior": 1, "thickness": 400, "variation": 0)", 4, facing, "[0, 0, 0, 1]"},
        {"grazing", bubble, 4,
            R"({"geometricNormal": [0, 0, 1], "shadingNormal": [0, 0, 1], "rayDirection": [1, 0, 0]})", "[1, 1, 1, 1]"},
        {"total reflection", R"("ior": 0.5, "thickness": 400, "variation": 0)", 4,
            R"({"geometricNormal": [0, 0, 1], "shadingNormal": [0, 0, 1],
                "rayDirection": [0.7833269096274834, 0, -0.6216099682706644]})",
            "[1, 1, 1, 1]"},
        {"no place", bubble, 4, R"({"uvwValid": false, "shadingNormal": [0, 0, 1], "rayDirection": [0, 0, -1]})",
            "[0, 0, 0, 0]"},
    };
    for (const FilmRow& row : rows)
    {
        const host::Json results = EvalJson(Film(row.inputs, row.samples), "[" + std::string(row.sample) + "]");
        EXPECT_TRUE(AreEqual(Parse(row.expected), Parse(Output(results, "result")), 2e-6)) << row.name;
    }
}

TEST(ThinFilmTest, TheTableFollowsTheNumberOfBands)
{
    const char* const at = R"("uvwValid": true, "geometricNormal": [0, 0, 1], "shadingNormal": [0, 0, 1],
        "rayDirection": [0, 0, -1])";
    const std::string film = Film(R"("ior": 1.5, "thickness": 300, "variation": 0)", 16);
    const host::Json results = EvalJson(film, "[{" + std::string(at) + R"(, "set": {"pre.spectralsamples": 1}}, {)" +
                                                  at + R"(, "set": {"pre.spectralsamples": 16}}])");
    EXPECT_TRUE(AreEqual(Parse("[0.04799237946074354, 0.03797897403970169, 0.03614934527680058, 1]"),
        Parse(Output(results, "result", 0)), 2e-6));
    EXPECT_EQ(Output(EvalJson(film, "[{" + std::string(at) + "}]"), "result"), Output(results, "result", 1));
}

// What the pre node's port holds.
struct FilmTable
{
    BaseArray<Vector> bands;
    Int samples;
    Float32 step;
    Float32 scale;
};

TEST(ThinFilmTest, WithoutMemoryTheTableHasNoBands)
{
    DirectCall pre("net.velto.pattern.corenode.generator.thinfilmpre");
    auto& table = pre.Port<FilmTable>(1);
    pre.Port<Int>(0) = 16;
    ASSERT_TRUE(pre.Run().IsOk());
    EXPECT_EQ(16, table.bands.Count());
    pre.Port<Int>(0) = 8;
    host::AllocationFault::FailAt(0);
    const Result failed = pre.Run();
    host::AllocationFault::Disarm();
    EXPECT_EQ(failed.Kind(), error::kOutOfMemory.View());
    EXPECT_TRUE(pre.Run().IsOk()) << "the number of bands is the table's";
    EXPECT_TRUE(table.bands.IsEmpty());
    EXPECT_EQ(8, table.samples);
}

} // namespace velto::test

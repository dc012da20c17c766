// Blackbody, keyer and thin film.
#include "test/support/node_table.h"

namespace velto::test
{

NODE_TABLE(BlackbodyTable, "net.velto.pattern.corenode.generator.blackbody",
    {
        {"embers", R"({"temperature": 20})", "[2.3569107678143273, 0.10379528335402982, -0.0511616666133142]", "{}",
            1e-12},
        {"a lamp", R"({"temperature": 52})", "[1.6433984912611157, 0.7768683438426707, 0.24599139342747367]", "{}",
            1e-12},
        {"daylight", R"({"temperature": 113.4})", "[0.9313044880376598, 0.8780072311495486, 0.9232968104791945]", "{}",
            1e-12},
        {"a blue star", R"({"temperature": 400})", "[0.38006090381232505, 0.5110231461532665, 0.9805461041623257]",
            "{}", 1e-12},
        {"too cold to glow", R"({"temperature": 0})", "[0, 0, 0]"},
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

#define VELTO_FILM(ior, thickness, variation, bands)                                                                   \
    R"({"ior": )" #ior R"(, "thickness": )" #thickness R"(, "variation": )" #variation                                 \
    R"(, "spectralsamples": )" #bands "}"
#define VELTO_RAY(normal, x, z)                                                                                        \
    R"({"geometricNormal": [0, 0, )" #normal R"(], "shadingNormal": [0, 0, )" #normal R"(], "rayDirection": [)" #x     \
    ", 0, " #z "]}"

NODE_TABLE(ThinFilmTable, "thinfilm",
    {
        {"facing", VELTO_FILM(1.33, 400, 50, 16),
            "[-0.020404366785668294, 0.02849056808854925, 0.03370936971088259, 1]", VELTO_RAY(1, 0, -1), 2e-6},
        {"a negative thickness is made up for", VELTO_FILM(1.33, -50, 450, 16),
            "[0.03140640335677384, -0.004834450153755634, 0.05579897124756016, 1]", VELTO_RAY(1, 0, -1), 2e-6},
        {"one band", VELTO_FILM(1.5, 300, 0, 1), "[0.04799237946074354, 0.03797897403970169, 0.03614934527680058, 1]",
            VELTO_RAY(1, 0, -1), 2e-6},
        {"less than no band is one", VELTO_FILM(1.5, 300, 0, -7),
            "[0.04799237946074354, 0.03797897403970169, 0.03614934527680058, 1]", VELTO_RAY(1, 0, -1), 2e-6},
        {"oblique", VELTO_FILM(1.4, 500, 0, 8), "[-0.03235252769586225, 0.048490332643893845, 0.08181998141539415, 1]",
            VELTO_RAY(1, 0.7833269096274834, -0.6216099682706644), 2e-6},
        {"the shading normal turns with the back side", VELTO_FILM(1.4, 500, 0, 8),
            "[-0.03235252769586225, 0.048490332643893845, 0.08181998141539415, 1]",
            VELTO_RAY(-1, 0.7833269096274834, -0.6216099682706644), 2e-6},
        {"no film is thinner than a nanometre", VELTO_FILM(1.33, 0.5, -4, 4),
            "[3.710850275453544e-09, 5.804047160294347e-09, 1.4385286871023334e-08, 1]", VELTO_RAY(1, 0, -1), 2e-6},
        {"no contrast, no colour", VELTO_FILM(1, 400, 0, 4), "[0, 0, 0, 1]", VELTO_RAY(1, 0, -1), 2e-6},
        {"grazing", VELTO_FILM(1.33, 400, 50, 4), "[1, 1, 1, 1]", VELTO_RAY(1, 1, 0), 2e-6},
        {"total reflection", VELTO_FILM(0.5, 400, 0, 4), "[1, 1, 1, 1]",
            VELTO_RAY(1, 0.7833269096274834, -0.6216099682706644), 2e-6},
        {"no place", VELTO_FILM(1.33, 400, 50, 4), "[0, 0, 0, 0]",
            R"({"uvwValid": false, "shadingNormal": [0, 0, 1], "rayDirection": [0, 0, -1]})", 2e-6},
    });

TEST(ThinFilmTest, TheTableFollowsTheNumberOfBands)
{
    const auto film = [](const std::string& bands, const char* samples) {
        return EvalJson(R"({"version": 1, "nodes": {"f": {"type": "thinfilm", "inputs": {"spectralsamples": )" + bands +
                            R"(}}}, "outputs": {"result": "f.result"}})",
            samples);
    };
    const host::Json results =
        film("16", R"([{"rayDirection": [0, 0, -1], "shadingNormal": [0, 0, 1], "set": {"f.spectralsamples": 1}},
        {"rayDirection": [0, 0, -1], "shadingNormal": [0, 0, 1], "set": {"f.spectralsamples": 16}}])");
    const char* const plain = R"([{"rayDirection": [0, 0, -1], "shadingNormal": [0, 0, 1]}])";
    EXPECT_EQ(Output(film("1", plain), "result"), Output(results, "result", 0));
    EXPECT_EQ(Output(film("16", plain), "result"), Output(results, "result", 1));
    EXPECT_NE(Output(results, "result", 0), Output(results, "result", 1));
}

} // namespace velto::test

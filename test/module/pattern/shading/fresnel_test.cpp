#include "test/support/node_table.h"

namespace velto::test
{

#define RAY(x, z)                                                                                                      \
    R"({"rayDirection": [)" #x ", 0, " #z R"(], "geometricNormal": [0, 0, 1], "shadingNormal": [0, 0, 1]})"
#define BEHIND(x, z)                                                                                                   \
    R"({"rayDirection": [)" #x ", 0, " #z R"(], "geometricNormal": [0, 0, -1], "shadingNormal": [0, 0, 1]})"

// The cosines are rounded to 32 bits: 0.6 is taken as 0.6000000238418579.
NODE_TABLE(FresnelDielectricTable, "net.velto.pattern.corenode.effect.fresneldielectric",
    {
        {"straight on", R"({"ior": 1.5})", "0.04", RAY(0, -1), 1e-15},
        {"aslant", R"({"ior": 1.5})", "0.06452496699443666", RAY(0.8, -0.6)},
        {"no difference", R"({"ior": 1})", "0", RAY(0.8, -0.6)},
        {"no difference, grazing", R"({"ior": 1})", "1", RAY(1, 0)},
        {"grazing", R"({"ior": 1.5})", "1", RAY(1, 0)},
        {"from inside, flat: total reflection", R"({"ior": 1.5})", "1", BEHIND(0.8, -0.6)},
        {"the geometric normal turns the shading normal", R"({"ior": 1.5})", "0.06452496699443666",
            R"({"rayDirection": [0.8, 0, 0.6], "geometricNormal": [0, 0, 1], "shadingNormal": [0, 0, 1]})"},
        {"from inside, steep", R"({"ior": 1.5})", "0.11414107744290045",
            R"({"rayDirection": [0.6, 0, -0.8], "geometricNormal": [0, 0, 1], "shadingNormal": [0, 0, -1]})"},
        {"a cosine beyond one", R"({"ior": 1.5})", "0.04", RAY(0, -3), 1e-15},
        {"from whichever side, valid or not", R"({"ior": 1.5})", "0.04",
            R"({"uvwValid": false, "rayDirection": [0, 0, -1], "geometricNormal": [0, 0, 1], "shadingNormal": [0, 0, 1]})",
            1e-15},
    });

NODE_TABLE(FresnelConductorTable, "net.velto.pattern.corenode.effect.fresnelconductor",
    {
        {"without absorption, straight on", R"({"ior": [1.5, 2, 3], "absorption": [0, 0, 0]})",
            "[0.04, 0.1111111111111111, 0.25, 1]", RAY(0, -1), 1e-15},
        {"aslant", R"({"ior": [0.2, 0.9, 1.1], "absorption": [3.9, 2.4, 2.5]})",
            "[0.9491968261192321, 0.6222098411156085, 0.591875216988595, 1]", RAY(0.8, -0.6)},
        {"the cosine is not limited", R"({"ior": [0.2, 0.9, 1.1], "absorption": [3.9, 2.4, 2.5]})",
            "[0.9473608971202567, 0.6293618203824032, 0.5977143936802298, 1]", RAY(0, -2)},
    });

} // namespace velto::test

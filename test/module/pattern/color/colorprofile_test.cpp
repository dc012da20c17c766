#include "test/support/node_table.h"

namespace velto::test
{

// Parameters that differ from the neutral ones, so that a mix-up shows.
#define VELTO_FILM                                                                                                     \
    R"("direction": "forward", "gamma": 2, "filmgamma": 1.5, "blackpoint": 320, "whitepoint": 680, "maskalpha": true)"

NODE_TABLE(ColorProfileTable, "net.velto.pattern.corenode.conversion.colorprofile",
    {
        {"linear to linear", R"({"color": [0.1, -2, 3, 0.5], "inProfile": "linear", "outProfile": "linear",
        "maskalpha": true})",
            "[0.1, -2, 3, 0.5]"},
        {"from srgb, both sides of its knee", R"({"color": [0.5, 0.04045, 0.0405, 0.25], "inProfile": "srgb",
        "outProfile": "linear", )" VELTO_FILM "}",
            "[0.21404114048223255, 0.0031308049535603713, 0.0031347447859034075, 0.05087608817155679]", "{}", 1e-16},
        {"to srgb, both sides of its knee", R"({"color": [0.5, 0.0031308, 0.00314, 0.25], "inProfile": "linear",
        "outProfile": "srgb", )" VELTO_FILM "}",
            "[0.7353569830524495, 0.040449936, 0.04056667578498183, 0.5370987304831942]", "{}", 1e-16},
        {"from gamma",
            R"({"color": [0.5, 0.25, 1, 0.75], "inProfile": "gamma", "outProfile": "linear", )" VELTO_FILM "}",
            "[0.25, 0.0625, 1, 0.5625]"},
        {"to gamma", R"({"color": [0.5, 0.25, 1, 0.75], "inProfile": "linear", "outProfile": "gamma", )" VELTO_FILM "}",
            "[0.7071067811865476, 0.5, 1, 0.8660254037844386]", "{}", 1e-16},
        {"to gamma 0",
            R"({"color": [0.5, 0.25, 1, 0.75], "inProfile": "linear", "outProfile": "gamma", "direction": "forward", "gamma": 0,
        "maskalpha": true})",
            "[0, 0, 0, 0]"},
        {"from rec709, both sides of its knee", R"({"color": [0.5, 0.081, 0.0809, 0.25], "inProfile": "rec709",
        "outProfile": "linear", )" VELTO_FILM "}",
            "[0.25958940050628576, 0.01794502336674779, 0.017977777777777777, 0.07815387594543223]", "{}", 1e-16},
        {"to rec709, both sides of its knee", R"({"color": [0.5, 0.018, 0.0179, 0.25], "inProfile": "linear",
        "outProfile": "rec709", )" VELTO_FILM "}",
            "[0.7055150899221212, 0.08124794403514046, 0.08055, 0.48993951766369304]", "{}", 1e-16},
        {"from cineon",
            R"({"color": [0.5, 0.25, 1, 0.75], "inProfile": "cineon", "outProfile": "linear", )" VELTO_FILM "}",
            "[0.09140711823530502, 0.00810711290043707, 11.91772099625574, 0.8930377173282432]", "{}", 1e-14},
        {"to cineon",
            R"({"color": [0.5, 0.25, 1, 0.75], "inProfile": "linear", "outProfile": "cineon", )" VELTO_FILM "}",
            "[0.6027948444032546, 0.5413716322073959, 0.6647116324535679, 0.6389671130091]", "{}", 1e-15},
        {"inverse exchanges the profiles",
            R"({"color": [0.5, 0.25, 1, 0.75], "inProfile": "linear", "outProfile": "gamma",
        "direction": "inverse", "gamma": 2, "maskalpha": true})",
            "[0.25, 0.0625, 1, 0.5625]"},
        {"any direction but forward is inverse", R"({"color": [0.5, 0.25, 1, 0.75], "inProfile": "linear",
        "outProfile": "gamma", "direction": "", "gamma": 2, "maskalpha": true})",
            "[0.25, 0.0625, 1, 0.5625]"},
        {"an unknown profile is linear",
            R"({"color": [0.5, 0.25, 1, 0.75], "inProfile": "gamma", "outProfile": "film", )" VELTO_FILM "}",
            "[0.25, 0.0625, 1, 0.5625]"},
        {"both at once go by way of linear",
            R"({"color": [0.5, 0.25, 1, 0.75], "inProfile": "gamma", "outProfile": "rec709", )" VELTO_FILM "}",
            "[0.48993951766369304, 0.21660487303543532, 1, 0.749306567889204]", "{}", 1e-15},
        {"a negative base follows pow", R"({"color": [-0.5, 0.25, 1, 1], "inProfile": "gamma", "outProfile": "linear",
        "direction": "forward", "gamma": 2.5})",
            R"(["nan", 0.03125, 1, 1])"},
        {"alpha only by its flag", R"({"color": [0.5, 0.25, 1, 0.75], "inProfile": "gamma", "outProfile": "linear",
        "direction": "forward", "gamma": 2})",
            "[0.25, 0.0625, 1, 0.75]"},
    });

#undef VELTO_FILM

} // namespace velto::test

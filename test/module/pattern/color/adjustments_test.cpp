#include "test/support/node_table.h"

namespace velto::test
{

NODE_TABLE(ContrastTable, "net.velto.pattern.corenode.effect.contrast",
    {
        {"slope 0 is mid-grey", R"({"color": [1, 0, 0.2, 1], "contrast": -1})", "[0.5, 0.5, 0.5, 1]"},
        {"limited below, not above", R"({"color": [1, 0, 0.5, 1], "contrast": 1})", "[1.5, 0, 0.5, 1]"},
        {"alpha up to 1 becomes 1", R"({"color": [0.5, 0.5, 0.5, 0.25], "contrast": 3, "maskalpha": true})",
            "[0.5, 0.5, 0.5, 1]"},
        {"alpha above 1 doubles its distance", R"({"color": [0.5, 0.5, 0.5, 1.5], "contrast": 3, "maskalpha": true})",
            "[0.5, 0.5, 0.5, 2]"},
        {"a NaN stays", R"({"color": ["nan", 0.5, 0.5, 1], "contrast": 1})", R"(["nan", 0.5, 0.5, 1])"},
    });

NODE_TABLE(ExposureTable, "net.velto.pattern.corenode.effect.exposure",
    {
        {"a stop doubles, then the offset",
            R"({"color": [0.5, 0.25, -1, 1], "exposure": 1, "offset": 0.25, "gamma": 1})", "[1.25, 0.75, -1.75, 1]"},
        {"gamma 0 is none", R"({"color": [0.5, 0.25, -1, 1], "exposure": -1, "offset": 0, "gamma": 0})",
            "[0.25, 0.125, -0.5, 1]"},
        {"gamma lifts, and cuts below 0", R"({"color": [0.25, 0.5625, -1, 1], "exposure": 0, "offset": 0, "gamma": 2})",
            "[0.5, 0.75, 0, 1]"},
        {"alpha gets 1 more and no gamma",
            R"({"color": [1, 1, 1, 0.25], "exposure": 3, "offset": 5, "gamma": 2, "maskred": false, "maskgreen": false,
            "maskblue": false, "maskalpha": true})",
            "[1, 1, 1, 1.25]"},
    });

NODE_TABLE(BiasGainTable, "net.velto.pattern.corenode.effect.biasgain",
    {
        {"0.5 and 0.5 are neutral", R"({"color": [0.125, 0.5, 0.75, 1], "bias": 0.5, "gain": 0.5})",
            "[0.125, 0.5, 0.75, 1]"},
        {"limited to 0 and 1", R"({"color": [-0.5, 1.5, 1, 1], "bias": 0.5, "gain": 0.5})", "[0, 1, 1, 1]"},
        {"bias", R"({"color": [0.5, 0.25, 1, 1], "bias": 0.25, "gain": 0.5})", "[0.25, 0.1, 1, 1]", "{}", 1e-16},
        {"bias has no upper limit", R"({"color": [0.5, 0.25, 1, 1], "bias": 2, "gain": 0.5})", "[1, 0, 1, 1]"},
        {"bias is limited below", R"({"color": [0.5, 0, 1, 1], "bias": -1, "gain": 0.5})",
            "[0.0010000000474974513, 0, 1, 1]", "{}", 1e-18},
        {"gain, either side of the middle", R"({"color": [0.25, 0.5, 0.75, 1], "bias": 0.5, "gain": 0.25})",
            "[0.125, 0.5, 0.875, 1]"},
        {"gain is limited below", R"({"color": [0.25, 0.5, 0.75, 1], "bias": 0.5, "gain": 0})",
            "[4.999999873689375e-05, 0.5, 0.9999500000012631, 1]", "{}", 1e-15},
        {"gain is limited above", R"({"color": [0.25, 0.5, 0.75, 1], "bias": 0.5, "gain": 2})",
            "[0.49995000000000006, 0.5, 0.50005, 1]", "{}", 1e-15},
        {"alpha becomes 1", R"({"color": [0, 0, 0, 0.25], "bias": 0.5, "gain": 0.5, "maskalpha": true})",
            "[0, 0, 0, 1]"},
        {"no alpha is 0 by 0", R"({"color": [0, 0, 0, 0], "bias": 0.5, "gain": 0.5, "maskalpha": true})",
            R"([0, 0, 0, "nan"])"},
    });

NODE_TABLE(InvertColorTable, "net.velto.pattern.corenode.effect.invertcolor",
    {
        {"all four channels", R"({"color": [0.25, 2, -1, 0.75], "maskalpha": true})", "[0.75, -1, 2, 0.25]"},
    });

NODE_TABLE(ColorTemperatureTable, "net.velto.pattern.corenode.effect.colortemperature",
    {
        {"warm", R"({"color": [0.5, 0.5, 0.5, 0.25], "temperature": 1, "tint": 0, "maskalpha": true})",
            "[0.6, 0.5, 0.4, 0.25]"},
        {"green, beyond 1", R"({"color": [0.5, 0.75, 0, 1], "temperature": 0, "tint": -5})", "[0.5, 1.25, 0, 1]"},
    });

NODE_TABLE(WhiteBalanceTable, "net.velto.pattern.corenode.effect.whitebalance",
    {
        {"the white point becomes white", R"({"color": [0.5, 0.25, 2, 0.25], "whitePoint": [0.5, 0.25, 2],
        "maskalpha": true})",
            "[1, 1, 1, 0.25]"},
        {"a missing channel goes out", R"({"color": [0.5, 0.5, 0.5, 1], "whitePoint": [0, 1, -0.5]})",
            "[0, 0.5, -1, 1]"},
        {"unless it is masked", R"({"color": [0.5, 0.5, 0.5, 1], "whitePoint": [0, 1, 0], "maskred": false})",
            "[0.5, 0.5, 0, 1]"},
    });

NODE_TABLE(PremultiplyTable, "net.velto.pattern.corenode.effect.premultiply",
    {
        {"colour times alpha", R"({"color": [1, 0.5, -2, 0.5], "maskalpha": true})", "[0.5, 0.25, -1, 0.5]"},
    });

NODE_TABLE(UnpremultiplyTable, "net.velto.pattern.corenode.effect.unpremultiply",
    {
        {"colour by alpha", R"({"color": [0.5, 0.25, -1, 0.5], "maskalpha": true})", "[1, 0.5, -2, 0.5]"},
        {"a negative alpha too", R"({"color": [0.5, 0.25, -1, -0.5]})", "[-1, -0.5, 2, -0.5]"},
        {"without alpha the colour stays", R"({"color": [0.5, 0.25, -1, 0]})", "[0.5, 0.25, -1, 0]"},
    });

NODE_TABLE(ShuffleTable, "net.velto.pattern.corenode.effect.shuffle",
    {
        {"every channel from another", R"({"color": [0.1, 0.2, 0.3, 0.4], "redComponent": "blue",
        "greenComponent": "red", "blueComponent": "alpha", "alphaComponent": "green"})",
            "[0.3, 0.1, 0.4, 0.2]"},
        {"constants", R"({"color": [0.1, 0.2, 0.3, 0.4], "redComponent": "zero", "greenComponent": "one",
        "blueComponent": "", "alphaComponent": "luminance"})",
            "[0, 1, 0, 0]"},
    });

NODE_TABLE(ShuffleCombineTable, "net.velto.pattern.corenode.effect.shufflecombine",
    {
        {"from the first", R"({"color1": [0.1, 0.2, 0.3, 0.4], "color2": [0.5, 0.6, 0.7, 0.8], "redComponent": "green1",
        "greenComponent": "alpha1", "blueComponent": "red1", "alphaComponent": "blue1"})",
            "[0.2, 0.4, 0.1, 0.3]"},
        {"from the second", R"({"color1": [0.1, 0.2, 0.3, 0.4], "color2": [0.5, 0.6, 0.7, 0.8], "redComponent": "blue2",
        "greenComponent": "red2", "blueComponent": "alpha2", "alphaComponent": "green2"})",
            "[0.7, 0.5, 0.8, 0.6]"},
        {"constants", R"({"color1": [0.1, 0.2, 0.3, 0.4], "color2": [0.5, 0.6, 0.7, 0.8], "redComponent": "one",
        "greenComponent": "zero", "blueComponent": "", "alphaComponent": "red"})",
            "[1, 0, 0, 0]"},
    });

} // namespace velto::test

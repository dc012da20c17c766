#include "test/support/node_table.h"

namespace velto::test
{

#define VELTO_SPACES(from, to) R"(, "incolorspace": ")" from R"(", "outcolorspace": ")" to R"("})"

NODE_TABLE(ColorSpaceTable, "net.velto.pattern.corenode.conversion.colorspace",
    {
        {"rgb to hsv", R"({"color": [0.8, 0.4, 0.2, 0.5])" VELTO_SPACES("rgb", "hsv"),
            "[0.05555555555555555, 0.75, 0.8, 0.5]", "{}", 1e-15},
        {"the faintest colours have a hue", R"({"color": [0.5, 0.499, 0.5, 1])" VELTO_SPACES("rgb", "hsv"),
            "[0.8333333333333334, 0.002, 0.5, 1]", "{}", 1e-15},
        {"black has no hue", R"({"color": [0, 0, 0, 1])" VELTO_SPACES("rgb", "hsv"), "[0, 0, 0, 1]"},
        {"below black is black", R"({"color": [-1, -0.5, -2, 1])" VELTO_SPACES("rgb", "hsv"), "[0, 0, 0, 1]"},
        {"hsv to rgb", R"({"color": [0.6, 0.5, 0.75, 1])" VELTO_SPACES("hsv", "rgb"),
            "[0.375, 0.5250000000000001, 0.75, 1]", "{}", 1e-15},
        {"a hue of 1 is that of 0", R"({"color": [1, 0.5, 0.75, 1])" VELTO_SPACES("hsv", "rgb"),
            "[0.75, 0.375, 0.375, 1]"},
        {"a hue beyond the circle is in the last sector", R"({"color": [1.2, 0.5, 0.75, 1])" VELTO_SPACES("hsv", "rgb"),
            "[0.75, 0.44999999999999973, 0.375, 1]", "{}", 1e-15},
        {"next to no saturation is grey", R"({"color": [0.3, 0.0009, 0.75, 1])" VELTO_SPACES("hsv", "rgb"),
            "[0.75, 0.75, 0.75, 1]"},
        {"the least saturation has a hue", R"({"color": [0.3, 0.001, 0.75, 1])" VELTO_SPACES("hsv", "rgb"),
            "[0.7494, 0.75, 0.74925, 1]", "{}", 1e-15},
        {"rgb to cmy", R"({"color": [0.25, 1.5, 0, 1])" VELTO_SPACES("rgb", "cmy"), "[0.75, -0.5, 1, 1]"},
        {"cmy to rgb", R"({"color": [0.25, 1.5, 0, 1])" VELTO_SPACES("cmy", "rgb"), "[0.75, -0.5, 1, 1]"},
        {"xyz to rgb", R"({"color": [0.5, 0.25, 0.125, 1])" VELTO_SPACES("xyz", "rgb"),
            "[1.1736351139843464, -0.010435745120048523, 0.10897713154554367, 1]", "{}", 1e-15},
        {"rgb to xyz", R"({"color": [0.5, 0.25, 0.125, 1])" VELTO_SPACES("rgb", "xyz"),
            "[0.31817437522113323, 0.2941466262564063, 0.15824362821877003, 1]", "{}", 1e-15},
        {"one model to another goes by way of rgb", R"({"color": [0.6, 0.5, 0.75, 1])" VELTO_SPACES("hsv", "hsl"),
            "[0.5999999999999999, 0.42857142857142855, 0.5625, 1]", "{}", 1e-15},
        {"alpha has no part", R"({"color": [0.25, 0.5, 0.75, 0.5], "maskalpha": true)" VELTO_SPACES("rgb", "cmy"),
            "[0.75, 0.5, 0.25, 0.5]"},
        {"equal spaces change nothing", R"({"color": [5, -0.5, 0.75, 1])" VELTO_SPACES("hsv", "hsv"),
            "[5, -0.5, 0.75, 1]"},
        {"an unknown source changes nothing", R"({"color": [0.1, 0.5, 0.75, 1])" VELTO_SPACES("lab", "hsv"),
            "[0.1, 0.5, 0.75, 1]"},
        {"an unknown target changes nothing", R"({"color": [0.1, 0.5, 0.75, 1])" VELTO_SPACES("hsv", ""),
            "[0.1, 0.5, 0.75, 1]"},
    });

NODE_TABLE(HslToRgbTable, "net.velto.pattern.corenode.conversion.colorspace",
    {
        {"cyan", R"({"color": [0.5, 1, 0.5, 1])" VELTO_SPACES("hsl", "rgb"), "[0, 1, 1, 1]", "{}", 1e-15},
        {"dark", R"({"color": [0.1, 0.5, 0.25, 1])" VELTO_SPACES("hsl", "rgb"), "[0.375, 0.275, 0.125, 1]", "{}",
            1e-15},
        {"light", R"({"color": [0.25, 0.5, 0.75, 1])" VELTO_SPACES("hsl", "rgb"), "[0.75, 0.875, 0.625, 1]", "{}",
            1e-15},
        {"red goes over the end of the circle", R"({"color": [0.9, 0.3, 0.6, 1])" VELTO_SPACES("hsl", "rgb"),
            "[0.72, 0.48, 0.624, 1]", "{}", 1e-15},
        {"a negative hue", R"({"color": [-0.1, 0.5, 0.25, 1])" VELTO_SPACES("hsl", "rgb"), "[0.375, 0.125, 0.275, 1]",
            "{}", 1e-15},
        {"no saturation is grey", R"({"color": [0.3, 0, 0.25, 1])" VELTO_SPACES("hsl", "rgb"), "[0.25, 0.25, 0.25, 1]"},
        {"a hue of -1 is none", R"({"color": [-1, 0.5, 0.25, 1])" VELTO_SPACES("hsl", "rgb"), "[0.25, 0.25, 0.25, 1]"},
    });

NODE_TABLE(RgbToHslTable, "net.velto.pattern.corenode.conversion.colorspace",
    {
        {"black", R"({"color": [0, 0, 0, 1])" VELTO_SPACES("rgb", "hsl"), "[0, 0, 0, 1]"},
        {"grey", R"({"color": [0.5, 0.5, 0.5, 1])" VELTO_SPACES("rgb", "hsl"), "[0, 0, 0.5, 1]"},
        {"below black", R"({"color": [-1, -0.5, -2, 1])" VELTO_SPACES("rgb", "hsl"), "[0, 0, -1.25, 1]"},
        {"red largest, blue smallest", R"({"color": [0.8, 0.4, 0.2, 1])" VELTO_SPACES("rgb", "hsl"),
            "[0.05555555555555555, 0.6, 0.5, 1]", "{}", 1e-15},
        {"red largest, green smallest", R"({"color": [0.8, 0.2, 0.4, 1])" VELTO_SPACES("rgb", "hsl"),
            "[0.9444444444444444, 0.6, 0.5, 1]", "{}", 1e-15},
        {"green largest, blue smallest", R"({"color": [0.4, 0.8, 0.2, 1])" VELTO_SPACES("rgb", "hsl"),
            "[0.2777777777777778, 0.6, 0.5, 1]", "{}", 1e-15},
        {"green largest, red smallest", R"({"color": [0.2, 0.8, 0.4, 1])" VELTO_SPACES("rgb", "hsl"),
            "[0.3888888888888889, 0.6, 0.5, 1]", "{}", 1e-15},
        {"blue largest, red smallest", R"({"color": [0.2, 0.4, 0.8, 1])" VELTO_SPACES("rgb", "hsl"),
            "[0.6111111111111112, 0.6, 0.5, 1]", "{}", 1e-15},
        {"blue largest, green smallest", R"({"color": [0.4, 0.2, 0.8, 1])" VELTO_SPACES("rgb", "hsl"),
            "[0.7222222222222222, 0.6, 0.5, 1]", "{}", 1e-15},
        {"light", R"({"color": [1, 0.5, 0.875, 1])" VELTO_SPACES("rgb", "hsl"), "[0.875, 1, 0.75, 1]"},
        {"a divisor of 0 leaves the range", R"({"color": [2, 1, 0, 1])" VELTO_SPACES("rgb", "hsl"),
            "[0.08333333333333333, 2, 1, 1]", "{}", 1e-15},
    });

#undef VELTO_SPACES

} // namespace velto::test

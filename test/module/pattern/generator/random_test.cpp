#include "test/support/node_table.h"
#include "velto/random.h"

namespace velto::test
{

TEST(RandomTest, StreamStepsFromItsSeed)
{
    RandomStream stream(0);
    EXPECT_EQ(1u, stream.State());
    EXPECT_EQ(69070.0 / 4294967296.0, stream.Next01());
    // The last step wraps.
    EXPECT_EQ((69070u * 69069u + 1u) / 4294967296.0, stream.Next01());
    RandomStream raw = RandomStream::FromState(0xFFFFFFFFu);
    EXPECT_EQ((0xFFFFFFFFu * 69069u + 1u) / 4294967296.0, raw.Next01());
}

TEST(RandomTest, HashShiftsPullInTheSign)
{
    EXPECT_EQ(0x94b1d927u, IntegerHash32(0));
    EXPECT_EQ(0xb48681b6u, IntegerHash32(1));
    EXPECT_EQ(0xa29732d4u, IntegerHash32(100));
}

NODE_TABLE(HashTable, "net.velto.pattern.corenode.generator.hash",
    {
        {"all outputs of one draw", R"({"seed": 1, "salt": 2, "minimum": 0, "maximum": 1})",
            R"({"resultColorA": [0.22498016292229295, 0.1548728800844401, 0.9149545524269342, 0.9959815761540085],
            "resultColor": [0.22498016292229295, 0.1548728800844401, 0.9149545524269342],
            "resultVector3": [0.22498016292229295, 0.1548728800844401, 0.9149545524269342],
            "resultVector2": [0.22498016292229295, 0.1548728800844401],
            "resultFloat": 0.22498016292229295, "resultInt": 0, "resultBool": false})"},
        {"seed and salt count as their sum", R"({"seed": 2, "salt": 1, "minimum": 0, "maximum": 1})",
            R"({"resultFloat": 0.22498016292229295})"},
        {"a range that runs backwards", R"({"seed": 7, "salt": 0, "minimum": 10, "maximum": -10})",
            R"({"resultColorA": [-8.469176506623626, 2.4478640081360936, -8.480822052806616, -1.8983653048053384],
            "resultInt": -8, "resultBool": false})"},
        {"low 32 bits of a negative seed and a large salt",
            R"({"seed": -5, "salt": 8589934601, "minimum": 0, "maximum": 1})",
            R"({"resultColorA": [0.8358545571099967, 0.638405030593276, 0.997058047214523, 0.8022630601190031],
            "resultBool": true})"},
        {"a whole number is cut towards zero", R"({"seed": 8, "salt": 0, "minimum": -4, "maximum": 0})",
            R"({"resultFloat": -1.422947196289897, "resultInt": -1})"},
        {"no range", R"({"seed": 3, "salt": 0, "minimum": 0.5, "maximum": 0.5})",
            R"({"resultColorA": [0.5, 0.5, 0.5, 0.5], "resultBool": true})"},
        {"a whole number out of range", R"({"seed": 3, "minimum": 1e30, "maximum": 1e30})",
            R"({"resultInt": -9223372036854775808})"},
    });

NODE_TABLE(RandomTable, "net.velto.pattern.corenode.generator.random",
    {
        {"a default context", R"({"seed": 1, "salt": 0, "minimum": 0, "maximum": 1})",
            R"({"resultFloat": 0.3811062262393534})"},
        {"pixel", R"({"seed": 0, "salt": 1, "minimum": 0, "maximum": 1})", R"({"resultFloat": 0.08490992081351578})",
            R"({"pixel": [3, 4]})"},
        {"place in the pixel", R"({"seed": 1, "salt": 0, "minimum": 0, "maximum": 1})",
            R"({"resultFloat": 0.42506782012060285})", R"({"subpixel": [0.25, 0.5]})"},
        {"ray origin", R"({"seed": 1, "salt": 0, "minimum": 0, "maximum": 1})",
            R"({"resultFloat": 0.9008812608662993})", R"({"rayOrigin": [1.1, -5.3, 0.7]})"},
        {"ray direction", R"({"seed": 1, "salt": 0, "minimum": 0, "maximum": 1})",
            R"({"resultFloat": 0.45951506635174155})", R"({"rayDirection": [0.6, 0, -0.8]})"},
        {"frame", R"({"seed": 1, "salt": 0, "minimum": 0, "maximum": 1})", R"({"resultFloat": 0.066078215604648})",
            R"({"time": 0.4, "frameRate": 25})"},
        {"a frame before the first", R"({"seed": 1, "salt": 0, "minimum": 0, "maximum": 1})",
            R"({"resultFloat": 0.8009221702814102})", R"({"time": -0.5, "frameRate": 25})"},
        {"all of it", R"({"seed": 1, "salt": 0, "minimum": 0, "maximum": 1})", R"({"resultFloat": 0.9329878468997777})",
            R"({"pixel": [-3, 1], "subpixel": [0.1, 0.2], "rayOrigin": [0.3, 0.2, 0.1], "rayDirection": [0.1, 0.2, -0.9],
            "time": 2, "frameRate": 24})"},
    });

} // namespace velto::test

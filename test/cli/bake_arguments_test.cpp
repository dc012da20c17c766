#include "cli/bake.h"

#include <gtest/gtest.h>

#include <climits>

namespace velto::cli
{

namespace
{

TEST(BakeArguments, Sizes)
{
    struct Row
    {
        std::string_view text;
        int width; // 0: refused
        int height = 0;
    };
    for (const Row& row : {Row{"1", 1, 1}, {"1024", 1024, 1024}, {"32768", 32768, 32768}, {"64x32", 64, 32},
             {"1x32768", 1, 32768}, {"", 0}, {"0", 0}, {"-1", 0}, {"32769", 0}, {"64x", 0}, {"x64", 0}, {"64x0", 0},
             {"64x32768x1", 0}, {"64X32", 0}, {" 64", 0}, {"64 ", 0}, {"1e3", 0}, {"99999999999", 0}, {"64x-32", 0}})
    {
        int width = 0;
        int height = 0;
        ASSERT_EQ(row.width != 0, ParseSize(row.text, width, height)) << row.text;
        if (row.width != 0)
            EXPECT_TRUE(width == row.width && height == row.height) << row.text;
    }
}

TEST(BakeArguments, Crops)
{
    host::BakeWindow window;
    ASSERT_TRUE(ParseCrop("1,2,3x4", window));
    EXPECT_TRUE(window.x == 1 && window.y == 2 && window.width == 3 && window.height == 4);
    EXPECT_TRUE(ParseCrop("0,0,1x1", window));
    for (const char* const wrong : {"", "1,2,3", "1,2,3x", "-1,2,3x4", "1,-2,3x4", "1,2,0x4", "1,2,3x0", "1,2,-3x4",
             "1,2,3x4,", "1,2,3x4x5", "1;2;3x4", "1,2,99999999999x1"})
        EXPECT_FALSE(ParseCrop(wrong, window)) << wrong;
}

TEST(BakeArguments, Frames)
{
    const auto frames = [](const char* text) {
        std::vector<int> list;
        return ParseFrames(text, list) ? list : std::vector<int>();
    };
    EXPECT_EQ(frames("7"), (std::vector{7}));
    EXPECT_EQ(frames("-4--2"), (std::vector{-4, -3, -2}));
    EXPECT_EQ(frames("1-8x3"), (std::vector{1, 4, 7}));
    EXPECT_EQ(frames("3,7,5-3,2147483647"), (std::vector{3, 7, 5, 4, 2147483647}));
    EXPECT_EQ(frames("-999999-0").size(), 1'000'000u);
    for (const char* const wrong :
        {"", "3-", "3-12-14", "a-b", "1,", ",1", "1-4x0", "1-4x-1", "1x", "1-1000001", "-2147483648-2147483647"})
        EXPECT_TRUE(frames(wrong).empty()) << wrong;
}

TEST(BakeArguments, FileNames)
{
    EXPECT_EQ("a_color_7.png", FileName("a_{output}_{frame}.png", "color", 7));
    EXPECT_EQ("a.0007.png", FileName("a.####.png", "color", 7));
    EXPECT_EQ("a.12345.png", FileName("a.####.png", "color", 12345));
    EXPECT_EQ("####", FileName("####", "color", {})); // without a frame a name may be anything
    EXPECT_EQ("07_{output}", FileName("##_{output}", "{output}", 7));
    EXPECT_EQ("x7/x7", FileName("{output}{frame}/{output}{frame}", "x", 7));
}

} // namespace

} // namespace velto::cli

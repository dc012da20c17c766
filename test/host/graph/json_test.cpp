#include "host/graph/json.h"

#include "test/support/probe.h"

#include <bit>
#include <cmath>
#include <random>

namespace velto::test
{

namespace
{

using host::Json;

bool IsSame(double a, double b)
{
    return std::bit_cast<UInt>(a) == std::bit_cast<UInt>(b);
}

TEST(JsonNumbers, ReadBackExactly)
{
    std::vector<double> numbers{0.0, -0.0, 1.0, 0.1, 1.0 / 3.0, 5e-324, 2.2250738585072014e-308, 1.7976931348623157e308,
        9007199254740993.0, 1e21, 1e22, 123456789012345680.0};
    std::mt19937_64 random(1);
    while (numbers.size() < 20'000)
    {
        if (const double number = std::bit_cast<double>(random()); std::isfinite(number))
            numbers.push_back(number);
    }
    for (const double number : numbers)
    {
        const Json read = Parse(Json(number).Write());
        EXPECT_TRUE(IsSame(number, read.AsNumber())) << Json(number).Write();
    }
}

TEST(JsonNumbers, AreTextsWhereJsonHasNone)
{
    EXPECT_EQ(R"(["nan", "inf", "-inf"])", [] {
        Json list = Json::Array();
        list.Append(std::nan(""));
        list.Append(HUGE_VAL);
        list.Append(-HUGE_VAL);
        return list.Write();
    }());
    // In and out of a node.
    const Json results = EvalProbe(
        R"("n": {"type": "keep.colora", "inputs": {"x": ["nan", "inf", "-inf", -0.0]}})", R"("o": "n.result")");
    EXPECT_EQ(R"(["nan", "inf", "-inf", -0.0])", Output(results, "o"));
}

TEST(JsonNumbers, KeepIntegersWhole)
{
    for (const char* const text : {"9223372036854775807", "-9223372036854775808", "18446744073709551615", "0"})
        EXPECT_EQ(text, Parse(text).Write());
}

TEST(JsonTexts, AreEscaped)
{
    const std::string text = "\"\\\n\t\r\x01\x1f /\xC3\xA4";
    EXPECT_EQ(text, Parse(Json(text).Write()).AsString());
    EXPECT_EQ(R"("\u0001")", Json("\x01").Write());
}

TEST(JsonObjects, KeepTheirOrder)
{
    const std::string text = R"({"b": 1, "a": {"z": [], "y": {}}, "c": [1, [2, "x"], null, true]})";
    EXPECT_EQ(text, Parse(text).Write());
    EXPECT_EQ(text, Parse(Parse(text).Write(true)).Write());
}

} // namespace

} // namespace velto::test

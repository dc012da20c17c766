#include "host/text/string.h"

#include "host/loader/services.h"

#include <gtest/gtest.h>

namespace velto::host
{

namespace
{

class HostString : public testing::Test
{
protected:
    void SetUp() override { Services(); }

    static const StringInterface& Host() { return Bound<StringInterface>(); }

    static String Make(std::string_view text)
    {
        String string;
        EXPECT_TRUE(MakeString(text, string).IsOk()) << text;
        return string;
    }
    static String Part(const String& string, Int start, PartEnd end)
    {
        return String::Adopt(Host().GetPart(string.Get(), start, end.word));
    }
    // As a holder that keeps its own reference sees it.
    static Result Append(String& string, const String& tail)
    {
        StringObject* changed = string.Detach();
        Result done = Host().Append(&changed, tail.Get());
        string = String::Adopt(changed);
        return done;
    }
    static Result Replace(String& string, std::string_view search, std::string_view replacement)
    {
        StringObject* changed = string.Detach();
        Result done = Host().Replace(&changed, Make(search).Get(), Make(replacement).Get());
        string = String::Adopt(changed);
        return done;
    }
};

TEST_F(HostString, RefusesWhatIsNotUtf8)
{
    for (const std::string_view text :
        {"\xff", "a\x80", "\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe2\x82"})
    {
        String string = Make("kept");
        StringObject* out = string.Detach();
        EXPECT_EQ(Host().Create(text.data(), text.size(), &out).Kind(), error::kIllegalArgument.View());
        string = String::Adopt(out);
        EXPECT_EQ(Bytes(string), "kept");
    }
    EXPECT_EQ(Bytes(Make(std::string_view("a\0b", 3))), std::string_view("a\0b", 3));
}

TEST_F(HostString, PartsAreHeldToTheRangeAndCutBetweenCharacters)
{
    struct Row
    {
        const char* text;
        Int start;
        PartEnd end;
        const char* expected;
    };
    const Row rows[] = {
        {"abcdef", 1, PartEnd::End(3), "bc"},
        {"abcdef", -2, PartEnd::Count(3), "abc"},
        {"abcdef", 4, PartEnd::End(-1), "ef"},
        {"abcdef", 4, PartEnd::End(2), ""},
        {"aé日🎨z", 1, PartEnd::End(-1), "é日🎨z"},
        {"", 0, PartEnd::End(-1), ""},
    };
    for (const Row& row : rows)
        EXPECT_EQ(Bytes(Part(Make(row.text), row.start, row.end)), row.expected) << row.text << " from " << row.start;
    EXPECT_EQ(Bytes(Part({}, 0, PartEnd::End(-1))), "");
}

TEST_F(HostString, CaseMapsCharacterByCharacter)
{
    const auto upper = [](std::string_view text) {
        return std::string(Bytes(String::Adopt(Host().ToUpper(Make(text).Get()))));
    };
    const auto lower = [](std::string_view text) {
        return std::string(Bytes(String::Adopt(Host().ToLower(Make(text).Get()))));
    };
    EXPECT_EQ(upper("größe, ñandú, ωmega, 日本 1!"), "GRÖẞE, ÑANDÚ, ΩMEGA, 日本 1!");
    EXPECT_EQ(lower("ÀÉÎ ΣΑΣ ЖУК"), "àéî σασ жук");
    EXPECT_EQ(upper("ɐ"), "Ɐ");      // one more byte
    EXPECT_EQ(lower("\u212A"), "k"); // the Kelvin sign: two fewer
    EXPECT_EQ(upper(""), "");
}

TEST_F(HostString, DoesNotGrowBeyondAGibibyte)
{
    const std::string many(1 << 16, 'a');
    String string = Make(many);
    EXPECT_EQ(Replace(string, "a", many).Kind(), error::kOutOfMemory.View());
    EXPECT_EQ(Bytes(string), many);
}

TEST_F(HostString, ChangesAreNotSeenByOtherHolders)
{
    String string = Make("ab");
    const String other = string;
    ASSERT_TRUE(Append(string, Make("é")).IsOk());
    EXPECT_EQ(Bytes(string), "abé");
    EXPECT_EQ(Bytes(other), "ab");
    const StringObject* const own = string.Get();
    ASSERT_TRUE(Append(string, Make("d")).IsOk());
    EXPECT_EQ(string.Get(), own) << "nobody else holds it: changed in place";
    EXPECT_EQ(Host().GetLength(string.Get()), 4);

    String copy = string;
    ASSERT_TRUE(Replace(copy, "a", "x").IsOk());
    EXPECT_EQ(Bytes(copy), "xbéd");
    EXPECT_EQ(Bytes(string), "abéd");

    const String doubled = string; // appended to itself
    ASSERT_TRUE(Append(string, doubled).IsOk());
    EXPECT_EQ(Bytes(string), "abédabéd");

    String empty = String::Adopt(Host().GetEmpty());
    ASSERT_TRUE(Append(empty, string).IsOk());
    EXPECT_EQ(Bytes(String::Adopt(Host().GetEmpty())), "");
}

} // namespace

} // namespace velto::host

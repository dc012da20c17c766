#include "velto/system.h"

#include "host/text/interned.h"

#include <gtest/gtest.h>

namespace velto
{

namespace
{

TEST(Id, HasTheStatedWord)
{
    struct Row
    {
        Id id;
        UInt word;
    };
    // The last is longer than the hash has bits, so that what is above them must fall away.
    const Row rows[] = {{"", 0}, {"result", 0x6000C84DC81D}, {"color", 0x500005A72F63}, {"a", 0x100000000061},
        {"net.velto.corenode.registry.corenodes",
            (HashBytes("net.velto.corenode.registry.corenodes") & 0x7FFFFFFFFFF) + (UInt(37) << 44)}};
    for (const Row& row : rows)
    {
        EXPECT_EQ(row.word, row.id.Word()) << row.id.View();
        Id owned;
        ASSERT_TRUE(Id::Create(row.id.View(), owned).IsOk());
        // Bit 43 tells that the string is owned; an empty one owns nothing.
        EXPECT_EQ(row.word | (row.id.IsEmpty() ? 0 : UInt(1) << 43), owned.Word());
        EXPECT_TRUE(row.id == owned && owned == row.id);
    }
    // Bytes above 127 count as what they are, not as negative numbers.
    EXPECT_EQ(0xC3u * 31 + 0xA4, HashBytes("\xC3\xA4"));
}

TEST(Id, IsEqualByStringNotByHash)
{
    // "Aa" and "BB" have one hash.
    const Id a("Aa");
    const Id b("BB");
    EXPECT_EQ(a.Word(), b.Word());
    EXPECT_FALSE(a == b);
    const std::string copy("Aa");
    EXPECT_TRUE(a == Id::OverStatic(copy));
}

TEST(Id, SharesItsOwnedString)
{
    Id copy;
    {
        std::string text("made at run time");
        Id owned;
        ASSERT_TRUE(Id::Create(text, owned).IsOk());
        text.assign(text.size(), 'x');
        copy = owned;
        EXPECT_EQ(owned.CString(), copy.CString());
        const Id moved(std::move(owned));
        EXPECT_TRUE(owned.IsEmpty() && !owned.IsOwned());
        EXPECT_TRUE(moved == copy);
    }
    EXPECT_STREQ("made at run time", copy.CString());
}

TEST(Id, TakesAsManyBytesAsItsLengthHolds)
{
    Id id("before");
    EXPECT_TRUE(Id::Create(std::string(Id::kMaxLength, 'x'), id).IsOk());
    EXPECT_EQ(Id::kMaxLength, id.Length());
    EXPECT_EQ(error::kIllegalArgument.View(), Id::Create(std::string(Id::kMaxLength + 1, 'x'), id).Kind());
    EXPECT_EQ(Id::kMaxLength, id.Length());
}

TEST(InternedId, HasOnePointerPerString)
{
    const InternedId repeat = host::Intern("repeat");
    EXPECT_TRUE(repeat == host::Intern(std::string("repeat")));
    EXPECT_FALSE(repeat == host::Intern("repea"));
    EXPECT_TRUE(host::Intern("").IsEmpty() && host::Intern("") == InternedId());
}

} // namespace

} // namespace velto

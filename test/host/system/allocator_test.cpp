#include "host/system/allocator.h"

#include "velto/system.h"

#include <gtest/gtest.h>

namespace velto::host
{

namespace
{

TEST(Memory, ComesInLargeBlocksUpToALimit)
{
    const SystemInterface& system = SystemService();
    for (UInt size = UInt(1) << 20; size < UInt(64) << 20; size = size * 3 + 1)
    {
        auto* const block = static_cast<std::uint8_t*>(system.Alloc(size, nullptr));
        ASSERT_TRUE(block);
        block[0] = 1;
        block[size - 1] = 2;
        auto* const longer = static_cast<std::uint8_t*>(system.Realloc(block, size * 2, nullptr));
        ASSERT_TRUE(longer);
        EXPECT_TRUE(longer[0] == 1 && longer[size - 1] == 2);
        EXPECT_FALSE(system.Realloc(longer, kMostBytes + 1, nullptr));
        system.Free(longer);
    }
    EXPECT_FALSE(system.Alloc(kMostBytes + 1, nullptr));
}

} // namespace

} // namespace velto::host

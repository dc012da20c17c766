#include "host/system/memory.h"

#include "host/loader/services.h"
#include "host/system/allocator.h"
#include "velto/system.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>

namespace velto::test
{

TEST(Memory, TheLeastLimitOfTheGroupsCounts)
{
    struct Row
    {
        const char* groups; // as the process is told
        const char* file;
        const char* limit;
        bool counts;
    };
    const Row rows[] = {{"0::/a/b\n", "sys/fs/cgroup/a/b/memory.max", "123456789", true},
        {"0::/a/b\n", "sys/fs/cgroup/a/memory.max", "123456789", true},
        {"0::/a/b\n", "sys/fs/cgroup/memory.max", "123456789", true}, // in a container
        {"0::/a\n", "sys/fs/cgroup/a/memory.max", "max", false},
        {"0::/a\n", "sys/fs/cgroup/c/memory.max", "123456789", false},
        {"4:cpu,memory:/a\n0::/\n", "sys/fs/cgroup/memory/a/memory.limit_in_bytes", "123456789", true},
        {"4:memory:/gone\n", "sys/fs/cgroup/memory/memory.limit_in_bytes", "123456789", true},
        {"4:memory:/a\n", "sys/fs/cgroup/memory/a/memory.limit_in_bytes", "9223372036854771712", false},
        {"4:cpu:/a\n", "sys/fs/cgroup/memory/a/memory.limit_in_bytes", "123456789", false}};
    const std::filesystem::path root =
        std::filesystem::path(::testing::TempDir()) / ("velto_memory_" + std::to_string(::getpid()));
    const UInt all = host::AvailableMemory(root);
    for (const Row& row : rows)
    {
        for (const auto& [file, text] : {std::pair{"proc/self/cgroup", row.groups}, {row.file, row.limit}})
        {
            std::filesystem::create_directories((root / file).parent_path());
            std::ofstream(root / file) << text;
        }
        EXPECT_EQ(row.counts ? UInt(123456789) : all, host::AvailableMemory(root)) << row.groups << row.file;
        std::filesystem::remove_all(root);
    }
}

TEST(Memory, BlocksShareTheBudget)
{
    host::Services();
    const SystemInterface& system = Bound<SystemInterface>();
    const UInt before = host::MemoryTaken();
    const UInt refusals = host::MemoryRefusals();
    constexpr UInt kMegabyte = UInt(1) << 20;
    host::SetMemoryBudget(before + 10 * kMegabyte);
    void* const first = Allocate(4 * kMegabyte);
    void* second = Allocate(kMegabyte);
    ASSERT_TRUE(first && second);
    EXPECT_FALSE(Allocate(6 * kMegabyte));
    EXPECT_FALSE(system.Realloc(second, 6 * kMegabyte, nullptr));
    EXPECT_EQ(refusals + 2, host::MemoryRefusals());
    {
        const host::MemoryTrial trial;
        EXPECT_FALSE(Allocate(6 * kMegabyte));
    }
    EXPECT_EQ(refusals + 2, host::MemoryRefusals());
    system.Free(first);
    second = system.Realloc(second, 6 * kMegabyte, nullptr);
    ASSERT_TRUE(second);
    second = system.Realloc(second, 100, nullptr);
    EXPECT_EQ(before, host::MemoryTaken());
    {
        host::MemoryShare share;
        share.Take(9 * kMegabyte);
        EXPECT_THROW(share.Take(2 * kMegabyte), std::bad_alloc);
        EXPECT_FALSE(Allocate(2 * kMegabyte));
    }
    system.Free(second);
    EXPECT_EQ(before, host::MemoryTaken());
}

} // namespace velto::test

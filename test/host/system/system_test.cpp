#include "host/system/cores.h"
#include "host/system/sha256.h"

#include <gtest/gtest.h>

#include <fstream>

namespace velto::host
{

namespace
{

TEST(Sha256, OfKnownTexts)
{
    const struct
    {
        std::string text;
        const char* sum;
    } table[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {std::string(1'000'000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto& row : table)
    {
        Sha256 sum;
        // In pieces of all lengths.
        for (std::size_t at = 0, piece = 1; at < row.text.size(); at += piece++)
            sum.Add(row.text.data() + at, std::min(piece, row.text.size() - at));
        EXPECT_EQ(sum.Finish(), row.sum);
    }
}

TEST(Cores, TheTightestGroupCounts)
{
    const std::filesystem::path root = std::filesystem::path(testing::TempDir()) / "velto_cores";
    std::filesystem::create_directories(root / "a/b");
    std::filesystem::create_directories(root / "cpu/c");
    const auto quota = [&](const char* groups) {
        std::ofstream(root / "groups") << groups;
        return CoreQuota(root, root / "groups");
    };
    EXPECT_EQ(quota("0::/a/b\n"), 0.0);
    std::ofstream(root / "a/b/cpu.max") << "max 100000";
    EXPECT_EQ(quota("0::/a/b\n"), 0.0);
    std::ofstream(root / "a/cpu.max") << "150000 100000";
    EXPECT_EQ(quota("0::/a/b\n"), 1.5);
    std::ofstream(root / "cpu/c/cpu.cfs_quota_us") << "-1";
    std::ofstream(root / "cpu/c/cpu.cfs_period_us") << "100000";
    EXPECT_EQ(quota("4:cpu,cpuacct:/c\n"), 0.0);
    std::ofstream(root / "cpu/c/cpu.cfs_quota_us") << "50000";
    EXPECT_EQ(quota("4:cpu,cpuacct:/c\n0::/a/b\n"), 0.5);
    EXPECT_EQ(quota("nothing"), 0.0);
    std::filesystem::remove_all(root);
}

} // namespace

} // namespace velto::host

#include "velto/corenodes.h"
#include "velto/module.h"
#include "velto/system.h"

#include <gtest/gtest.h>

namespace velto
{

namespace
{

// The names of an interface's slots.
template <class Interface>
std::vector<std::string> Names()
{
    std::vector<std::string> names;
    const char* name = kMethodNames<Interface>.data();
    for (std::size_t i = 0; i < kSlotCount<Interface>; ++i, name += names.back().size() + 1)
        names.emplace_back(name);
    EXPECT_EQ(kMethodNames<Interface>.data() + kMethodNames<Interface>.size(), name);
    return names;
}

struct SampleInterface
{
    static constexpr Id kId{"net.velto.test.interface.sample"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    VELTO_METHOD(Same, Result(Int32 x));
    VELTO_METHOD(Same2, Result(Int32 x));
    VELTO_METHOD(Other, Result(UInt32 x));
    VELTO_METHOD(Pointer, Result(const Int32* x));
    VELTO_METHOD(Reference, Result(const Int32& x));
    VELTO_METHOD(Number, Float(Int x));
    VELTO_METHOD(Nothing, void());
};

std::string HashOf(const std::string& name)
{
    return name.substr(name.find('@'));
}

TEST(InterfaceNames, AreMethodAndSignature)
{
    const std::vector<std::string> group = Names<MicroNodeGroupInterface>();
    EXPECT_EQ("AddMicroNode@8114f0cc8d495750", group[4]); // given
    EXPECT_TRUE(group[0].starts_with("Alloc@"));
    EXPECT_EQ(6u + 16u, group[0].size());

    // Only the signature is hashed, and all of it.
    const std::vector<std::string> sample = Names<SampleInterface>();
    EXPECT_EQ(HashOf(sample[0]), HashOf(sample[1]));
    for (const std::size_t other : {2, 3, 4, 5, 6})
        EXPECT_NE(HashOf(sample[0]), HashOf(sample[other])) << sample[other];
    EXPECT_NE(HashOf(sample[3]), HashOf(sample[4]));
}

// A module that was built once must bind for good: these hashes may not change with compilers or with time.
TEST(InterfaceNames, StayTheSame)
{
    EXPECT_EQ((std::vector<std::string>{"Alloc@31c72487d34d5082", "Realloc@c2263b26c78bf30a", "Free@6f9d24e5b14b3658",
                  "FreeWithDestructorI@163fcd3a003467f5"}),
        Names<SystemInterface>());
}

TEST(UnboundSlot, ReportsItsInterface)
{
    ::testing::internal::CaptureStderr();
    const Result result = kUnboundSlots<SampleInterface>.Same(1);
    const Float number = kUnboundSlots<SampleInterface>.Number(1);
    EXPECT_EQ("Method invocation of unresolvable interface net.velto.test.interface.sample\nStop\n"
              "Method invocation of unresolvable interface net.velto.test.interface.sample\nStop\n",
        ::testing::internal::GetCapturedStderr());
    EXPECT_EQ("net.velto.error.unresolved", result.Kind());
    EXPECT_EQ(0.0, number);
}

// Who cannot say what went wrong has failed all the same.
TEST(UnboundSlot, OfErrorsIsAnError)
{
    const auto bound = slots<ErrorInterface>;
    slots<ErrorInterface> = kUnboundSlots<ErrorInterface>;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ("net.velto.error.unresolved", MakeError(error::kIllegalState, "text").Kind());
    EXPECT_TRUE(OutOfMemory().IsError());
    ::testing::internal::GetCapturedStderr();
    slots<ErrorInterface> = bound;
}

TEST(Initializer, IsMissedBeforeAHostHasLoadedTheModule)
{
    ModuleExport unloaded;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(nullptr, GetInitializer(unloaded));
    EXPECT_EQ("Assertion failed: g_velto.GetInitializer()\n", ::testing::internal::GetCapturedStderr());
}

// Records are constructed once; what only a faulty build can ask for traps.
TEST(RecordDeathTest, RefusesWhatOnlyAFaultyBuildAsksFor)
{
    ModuleExport unloaded;
    static ModuleRecord module;
    module.ConstructModule("net.velto.test.once", 0, nullptr, 0, unloaded);
    module.ConstructModule("net.velto.test.once", 0, nullptr, 0, unloaded);
    EXPECT_EQ(&module, unloaded.moduleRecords);
    EXPECT_EQ(nullptr, module.nextModule);

    Record record;
    record.Construct(RecordKind::Label, "name", &module, 0);
    EXPECT_DEATH(record.Construct(RecordKind::Label, "name", &module, 0), "");
    EXPECT_DEATH(Record().Construct(RecordKind::Label, "name", &module, 2), "");
    EXPECT_DEATH(Record().Construct(RecordKind::Label, {}, &module, 0), "");
    Record().Construct(RecordKind::Label, "name", &module, 0x8002);
    Record().Construct(RecordKind::Declaration, {}, &module, record_flags::kPublished);
}

} // namespace

} // namespace velto

#include "host/loader/records.h"

#include "test/support/records.h"

#include <gmock/gmock.h>

#include <string>

namespace velto::host
{

namespace
{

using test::Records;
using ::testing::HasSubstr;

// Records lie where a library does.
class ModuleRecords : public ::testing::Test
{
protected:
    ModuleRecords() : records(*::new (memory) Records) {}

    alignas(Records) static inline std::byte memory[sizeof(Records)];
    Records& records;
};

TEST_F(ModuleRecords, SoundOnesPass)
{
    const Result checked = CheckRecords("x.module", records.exported, MappedLibraries());
    EXPECT_TRUE(checked.IsOk()) << checked.Message();
}

struct Damage
{
    const char* name;
    void (*damage)(Records& records);
    const char* text;
};

class DamagedRecords : public ModuleRecords, public ::testing::WithParamInterface<Damage>
{
};

TEST_P(DamagedRecords, AreRefused)
{
    GetParam().damage(records);
    const Result checked = CheckRecords("x.module", records.exported, MappedLibraries());
    EXPECT_EQ(error::kIllegalArgument.View(), checked.Kind());
    EXPECT_THAT(std::string(checked.Message()), HasSubstr(GetParam().text));
}

template <class T>
T* Garbage()
{
    return reinterpret_cast<T*>(0x10008);
}

// Of an id over a literal, with another hash.
Id WrongWord()
{
    struct
    {
        const char* text = "name";
        UInt word = Id("name").Word() + 1;
    } words;
    Id id;
    std::memcpy(static_cast<void*>(&id), &words, sizeof(id));
    return id;
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Table, DamagedRecords, ::testing::ValuesIn(std::vector<Damage>{
    {"None", [](Records& r) { r.exported.moduleRecords = nullptr; }, "it has no records"},
    {"ModuleOutside", [](Records& r) { r.module.nextModule = Garbage<ModuleRecord>(); }, "a module record lies outside"},
    {"ModuleOdd", [](Records& r) {
        r.exported.moduleRecords = reinterpret_cast<ModuleRecord*>(reinterpret_cast<char*>(&r.module) + 1); }, "lies outside"},
    {"ModuleLoops", [](Records& r) { r.module.nextModule = &r.module; }, "a module record stands in a chain twice"},
    {"ModuleOfAnother", [](Records& r) { r.module.module = nullptr; }, "of another kind or module"},
    {"RequiredOutside", [](Records& r) { r.module.required = Garbage<Id>(); }, "the required modules of"},
    {"RequiredTooMany", [](Records& r) { r.module.requiredCount = ~0u; }, "the required modules of"},
    {"UnitLoops", [](Records& r) { r.second.next = &r.first; }, "a translation unit stands in a chain twice"},
    {"UnitOutside", [](Records& r) { r.second.next = Garbage<Record>(); }, "a translation unit lies outside"},
    {"UnitOfAnotherKind", [](Records& r) { r.second.kind = RecordKind::Step; }, "second is no translation unit"},
    {"UnitOfAnotherModule", [](Records& r) { r.second.owner = &r.first; }, "second belongs to another"},
    {"RecordLoops", [](Records& r) { r.importing.next = &r.published; }, "a record stands in a chain twice"},
    {"RecordInTwoChains", [](Records& r) { r.importing.next = &r.label; }, "a record stands in a chain twice"},
    {"RecordOutside", [](Records& r) { r.importing.next = Garbage<Record>(); }, "a record lies outside"},
    {"RecordOfNoKind", [](Records& r) { r.label.kind = static_cast<RecordKind>(99); }, "asks for"},
    {"IdOutside", [](Records& r) { r.label.id = Id::OverStatic("label"); std::memset(static_cast<void*>(&r.label.id), 1, 8); }, "the word of an id"},
    {"IdOfAnotherText", [](Records& r) { r.label.id = WrongWord(); }, "the word of an id"},
    {"StepWithoutFree", [](Records& r) { r.step.free = nullptr; }, "step of second"},
    {"StepThatIsData", [](Records& r) { r.step.initialize = reinterpret_cast<Result (*)()>(&r.module); }, "step of second"},
    {"DeclarationWithoutFunctions", [](Records& r) { r.published.create = nullptr; }, "published of second"},
    {"ImportOutside", [](Records& r) { r.importing.imported = Garbage<void>(); }, "importing of second"},
    {"SlotsOutside", [](Records& r) { r.binding.slots = Garbage<void (*)()>(); }, "net.velto.test.interface of first"},
    {"TooManyMethods", [](Records& r) { r.binding.methodCount = 1u << 30; }, "net.velto.test.interface of first"},
    {"NoNames", [](Records& r) { r.binding.methodNames = nullptr; }, "net.velto.test.interface of first"},
    {"DependencyLoops", [](Records& r) { r.byName.next = &r.byRecord; }, "a dependency stands in a chain twice"},
    {"DependencyOutside", [](Records& r) { r.byRecord.target = Garbage<Record>(); }, "a dependency of second"},
    {"DependencyOnNoRecord", [](Records& r) { r.byRecord.target = reinterpret_cast<Record*>(&r.slots); }, "in no chain"},
    {"ProviderLoops", [](Records& r) { r.provider.next = &r.provider; }, "a provider of functions stands"},
    {"ProviderOfNothing", [](Records& r) { r.provider.provide = nullptr; }, "a provider of functions has none"},
    {"TypeLoops", [](Records& r) { r.otherType.next = &r.type; }, "a data type stands in a chain twice"},
    {"TypeWithoutGetter", [](Records& r) { r.otherType.getter = nullptr; }, "a data type has no getter"},
}), [](const auto& info) { return info.param.name; });
// clang-format on

} // namespace

} // namespace velto::host

// Damages sound records word by word and has them checked: any answer will do that comes, and reads nothing else.
#include "host/loader/records.h"
#include "test/support/records.h"

#include <cstring>

namespace velto
{

namespace
{

using test::Records;

// One word of the records, and what it becomes.
struct Stroke
{
    std::uint16_t word;
    UInt8 kind;
    UInt8 spare;
    UInt32 value;
};

// Errors without a host, and without their texts.
const bool bound = [] {
    slots<ErrorInterface>.Create.function = [](auto...) { return detail::UnresolvedError(); };
    return true;
}();

void Apply(const Stroke& stroke, std::byte* memory)
{
    constexpr std::size_t words = sizeof(Records) / sizeof(UInt);
    std::byte* const place = memory + stroke.word % words * sizeof(UInt);
    UInt value = stroke.value;
    switch (stroke.kind % 4)
    {
    case 0: // a pointer to another word
        value = reinterpret_cast<UInt>(memory) + stroke.value % sizeof(Records);
        break;
    case 1: // what another word holds
        std::memcpy(&value, memory + stroke.value % words * sizeof(UInt), sizeof(UInt));
        break;
    case 2: // a bit the other way
        std::memcpy(&value, place, sizeof(UInt));
        value ^= UInt(1) << stroke.value % 64;
        break;
    default:
        break;
    }
    std::memcpy(place, &value, sizeof(UInt));
}

} // namespace

} // namespace velto

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace velto;
    alignas(Records) static std::byte memory[sizeof(Records)];
    ::new (memory) Records;
    for (; size >= sizeof(Stroke); data += sizeof(Stroke), size -= sizeof(Stroke))
    {
        Stroke stroke;
        std::memcpy(&stroke, data, sizeof(stroke));
        Apply(stroke, memory);
    }
    static const std::vector<host::MappedRange> mapped = host::MappedLibraries();
    host::CheckRecords("", *reinterpret_cast<ModuleExport*>(memory), mapped).Ignore();
    return 0;
}

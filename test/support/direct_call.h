// Calls a core node's compute function without a graph around it: batches, odd bytes, failing allocations.
#pragma once

#include "host/corenode/factory.h"
#include "host/corenode/group.h"
#include "host/registry/dictionary.h"
#include "host/registry/registry.h"
#include "test/support/eval.h"
#include "velto/porttypes.h"

#include <vector>

namespace velto::test
{

class DirectCall
{
public:
    // The node `id`, built with `arguments`, with room for `samples` values of each port.
    explicit DirectCall(std::string_view id, const DataDictionary& arguments = {}, std::size_t samples = 1)
    {
        TheModule();
        const Data* const entry = host::FindEntry(registry::kCoreNodes.View(), id);
        const auto* const factory = entry ? entry->As<CoreNodeFactory>() : nullptr;
        if (!factory || host::CreateGroup(*factory, arguments, group_).IsError())
            throw std::runtime_error("no such node: " + std::string(id));
        const auto& access = host::AsHost(group_).access;
        frame_.resize(sizeof(FrameHead) + access.size() * sizeof(Slot));
        Head() = FrameHead{{}, 0, static_cast<Int>(samples)};
        for (std::size_t i = 0; i < access.size(); ++i)
        {
            const DataTypeOperations& operations = access[i]->type->operations;
            offsets_.push_back(static_cast<UInt32>(sizeof(FrameHead) + i * sizeof(Slot)));
            auto& slot = *::new (&frame_[offsets_[i]]) Slot;
            slot.value = ::operator new(operations.size* samples);
            slot.stride = samples > 1 ? static_cast<UInt32>(operations.size) : 0;
            for (std::size_t sample = 0; sample < samples; ++sample)
                operations.construct(static_cast<std::byte*>(slot.value) + sample * operations.size);
        }
        samples_ = samples;
    }
    ~DirectCall()
    {
        const auto& access = host::AsHost(group_).access;
        for (std::size_t i = 0; i < access.size(); ++i)
        {
            const DataTypeOperations& operations = access[i]->type->operations;
            for (std::size_t sample = 0; operations.destroy && sample < samples_; ++sample)
                operations.destroy(static_cast<std::byte*>(SlotOf(i).value) + sample * operations.size);
            ::operator delete(SlotOf(i).value);
        }
    }
    DirectCall(const DirectCall&) = delete;
    DirectCall& operator=(const DirectCall&) = delete;

    FrameHead& Head() { return *reinterpret_cast<FrameHead*>(frame_.data()); }
    Slot& SlotOf(std::size_t index) { return *reinterpret_cast<Slot*>(&frame_[offsets_[index]]); }

    // A port's value by access index.
    template <class T>
    T& Port(std::size_t index, std::size_t sample = 0)
    {
        return static_cast<T*>(SlotOf(index).value)[sample];
    }

    Result Run()
    {
        const MicroNode* const record = host::AsHost(group_).record;
        const Binding binding{frame_.data(), offsets_.data()};
        alignas(Result) std::byte memory[sizeof(Result)];
        record->compute(reinterpret_cast<Result*>(memory), record, &binding);
        return std::move(*reinterpret_cast<Result*>(memory));
    }

    const host::HostGroup& Group() const { return host::AsHost(group_); }

private:
    Ref<MicroNodeGroup> group_;
    std::vector<UInt32> offsets_;
    std::vector<std::byte> frame_;
    std::size_t samples_ = 0;
};

// Construction arguments of one entry.
template <class T>
DataDictionary Arguments(const Id& name, const T& value)
{
    TheModule();
    DataDictionary dictionary;
    Bound<DataDictionaryInterface>().Alloc(dictionary.Receive()).Ignore();
    SetData(dictionary, name, value).Ignore();
    return dictionary;
}

} // namespace velto::test

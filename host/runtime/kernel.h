// A program compiled for one shape of samples, as `ThreadSampler` runs it in place of calls.
#pragma once

#include "program.h"

namespace velto::host
{

enum class ValueFormat : std::uint8_t
{
    Float64,
    Float32, // rounded; a negative zero loses its sign, as in a picture
};

// What arrays a call of a sampler has, but for where they lie and how many samples they hold.
struct SampleShape
{
    // A number of the context that varies.
    struct Lane
    {
        UInt32 offset = 0; // in the context
        std::ptrdiff_t stride = 0;

        friend bool operator==(const Lane&, const Lane&) = default;
    };
    struct Value
    {
        std::size_t output = 0;
        std::ptrdiff_t stride = 0;
        ValueFormat format = ValueFormat::Float64;

        friend bool operator==(const Value&, const Value&) = default;
    };

    std::vector<Lane> lanes;
    std::vector<Value> values;

    friend bool operator==(const SampleShape&, const SampleShape&) = default;
};

struct SampleKernel
{
    // [any thread] Null, or the error object of a sample that failed, with one reference. `shared` and `frame` are as
    // an instance has them; `runs` counts, by body, how often a function was invoked.
    using Entry = void* (*)(const void* const* lanes, const ShadingContext* shared, std::byte* frame, Int count,
        void* const* values, UInt* runs);

    SampleShape shape;
    Entry entry = nullptr;
    std::shared_ptr<const void> code; // where the entry lies
};

} // namespace velto::host

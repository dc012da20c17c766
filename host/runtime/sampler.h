// Many samples in one call: from arrays of context fields to arrays of values.
//
//     std::unique_ptr<Sampler> sampler;
//     Sampler::Create(*graph.setup, shared, sampler);                      // after `Setup::Run`
//     const FieldArray fields[] = {{*FindContextField("uvw"), uvw, 3 * sizeof(double)}};
//     const ValueArray values[] = {{0, colors, 4 * sizeof(double)}};
//     sampler->Sample(count, fields, values);                              // from any thread
#pragma once

#include "instance.h"
#include "kernel.h"

#include <span>

namespace velto::host
{

// A field of the shading context that may have a value of its own in every sample: numbers of 8 bytes.
struct ContextField
{
    std::string_view name; // as in ShadingContext
    UInt32 offset = 0;     // there
    UInt32 numbers = 0;    // that it consists of
    bool isInteger = false;
};

std::span<const ContextField> ContextFields();

// Null where there is none of that name.
const ContextField* FindContextField(std::string_view name);

// Where the values of a field lie: the first sample's, and bytes from each to the next. A stride of 0 gives all samples
// the same.
struct FieldArray
{
    ContextField field;
    const void* data = nullptr;
    std::ptrdiff_t stride = 0;
};

// Where the values of an output go: its numbers in a row, as many as `NumbersOf` says.
struct ValueArray
{
    std::size_t output = 0; // of the program
    void* data = nullptr;
    std::ptrdiff_t stride = 0; // bytes from a sample's to the next's
    ValueFormat format = ValueFormat::Float64;
};

// How many numbers a value of a type is: 0 where it is no number and has no components.
int NumbersOf(const DataType* type);

struct SampleFailure
{
    std::size_t sample = 0;
    const std::string* node = nullptr; // null: none in particular
};

// One thread's way through samples. The setup outlives it.
class ThreadSampler
{
public:
    // Fields for which a call gives no array are as in `shared`. What nodes keep from sample to sample starts from
    // `start`, on every thread alike, so that no sample depends on those before it.
    static Result Create(
        Setup& setup, const ShadingContext& shared, const ShadingContext& start, std::unique_ptr<ThreadSampler>& made);

    const ShadingContext& Shared() const { return shared_; }
    void SetShared(const ShadingContext& shared) { CopyContext(shared_, shared); }

    // Computes `count` samples. On error those before the failed one are written, and those after it are not.
    Result Sample(std::size_t count, std::span<const FieldArray> fields, std::span<const ValueArray> values,
        SampleFailure* failure = nullptr);

    const EvaluationCounts& Counts() const { return counts_; }

    // As `Instance::TimeInto`.
    void TimeInto(NodeTimes* times) { instance_->TimeInto(times); }

    // The shape of the last call's arrays.
    SampleShape LastShape() const;

    // Samples of the kernel's shape go through it from now on; all others, and those that fail, are made by calls.
    void UseKernel(std::shared_ptr<const SampleKernel> kernel);

private:
    // A number of the context that varies.
    struct Lane
    {
        UInt* to;
        const std::byte* from;
        std::ptrdiff_t stride;
    };
    // An output on its way to an array.
    struct Store
    {
        void (*store)(const void* value, std::byte* to);
        const void* from;
        std::byte* to;
        std::ptrdiff_t stride;
    };

    ThreadSampler(Setup& setup, const ShadingContext& shared) : setup_(setup), shared_(shared) {}

    Result Evaluate(std::size_t count, SampleFailure* failure);
    bool HasKernelsShape(std::span<const ValueArray> values) const;
    bool RunKernel(std::size_t count, std::span<const ValueArray> values);

    Setup& setup_;
    ShadingContext shared_;
    std::vector<ValueArray> values_; // of the last call
    std::shared_ptr<const SampleKernel> kernel_;
    std::vector<const void*> kernelLanes_;
    std::vector<void*> kernelValues_;
    std::vector<UInt> kernelRuns_; // by body
    std::unique_ptr<Instance> instance_;
    EvaluationCounts counts_;
    std::vector<Lane> lanes_;
    std::vector<Store> stores_;
    bool readsContext_ = true;
};

// Samples from any number of threads at once, each with a frame of its own.
class Sampler
{
public:
    // Fields for which a call gives no array are as in `shared`, from which also what nodes keep starts. The setup
    // outlives the sampler; what `shared` leads to (search paths, messages) does too.
    static Result Create(Setup& setup, const ShadingContext& shared, std::unique_ptr<Sampler>& made);

    // [any thread] As `ThreadSampler::Sample`.
    Result Sample(std::size_t count, std::span<const FieldArray> fields, std::span<const ValueArray> values,
        SampleFailure* failure = nullptr);

private:
    Sampler(Setup& setup, const ShadingContext& shared) : setup_(setup), shared_(shared) {}

    Setup& setup_;
    ShadingContext shared_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<ThreadSampler>> idle_;
};

} // namespace velto::host

#include "graph.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>
#include <thread>

namespace velto::python
{

namespace
{

using Clock = std::chrono::steady_clock;
using Shape = std::vector<py::ssize_t>;

// A field as Python names it: a number of the context, or several.
struct NamedField
{
    const char* name;
    std::vector<const char*> fields; // of the context; those that it gives
    UInt32 first = 0;                // of their numbers
    UInt32 numbers = 0;              // 0: all
};

// `u` and `v` are parts of `uvw`; what is given by a longer name comes later and counts.
const std::vector<NamedField>& NamedFields()
{
    static const std::vector<NamedField> fields{
        {"u", {"uvw", "uvwPlusDeltaU", "uvwPlusDeltaV"}, 0, 1},
        {"v", {"uvw", "uvwPlusDeltaU", "uvwPlusDeltaV"}, 1, 1},
        {"uvw", {"uvw", "uvwPlusDeltaU", "uvwPlusDeltaV"}},
        {"uvw_plus_du", {"uvwPlusDeltaU"}},
        {"uvw_plus_dv", {"uvwPlusDeltaV"}},
        {"normal", {"geometricNormal", "secondNormal", "shadingNormal"}},
        {"geometric_normal", {"geometricNormal"}},
        {"second_normal", {"secondNormal"}},
        {"shading_normal", {"shadingNormal"}},
        {"sample_position", {"samplePosition"}},
        {"sample_position_plus_du", {"samplePositionPlusDeltaU"}},
        {"sample_position_plus_dv", {"samplePositionPlusDeltaV"}},
        {"tangent", {"tangent"}},
        {"bitangent", {"bitangent"}},
        {"pixel", {"pixel"}},
        {"subpixel", {"subpixel"}},
        {"time", {"time"}},
        {"frame_rate", {"frameRate"}},
        {"ray_origin", {"rayOrigin"}},
        {"ray_direction", {"rayDirection"}},
        {"ray_origin_plus_du", {"rayOriginPlusDeltaU"}},
        {"ray_origin_plus_dv", {"rayOriginPlusDeltaV"}},
        {"ray_direction_plus_du", {"rayDirectionPlusDeltaU"}},
        {"ray_direction_plus_dv", {"rayDirectionPlusDeltaV"}},
    };
    return fields;
}

std::string Text(const Shape& shape)
{
    return shape.size() == 1 ? fmt::format("({},)", shape[0]) : fmt::format("({})", fmt::join(shape, ", "));
}

// An argument as an array of the numbers that its field has.
struct GivenArray
{
    const NamedField* name;
    UInt32 numbers;
    py::array array;
    Shape shape;   // of its samples
    Shape strides; // in bytes
    py::ssize_t numberStride = 0;
};

GivenArray ReadArray(const NamedField& name, py::handle value)
{
    const host::ContextField& field = *host::FindContextField(name.fields[0]);
    const UInt32 numbers = name.numbers > 0 ? name.numbers : field.numbers;
    const py::array given = py::array::ensure(value);
    if (!given)
    {
        PyErr_Clear();
        throw py::value_error(fmt::format("{}: expected an array of numbers", name.name));
    }
    const char kind = given.dtype().kind();
    const bool isNumber = kind == 'b' || kind == 'i' || kind == 'u' || (kind == 'f' && !field.isInteger);
    if (!isNumber)
        throw py::value_error(fmt::format("{}: expected an array of {}, got one of {} with the shape {}", name.name,
            field.isInteger ? "whole numbers" : "numbers", py::cast<std::string>(py::str(given.dtype())),
            Text({given.shape(), given.shape() + given.ndim()})));
    // No copy where it is one of such numbers.
    py::array array = field.isInteger ? py::array(py::array_t<Int, py::array::forcecast>::ensure(given))
                                      : py::array(py::array_t<double, py::array::forcecast>::ensure(given));
    if (!array)
        throw py::error_already_set();
    GivenArray read{&name, numbers, std::move(array), {}, {}, 0};
    read.shape.assign(read.array.shape(), read.array.shape() + read.array.ndim());
    read.strides.assign(read.array.strides(), read.array.strides() + read.array.ndim());
    if (numbers == 1)
        return read;
    if (read.shape.empty() || read.shape.back() != static_cast<py::ssize_t>(numbers))
        throw py::value_error(
            fmt::format("{}: expected the shape (..., {}), got {}", name.name, numbers, Text(read.shape)));
    read.numberStride = read.strides.back();
    read.shape.pop_back();
    read.strides.pop_back();
    return read;
}

// The shape that all have, as numpy broadcasts.
Shape CommonShape(const std::vector<GivenArray>& arrays)
{
    Shape common;
    const GivenArray* last = nullptr; // that made it what it is
    for (const GivenArray& array : arrays)
    {
        const Shape before = common;
        if (array.shape.size() > common.size())
            common.insert(common.begin(), array.shape.size() - common.size(), 1);
        for (std::size_t i = 0; i < array.shape.size(); ++i)
        {
            py::ssize_t& side = common[common.size() - array.shape.size() + i];
            if (side != array.shape[i] && side != 1 && array.shape[i] != 1)
                throw py::value_error(fmt::format("{}: the shape {} does not go with {} of {}", array.name->name,
                    Text(array.shape), Text(before), last->name->name));
            side = side == 1 ? array.shape[i] : side;
        }
        if (!last || common != before)
            last = &array;
    }
    return common;
}

// The bytes from each sample to the next, if all are equally far from each other.
std::optional<py::ssize_t> EvenStride(const GivenArray& array, const Shape& common)
{
    std::optional<py::ssize_t> stride;
    py::ssize_t next = 0; // what the stride of the axis before must be
    const std::size_t missing = common.size() - array.shape.size();
    for (std::size_t i = common.size(); i-- > 0;)
    {
        if (common[i] == 1)
            continue;
        const bool isSame = i < missing || array.shape[i - missing] == 1;
        const py::ssize_t mine = isSame ? 0 : array.strides[i - missing];
        if (stride && mine != next)
            return {};
        if (!stride)
            stride = mine;
        next = mine * common[i];
    }
    return stride.value_or(0);
}

} // namespace

// The arrays of one call, and its way through them.
class SampleCall
{
public:
    SampleCall(const std::vector<host::OutputPlan>& outputs, std::vector<std::size_t> chosen)
        : outputs_(outputs), chosen_(std::move(chosen))
    {
    }

    void Read(const py::dict& given);
    py::dict MakeResults();

    // [without the interpreter's lock] False: a signal's handler raised something.
    bool Run(host::Sampler& sampler, int threads);

    std::size_t Count() const { return count_; }
    const PyGraph::Modes& Modes() const { return modes_; }
    const Result& Error() const { return error_; }
    const FailedPlace& Failure() const { return failure_; }

private:
    void AddField(GivenArray& array);
    void ReadMode(const std::string& name, py::handle value);
    void SampleChunks(host::Sampler& sampler, bool listens);
    bool SampleChunk(host::Sampler& sampler, std::size_t begin, std::size_t count,
        std::vector<host::FieldArray>& fields, std::vector<host::ValueArray>& values);

    const std::vector<host::OutputPlan>& outputs_;
    std::vector<std::size_t> chosen_;
    PyGraph::Modes modes_{true, kTileNone, kTileNone, false};
    std::vector<GivenArray> arrays_;
    std::vector<host::FieldArray> fields_;
    std::vector<host::ValueArray> values_;
    Shape shape_;
    std::size_t count_ = 1;

    std::atomic<std::size_t> next_ = 0;
    std::atomic<std::size_t> end_ = 0; // before the first failure
    std::atomic<bool> isStopped_ = false;
    std::mutex mutex_;
    Result error_;
    FailedPlace failure_;
};

void SampleCall::ReadMode(const std::string& name, py::handle value)
{
    const auto read = [&](int most) {
        const int mode = py::cast<int>(value);
        if (mode < 0 || mode > most)
            throw py::value_error(fmt::format("{}: expected 0 to {}, got {}", name, most, mode));
        return static_cast<std::uint8_t>(mode);
    };
    if (name == "uvw_valid")
        modes_[0] = read(1);
    else if (name == "tile_mode_u")
        modes_[1] = read(kTileMirror);
    else if (name == "tile_mode_v")
        modes_[2] = read(kTileMirror);
    else if (name == "filter_off")
        modes_[3] = read(1);
    else
        throw py::type_error(fmt::format("there is no field {}", name));
}

void SampleCall::Read(const py::dict& given)
{
    for (const NamedField& name : NamedFields())
    {
        PyObject* const value = PyDict_GetItemString(given.ptr(), name.name);
        if (value && value != Py_None)
            arrays_.push_back(ReadArray(name, value));
    }
    for (const auto& [key, value] : given)
    {
        const auto name = py::cast<std::string>(key);
        const bool isField = std::any_of(
            NamedFields().begin(), NamedFields().end(), [&](const NamedField& field) { return field.name == name; });
        if (!isField && !value.is_none())
            ReadMode(name, value);
    }
    shape_ = CommonShape(arrays_);
    for (const py::ssize_t side : shape_)
        count_ *= static_cast<std::size_t>(side);
    end_ = count_;
    for (GivenArray& array : arrays_)
        AddField(array);
}

void SampleCall::AddField(GivenArray& array)
{
    std::optional<py::ssize_t> stride = EvenStride(array, shape_);
    if (!stride)
    {
        Shape shape = shape_;
        if (array.numbers > 1)
            shape.push_back(array.numbers);
        const py::module_ numpy = py::module_::import("numpy");
        array.array = numpy.attr("ascontiguousarray")(numpy.attr("broadcast_to")(array.array, shape));
        array.numberStride = sizeof(double);
        stride = static_cast<py::ssize_t>(array.numbers * sizeof(double));
    }
    const auto* const first = static_cast<const std::byte*>(array.array.data());
    for (const char* const name : array.name->fields)
    {
        const host::ContextField& field = *host::FindContextField(name);
        for (UInt32 i = 0; i < array.numbers; ++i)
        {
            const UInt32 offset = field.offset + (array.name->first + i) * static_cast<UInt32>(sizeof(double));
            const auto known = std::find_if(fields_.begin(), fields_.end(),
                [&](const host::FieldArray& other) { return other.field.offset == offset; });
            const host::FieldArray made{
                {field.name, offset, 1, field.isInteger}, first + i * array.numberStride, *stride};
            if (known == fields_.end())
                fields_.push_back(made);
            else
                *known = made;
        }
    }
}

py::dict SampleCall::MakeResults()
{
    py::dict results;
    for (const std::size_t output : chosen_)
    {
        const int numbers = host::NumbersOf(outputs_[output].type);
        Shape shape = shape_;
        if (numbers > 1)
            shape.push_back(numbers);
        py::array_t<double> array(shape);
        values_.push_back({output, array.mutable_data(), static_cast<std::ptrdiff_t>(sizeof(double)) * numbers});
        results[py::str(outputs_[output].name)] = std::move(array);
    }
    return results;
}

bool SampleCall::SampleChunk(host::Sampler& sampler, std::size_t begin, std::size_t count,
    std::vector<host::FieldArray>& fields, std::vector<host::ValueArray>& values)
{
    for (std::size_t i = 0; i < fields.size(); ++i)
        fields[i].data =
            static_cast<const std::byte*>(fields_[i].data) + static_cast<std::ptrdiff_t>(begin) * fields[i].stride;
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i].data =
            static_cast<std::byte*>(values_[i].data) + static_cast<std::ptrdiff_t>(begin) * values[i].stride;
    host::SampleFailure failure;
    Result sampled = sampler.Sample(count, fields, values, &failure);
    if (sampled.IsOk())
        return true;
    // Of all that fail the first is told, whichever thread has it.
    const std::lock_guard lock(mutex_);
    const std::size_t failed = begin + failure.sample;
    if (error_.IsOk() || failed < end_)
    {
        error_ = std::move(sampled);
        failure_ = {failure.node ? *failure.node : std::string(), static_cast<Int>(failed)};
        end_ = failed;
    }
    return false;
}

// Chunks of about a millisecond: long enough that what is done for each does not count, short enough to be left soon.
void SampleCall::SampleChunks(host::Sampler& sampler, bool listens)
{
    constexpr auto kLeast = std::chrono::microseconds(500);
    constexpr auto kBetweenSignals = std::chrono::milliseconds(30);
    std::vector<host::FieldArray> fields = fields_;
    std::vector<host::ValueArray> values = values_;
    std::size_t size = 1;
    Clock::time_point now = Clock::now();
    Clock::time_point listened = now;
    while (!isStopped_)
    {
        const std::size_t begin = next_.fetch_add(size);
        if (begin >= end_)
            return;
        if (!SampleChunk(sampler, begin, std::min(size, count_ - begin), fields, values))
            return;
        const Clock::time_point before = std::exchange(now, Clock::now());
        if (now - before < kLeast)
            size *= 2;
        else if (now - before > 4 * kLeast && size > 1)
            size /= 2;
        if (!listens || now - listened < kBetweenSignals)
            continue;
        listened = now;
        const py::gil_scoped_acquire locked;
        if (PyErr_CheckSignals() != 0)
            isStopped_ = true;
    }
}

bool SampleCall::Run(host::Sampler& sampler, int threads)
{
    std::vector<std::thread> others;
    try
    {
        for (int i = 1; i < threads; ++i)
            others.emplace_back([&] { SampleChunks(sampler, false); });
    }
    catch (const std::system_error&)
    {
        // Those that there are do it.
    }
    SampleChunks(sampler, true);
    for (std::thread& other : others)
        other.join();
    return !isStopped_;
}

py::dict PyGraph::Sample(const py::dict& fields, const std::optional<std::vector<std::string>>& outputs, int threads)
{
    const Work work;
    std::optional<GraphLock::Shared> lock;
    while (!lock || isOutdated_)
    {
        lock.reset();
        if (isOutdated_)
            Update();
        lock.emplace(lock_);
    }
    SampleCall call(graph_.program->outputs, ChosenOutputs(outputs, false));
    call.Read(fields);
    py::dict results = call.MakeResults();
    host::Sampler& sampler = SamplerOf(call.Modes());
    constexpr std::size_t kWorthAThread = 8192;
    const int most = static_cast<int>(std::min<std::size_t>(call.Count() / kWorthAThread + 1, 1024));
    const UInt refusals = host::MemoryRefusals();
    bool isDone = false;
    {
        const py::gil_scoped_release unlocked;
        isDone = call.Run(sampler, most > 1 ? std::min(most, ThreadsFor(threads)) : 1);
    }
    if (!isDone)
        throw py::error_already_set();
    if (call.Error().IsError())
        ThrowEvaluationError(call.Error(), call.Failure());
    // A picture that was refused would show as something else.
    if (host::MemoryRefusals() != refusals)
        ThrowEvaluationError(OutOfMemory(), {});
    return results;
}

} // namespace velto::python

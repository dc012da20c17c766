// Nodes that show what the host does with nodes.
#include "velto/jobqueue.h"
#include "velto/module.h"
#include "velto/node.h"

namespace velto::test
{

// --- What is seen of the sample, and what comes through. ---

static Float Coordinate(In<"context", ShadingContext> context)
{
    return context->uvw.x;
}

template <class T>
static T Keep(In<"x", T> x)
{
    return *x;
}

// The same for every sample anew.
template <class T>
static T Vary(In<"context", ShadingContext>, In<"x", T> x)
{
    return *x;
}

// Fails where a condition holds.
static Result Fail(In<"fail", Bool> fail, In<"x", Float> x, Out<"result", Float> result)
{
    VELTO_CHECK_STATE(!fail);
    result = *x;
    return {};
}

// Which of its flags are set: 1 an input is connected, 2 a function is, 4 an output is in use.
static Int Flags(Connected<"x", Float> x, Connected<"f", FloatFunction> f, Used<"spare", Float> spare)
{
    return (x.IsConnected() ? 1 : 0) + (f.IsConnected() ? 2 : 0) + (spare.IsUsed() ? 4 : 0);
}

static Float Sum(In<"first", Float> first, Variadic<"terms", Float> terms)
{
    Float sum = first;
    for (Int i = 0; i < terms.Count(); ++i)
        sum = sum * 10.0 + terms[i];
    return sum;
}

// A batch of one or of many.
static Float Scale(In<"x", Float> x, In<"by", Float> by)
{
    return x * by;
}

static Float Print(In<"x", Float> x)
{
    Log(LogTarget::Diagnostic, "printed");
    return x;
}

VELTO_CORE_NODE("net.velto.test.coordinate", Coordinate);
VELTO_CORE_NODE("net.velto.test.keep.float", Keep<Float>);
VELTO_CORE_NODE("net.velto.test.keep.int", Keep<Int>);
VELTO_CORE_NODE("net.velto.test.keep.int32", Keep<Int32>);
VELTO_CORE_NODE("net.velto.test.keep.uint32", Keep<UInt32>);
VELTO_CORE_NODE("net.velto.test.keep.bool", Keep<Bool>);
VELTO_CORE_NODE("net.velto.test.keep.colora", Keep<ColorA>);
VELTO_CORE_NODE("net.velto.test.keep.color", Keep<Color>);
VELTO_CORE_NODE("net.velto.test.keep.vector", Keep<Vector>);
VELTO_CORE_NODE("net.velto.test.keep.vector2d", Keep<Vector2d>);
VELTO_CORE_NODE("net.velto.test.keep.string", Keep<String>);
VELTO_CORE_NODE("net.velto.test.vary.float", Vary<Float>);
VELTO_CORE_NODE("net.velto.test.vary.int", Vary<Int>);
VELTO_CORE_NODE("net.velto.test.vary.int32", Vary<Int32>);
VELTO_CORE_NODE("net.velto.test.vary.uint32", Vary<UInt32>);
VELTO_CORE_NODE("net.velto.test.vary.bool", Vary<Bool>);
VELTO_CORE_NODE("net.velto.test.vary.colora", Vary<ColorA>);
VELTO_CORE_NODE("net.velto.test.vary.color", Vary<Color>);
VELTO_CORE_NODE("net.velto.test.vary.vector", Vary<Vector>);
VELTO_CORE_NODE("net.velto.test.vary.vector2d", Vary<Vector2d>);
VELTO_CORE_NODE("net.velto.test.vary.string", Vary<String>);
VELTO_CORE_NODE("net.velto.test.fail", Fail);
VELTO_CORE_NODE("net.velto.test.flags", Flags);
VELTO_CORE_NODE("net.velto.test.sum", Sum);
VELTO_BATCH_NODE("net.velto.test.batch", Scale);
VELTO_CORE_NODE("net.velto.test.print", Print, .hasSideEffect = true);

// The directory of this module's file.
static Result Home(Out<"result", Url> home)
{
    return GetApplicationUrl(UrlKind::ModuleDirectory, *home);
}

VELTO_CORE_NODE("net.velto.test.home", Home);

// --- Ports that survive. ---

static Int Count(In<"context", ShadingContext>, In<"step", Int> step, State<"calls", Int> calls)
{
    *calls += step;
    return *calls;
}

// A table that is made once per setup, and how often.
static void Pre(In<"size", Int> size, Once<"table", Int> table, State<"runs", Int> runs)
{
    table = *size * 100;
    *runs += 1;
}

// Writes its output only where the coordinate is not negative.
static void WriteSometimes(In<"x", Float> x, Optional<"result", Float> result)
{
    if (*x >= 0.0)
        result = *x;
}

VELTO_CORE_NODE("net.velto.test.count", Count);
VELTO_CORE_NODE("net.velto.test.pre", Pre);
VELTO_CORE_NODE("net.velto.test.writesometimes", WriteSometimes);

// --- Function-valued inputs. ---

// Calls its function so often, each time ten further along u, and adds up.
static Result Invoke(In<"context", ShadingContext> context, In<"times", Int> times, In<"f", FloatFunction> f,
    Out<"result", Float> result)
{
    ShadingContext place = *context;
    Float sum = 0.0;
    for (Int i = 0; i < times; ++i)
    {
        Float value = 0.0;
        place.uvw.x = context->uvw.x + 10.0 * static_cast<Float>(i);
        VELTO_TRY(f->Invoke(value, place));
        sum += value;
    }
    result = sum;
    return {};
}

// The same from the job queue, ahead of all samples.
struct Spread
{
    const FloatFunction* f;
    BaseArray<Float> values;
    std::atomic<Int> failures{0};

    static void Run(void* user, Int32 job)
    {
        auto& self = *static_cast<Spread*>(user);
        ShadingContext place;
        place.uvwValid = true;
        place.uvw.x = job;
        if (self.f->Invoke(self.values[job], place).IsError())
            ++self.failures;
    }
};

static Result InvokeInParallel(
    In<"count", Int> count, In<"f", FloatFunction> f, Once<"sum", Float> sum, Once<"failures", Int> failures)
{
    Spread spread{&*f, {}};
    VELTO_TRY(spread.values.Resize(count));
    const JobGroup group{&Spread::Run, &spread, static_cast<Int32>(*count)};
    Bound<JobQueueInterface>().EnqueueAndWait(&group);
    Float total = 0.0;
    for (const Float value : spread.values)
        total += value;
    sum = total;
    failures = spread.failures.load();
    return {};
}

VELTO_CORE_NODE("net.velto.test.invoke", Invoke);
VELTO_CORE_NODE("net.velto.test.invokeinparallel", InvokeInParallel);

// --- Nodes that give way to others. ---

static Float Multiply(In<"x", Float> x, In<"factor", Float> factor)
{
    return x * factor;
}

// What stands for a multiplication whose factor is 2; its ports lie elsewhere, and the sum shows that it ran.
static void Double(In<"unused", Float>, Out<"out", Float> out, In<"in", Float> x)
{
    out = x * 2.0 + 1000.0;
}

static Result SimplifyMultiply(const OptimizeRequest* request, Optimization* answer)
{
    const auto* const factor = static_cast<const Float*>(request->constants[1]);
    if (!factor)
        return {};
    if (*factor == 1.0)
    {
        answer->kind = Optimization::Kind::TakeInput;
        answer->input = 0;
    }
    else if (*factor == 2.0)
    {
        VELTO_TRY(BuildMicroNodeGroup(TableOf<Double>(), "Double", {}, nullptr, answer->group.Receive()));
        answer->links[0] = {.replacement = 2, .original = 0};
        answer->links[1] = {.replacement = 1, .original = 2};
        answer->linkCount = 2;
        answer->kind = Optimization::Kind::Replace;
    }
    else if (*factor < 0.0)
        return MakeError(error::kIllegalArgument, "A factor below 0 cannot be simplified.");
    return {};
}

// Whether its function is constant, as known while the program is built: a third input tells.
static Float IsConstant(In<"f", FloatFunction>, In<"no", Float> no, In<"yes", Float>)
{
    return no;
}

static Result TellConstant(const OptimizeRequest* request, Optimization* answer)
{
    const auto* const f = static_cast<const FloatFunction*>(request->constants[0]);
    if (f && f->object && f->object->isConstant(f->object.Get()))
    {
        answer->kind = Optimization::Kind::TakeInput;
        answer->input = 2;
    }
    return {};
}

static constexpr Int32 kChooseRows[] = {
    0, 0, 2, -1, //
    0, 1, 1, -1, //
};

static Float Choose(In<"condition", Bool> condition, In<"yes", Float> yes, In<"no", Float> no)
{
    return (condition ? *yes : *no) + 0.5; // the half tells that nothing stood for it
}

VELTO_CORE_NODE("net.velto.test.multiply", Multiply, .optimizer = &SimplifyMultiply);
VELTO_CORE_NODE("net.velto.test.isconstant", IsConstant, .optimizer = &TellConstant);
VELTO_CORE_NODE("net.velto.test.choose", Choose, .optimizerRows = kChooseRows, .optimizerRowCount = 2);

// --- One of every kind of port. ---

struct Table
{
    BaseArray<Float> values;

    Result CopyFrom(const Table& other) { return values.CopyFrom(other.values); }
};

} // namespace velto::test

VELTO_DATA_TYPE(velto::test::Table, "net.velto.test.datatype.table");

namespace velto::test
{

static Result Everything(In<"context", ShadingContext> context, In<"size", Int> size, In<"color", ColorA> color,
    In<"text", String> text, In<"place", Url>, In<"name", Id> name, In<"choice", InternedId> choice,
    In<"values", DataDictionary>, In<"paths", SearchPathsType>, In<"f", FloatFunction> f, In<"mode", RenderMode> mode,
    Out<"result", Float> result, Out<"copy", String> copy, Used<"spare", Float> spare, Once<"table", Table> table,
    State<"cache", Data> cache, State<"kept", Table> kept, Variadic<"terms", Float> terms)
{
    Float value = 0.0;
    VELTO_TRY(f->Invoke(value, *context, &*cache));
    if (table->values.IsEmpty())
        VELTO_TRY(table->values.Resize(size));
    VELTO_TRY(kept->CopyFrom(*table));
    VELTO_TRY(cache->Set(value));
    for (Int i = 0; i < terms.Count(); ++i)
        value += terms[i];
    if (spare.IsUsed())
        spare = value;
    copy = *text;
    result = value + color->r + static_cast<Float>(kept->values.Count()) + static_cast<Float>(name->Length()) +
             static_cast<Float>(choice->View().size()) + mode->value;
    return {};
}

VELTO_CORE_NODE("net.velto.test.everything", Everything);
VELTO_INTERNED_ID(kUnused, "net.velto.test.interned");

} // namespace velto::test

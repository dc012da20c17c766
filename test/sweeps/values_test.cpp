// What a node is given: the same from a link as from the document, whatever it is.
#include "test/support/examples.h"
#include "test/support/probe.h"

#include "host/registry/datatypes.h"
#include "host/system/output.h"
#include "velto/porttypes.h"

#include <unistd.h>

#include <csignal>
#include <limits>

namespace velto::test
{

namespace
{

using host::Json;

// The probe's node that hands values of a type on, for every sample anew.
std::string_view WireFor(const DataType* type)
{
    const std::pair<const DataType*, std::string_view> wires[] = {{host::TypeOf<Float>(), "float"},
        {host::TypeOf<Int>(), "int"}, {host::TypeOf<Int32>(), "int32"}, {host::TypeOf<UInt32>(), "uint32"},
        {host::TypeOf<Bool>(), "bool"}, {host::TypeOf<ColorA>(), "colora"}, {host::TypeOf<Color>(), "color"},
        {host::TypeOf<Vector>(), "vector"}, {host::TypeOf<Vector2d>(), "vector2d"}, {host::TypeOf<String>(), "string"}};
    for (const auto& [known, name] : wires)
    {
        if (known == type)
            return name;
    }
    return {};
}

const DataType* ValueType(const host::NodePort& port)
{
    const DataType* const result = host::FunctionResultType(port.type.Get());
    return result ? result : port.type.Get();
}

TEST(ValuesTest, AreTheSameThroughALink)
{
    TheProbe();
    int count = 0;
    for (const Example& example : Examples())
    {
        for (const host::NodePort& port : example.type->ports)
        {
            const Json value = example.Given(port);
            const std::string_view wire = WireFor(ValueType(port));
            if (!port.input || port.isVariadic || port.IsBundle() || wire.empty() || value.IsNull())
                continue;
            SCOPED_TRACE(example.type->name + "." + port.name + " " + value.Write());
            host::Graph graph;
            ASSERT_TRUE(Load(example.With(port.name, value), graph));
            const Json expected = Look(graph);
            for (const char* const kind : {"keep", "vary"})
            {
                Json document = example.With(port.name, Parse(R"({"from": "wire.result"})"));
                Json nodes = *document.Find("nodes");
                nodes.Add("wire", Parse(fmt::format(R"({{"type": "net.velto.test.{}.{}", "inputs": {{"x": {}}}}})",
                                      kind, wire, value.Write())));
                document.Set("nodes", std::move(nodes));
                host::Graph linked;
                ASSERT_TRUE(Load(document, linked));
                EXPECT_TRUE(AreEqual(expected, Look(linked), 1e-12)) << kind;
            }
            ++count;
        }
    }
    EXPECT_GT(count, 0);
}

// Ends the test with the case that does not come back.
class HangWatch
{
public:
    HangWatch() { std::signal(SIGALRM, &Say); }
    ~HangWatch() { alarm(0); }
    static void Start(const std::string& what)
    {
        current = what + "\n";
        alarm(60);
    }

private:
    static inline std::string current;

    static void Say(int)
    {
        if (write(STDERR_FILENO, current.data(), current.size()) >= 0)
            _exit(1);
        _exit(2);
    }
};

Json WithEachNumber(const Json& value, const Json& number)
{
    if (!value.IsArray())
        return number;
    Json list = Json::Array();
    for (const Json& element : value.Elements())
        list.Append(WithEachNumber(element, number));
    return list;
}

// The numbers that are hardest on a type.
Json NumbersOf(const DataType* type)
{
    if (type == host::TypeOf<UInt32>())
        return Parse("[0, 4294967295]");
    if (type == host::TypeOf<Int32>())
        return Parse("[0, -1, -2147483648, 2147483647]");
    if (type == host::TypeOf<Int>())
        return Parse("[0, -1, -9223372036854775808, 9223372036854775807]");
    const std::string_view wire = WireFor(type);
    return Parse(wire.empty() || wire == "bool" || wire == "string"
                     ? "[]"
                     : R"(["nan", "inf", "-inf", 1e300, -1e300, 1e-300, 0, -1])");
}

TEST(ValuesTest, MayBeAnyNumber)
{
    const HangWatch watch;
    for (const Example& example : Examples())
    {
        for (const host::NodePort& port : example.type->ports)
        {
            const std::string name = example.type->name + "." + port.name;
            const Json value = example.Given(port);
            if (!port.input || port.isVariadic || port.IsBundle() || value.IsNull())
                continue;
            const Json numbers = NumbersOf(ValueType(port));
            for (const Json& number : numbers.Elements())
            {
                watch.Start(name + " " + number.Write());
                host::Graph graph;
                ASSERT_TRUE(Load(example.With(port.name, WithEachNumber(value, number)), graph)) << name;
                EXPECT_FALSE(Look(graph).IsNull());
            }
        }
    }
}

TEST(ValuesTest, MayLieAnywhere)
{
    const HangWatch watch;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    for (const Example& example : Examples())
    {
        host::Graph graph;
        std::unique_ptr<host::Instance> instance;
        ASSERT_TRUE(Load(example.document, graph));
        ASSERT_TRUE(Start(graph, instance).IsOk());
        for (const double x : {nan, infinity, -infinity, 1e300, -1e300, 1e19, -3e9, 0.0})
        {
            watch.Start(fmt::format("{} at {}", example.type->name, x));
            ShadingContext& context = instance->Context();
            for (Vector* const vector : {&context.uvw, &context.uvwPlusDeltaU, &context.uvwPlusDeltaV,
                     &context.samplePosition, &context.shadingNormal, &context.geometricNormal, &context.rayOrigin,
                     &context.rayDirection, &context.tangent, &context.bitangent})
                *vector = {x, x, x};
            context.time.seconds = context.frameRate = x;
            const Result ran = instance->Evaluate();
            EXPECT_TRUE(ran.IsOk()) << example.type->name << ' ' << x << ": " << ran.Message();
        }
    }
}

} // namespace

} // namespace velto::test

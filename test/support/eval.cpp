#include "eval.h"

#include "host/loader/module.h"

#include <cmath>

#include <paths.h>

namespace velto::test
{

using host::Json;

std::shared_ptr<host::Module> TheModule()
{
    static const std::shared_ptr<host::Module> module = [] {
        std::shared_ptr<host::Modules> loaded;
        const Result result = host::Modules::Load(host::ModuleFiles(VELTO_BUILD_DIR "/modules"), loaded);
        EXPECT_TRUE(result.IsOk()) << result.Message();
        // The first holds the others.
        return loaded ? std::shared_ptr<host::Module>(loaded, loaded->All().front().get()) : nullptr;
    }();
    return module;
}

bool Load(std::string_view document, host::Graph& graph, const host::GraphOptions& options)
{
    host::Diagnostics diagnostics;
    const bool isGood = host::LoadGraph(document, TheModule(), options, diagnostics, graph);
    if (!isGood)
    {
        for (const host::Diagnostic& diagnostic : diagnostics.All())
            ADD_FAILURE() << diagnostic.place << ": " << diagnostic.text;
    }
    return isGood;
}

Json EvalJson(std::string_view document, std::string_view samples, host::GraphOptions options)
{
    const Json list = Parse(samples);
    options.variable = host::VariableInputs(list);
    host::Graph graph;
    Json results = Json::Object();
    if (!Load(document, graph, options))
        return results;
    host::Diagnostics diagnostics;
    bool anyFailed = false;
    EXPECT_TRUE(host::EvaluateSamples(graph, list, true, diagnostics, results, anyFailed))
        << (diagnostics.All().empty() ? "" : diagnostics.All()[0].place + ": " + diagnostics.All()[0].text);
    return results;
}

const Json& Entry(const Json& results, std::size_t i)
{
    static const Json none = Json::Object();
    const Json* const list = results.Find("results");
    return list && i < list->Elements().size() ? list->Elements()[i] : none;
}

std::string Output(const Json& results, std::string_view name, std::size_t i)
{
    const Json& entry = Entry(results, i);
    if (const Json* const error = entry.Find("error"))
        return error->Find("kind")->AsString();
    const Json* const outputs = entry.Find("outputs");
    const Json* const value = outputs ? outputs->Find(name) : nullptr;
    return value ? value->Write() : "missing";
}

Int Evaluations(const Json& results, std::string_view node, std::size_t i)
{
    const Json* const counts = Entry(results, i).Find("evaluations");
    const Json* const count = counts ? counts->Find(node) : nullptr;
    return count ? count->AsInteger() : -1;
}

std::string Faults(std::string_view document)
{
    TheModule();
    host::Diagnostics diagnostics;
    host::Graph graph;
    host::LoadGraph(document, TheModule(), {}, diagnostics, graph);
    std::string text;
    for (const host::Diagnostic& diagnostic : diagnostics.All())
        text += diagnostic.place + ": " + diagnostic.text + "\n";
    return text;
}

Json Parse(std::string_view text)
{
    TheModule();
    Json json;
    host::Diagnostics diagnostics;
    EXPECT_TRUE(host::ReadJson(text, json, diagnostics) && !diagnostics.HasFaults()) << text;
    return json;
}

namespace
{

bool IsNumberLike(const Json& json)
{
    return json.IsNumber() ||
           (json.IsString() && (json.AsString() == "nan" || json.AsString() == "inf" || json.AsString() == "-inf"));
}

double ToNumber(const Json& json)
{
    return json.IsNumber() ? json.AsNumber() : std::strtod(json.AsString().c_str(), nullptr);
}

} // namespace

::testing::AssertionResult AreEqual(const Json& expected, const Json& actual, double tolerance)
{
    const auto differ = [&] {
        return ::testing::AssertionFailure() << "expected " << expected.Write() << ", got " << actual.Write();
    };
    if (IsNumberLike(expected) && IsNumberLike(actual))
    {
        const double a = ToNumber(expected);
        const double b = ToNumber(actual);
        const bool isSame =
            (std::isnan(a) && std::isnan(b)) || a == b || std::abs(a - b) <= tolerance * std::max(1.0, std::abs(a));
        return isSame ? ::testing::AssertionSuccess() : differ();
    }
    if (expected.IsArray() && actual.IsArray() && expected.Elements().size() == actual.Elements().size())
    {
        for (std::size_t i = 0; i < expected.Elements().size(); ++i)
        {
            if (!AreEqual(expected.Elements()[i], actual.Elements()[i], tolerance))
                return differ();
        }
        return ::testing::AssertionSuccess();
    }
    if (expected.IsObject() && actual.IsObject())
    {
        // What the expectation names counts; a context has many fields.
        for (const auto& [name, member] : expected.GetMembers())
        {
            const Json* const other = actual.Find(name);
            if (!other || !AreEqual(member, *other, tolerance))
                return ::testing::AssertionFailure()
                       << name << ": expected " << member.Write() << ", got " << (other ? other->Write() : "nothing");
        }
        return ::testing::AssertionSuccess();
    }
    return expected.Write() == actual.Write() ? ::testing::AssertionSuccess() : differ();
}

} // namespace velto::test

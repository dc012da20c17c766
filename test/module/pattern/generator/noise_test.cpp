#include "host/registry/registry.h"
#include "test/support/eval.h"
#include "velto/porttypes.h"
#include "velto/rendernoise.h"

#include <gmock/gmock.h>

#include <vector>

namespace velto::test
{

namespace
{

using ::testing::Contains;

constexpr const char* kSpy = "net.velto.test.noise.spy";
constexpr const char* kBroken = "net.velto.test.noise.broken";

// What a noise class was asked, and a value that tells its objects apart.
struct Asked
{
    std::vector<std::vector<double>> inits;
    std::vector<std::vector<double>> samples;
};

Asked asked;

struct SpyNoise : RenderNoiseInterface
{
    float number = 0.0f;
};

double Setting(const DictionaryObject* settings, Int key)
{
    const Data* const data = Bound<DataDictionaryInterface>().GetData(settings, key);
    return *data->As<Float>();
}

Result CreateSpy(const RenderNoiseClassObject*, RenderNoiseInterface** noise)
{
    SpyNoise* const made = MakeShared<SpyNoise>().Detach();
    made->init = [](RenderNoiseInterface* self, UInt32 seed, Int32 complexity, const DictionaryObject* settings) {
        asked.inits.push_back({static_cast<double>(seed), static_cast<double>(complexity), Setting(settings, 0),
            Setting(settings, 1), Setting(settings, 2)});
        static_cast<SpyNoise*>(self)->number = static_cast<float>(asked.inits.size());
        return seed == 13 ? MakeError(error::kIllegalState, "Thirteen.") : Result();
    };
    made->noise = [](const RenderNoiseInterface* self, Float32 x, Float32 y, Float32 z, Float32 time, Float32 octaves,
                      Bool absolute, Float32 filterWidth) {
        asked.samples.push_back({x, y, z, time, octaves, absolute ? 1.0 : 0.0, filterWidth});
        return static_cast<const SpyNoise*>(self)->number;
    };
    made->noise2d = [](const RenderNoiseInterface* self, Float32 x, Float32 y, Float32 time, Float32 octaves,
                        Bool absolute, Float32 filterWidth) {
        asked.samples.push_back({x, y, time, octaves, absolute ? 1.0 : 0.0, filterWidth});
        return -static_cast<const SpyNoise*>(self)->number;
    };
    *noise = made;
    return {};
}

class NoiseTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TheModule();
        asked = {};
        static const bool isPublished = [] {
            static RenderNoiseClassObject spy;
            spy.create = &CreateSpy;
            static RenderNoiseClassObject broken;
            broken.create = [](const RenderNoiseClassObject*, RenderNoiseInterface**) -> Result {
                return MakeError(error::kFunctionNotImplemented, "No noise.");
            };
            const auto publish = [](const char* name, auto value) {
                Data data;
                const Id id = Id::OverStatic(name);
                return data.Set(value).IsOk() &&
                       Bound<RegistryInterface>().InsertEntry(registry::kRenderNoiseClasses, id, data).IsOk();
            };
            return publish(kSpy, RenderNoiseClass::Share(&spy)) && publish(kBroken, RenderNoiseClass::Share(&broken)) &&
                   publish("net.velto.test.noise.number", Float(1.0));
        }();
        ASSERT_TRUE(isPublished);
    }

    static std::string Document(std::string_view type, std::string_view noise = "", std::string_view maths = "")
    {
        return R"({"version": 1, "nodes": {
            "pre": {"type": "net.velto.pattern.corenode.generator.noisepre", "inputs": {"noiseType": ")" +
               std::string(type) + R"(", "seed": 4, "lacunarity": 2.5, "gain": 0.25, "exponent": 1.5}},
            "noise": {"type": "net.velto.pattern.corenode.generator.noise",
                "inputs": {"noisetable": {"from": "pre.noisetable"})" +
               std::string(noise) + R"(}},
            "maths": {"type": "net.velto.pattern.corenode.generator.mathnoise",
                "inputs": {"noisetable": {"from": "pre.noisetable"})" +
               std::string(maths) + R"(}}}, "outputs": {"noise": "noise.result", "maths": "maths.result"}})";
    }
};

std::string Text(const std::vector<std::vector<double>>& rows)
{
    return ::testing::PrintToString(rows);
}

TEST_F(NoiseTest, SamplesAtTenTimesTheCoordinate)
{
    const host::Json results = EvalJson(Document(kSpy, R"(, "animationSpeed": 0.5, "octaves": 4.1, "absolute": true)"),
        R"([{"uvw": [0.1, -0.2, 0.3], "uvwPlusDeltaU": [0.1, 0.1, 0.3], "uvwPlusDeltaV": [0.4, -0.2, -0.6], "time": 0.3}])");
    const float filterWidth =
        static_cast<float>(((0.4 - 0.1) + (0.1 - -0.2) + (0.3 - -0.6)) * 0.3333333333333333) * 10.0f;
    EXPECT_THAT(asked.samples, Contains(std::vector<double>{1.0, -2.0, 3.0, 0.15f, 4.1f, 1.0, filterWidth}));
    EXPECT_EQ("1", Output(results, "noise"));
}

TEST_F(NoiseTest, MathsNoiseSamplesWhereItIsTold)
{
    const char* const inputs =
        R"(, "value": [0.1, 2, 3], "scale": 3, "time": 0.7, "octaves": 2.3, "absolute": false, "twod": false)";
    const host::Json results = EvalJson(Document(kSpy, "", inputs), R"([{"time": 9}, {"set": {"maths.twod": true}}])");
    EXPECT_THAT(
        asked.samples, Contains(std::vector<double>{static_cast<float>(0.1 * 3.0), 6.0, 9.0, 0.7f, 2.3f, 0.0, 0.0}));
    EXPECT_THAT(asked.samples, Contains(std::vector<double>{static_cast<float>(0.1 * 3.0), 6.0, 0.7f, 2.3f, 0.0, 0.0}));
    EXPECT_EQ("1", Output(results, "maths", 0));
    EXPECT_EQ("-1", Output(results, "maths", 1));
}

TEST_F(NoiseTest, NoPlaceIsNoSample)
{
    const host::Json results = EvalJson(R"({"version": 1, "nodes": {
        "pre": {"type": "net.velto.pattern.corenode.generator.noisepre", "inputs": {"noiseType": "net.velto.test.noise.spy"}},
        "noise": {"type": "net.velto.pattern.corenode.generator.noise",
            "inputs": {"noisetable": {"from": "pre.noisetable"}}}}, "outputs": {"noise": "noise.result"}})",
        R"([{"uvwValid": false}])");
    EXPECT_EQ("0", Output(results, "noise"));
    EXPECT_EQ("{}", Text(asked.samples));
}

TEST_F(NoiseTest, ANewObjectForAnyNewSettingAndForNoOther)
{
    const host::Json results = EvalJson(Document(kSpy),
        R"([{}, {"set": {"pre.seed": 4}}, {"set": {"pre.seed": 5}}, {"set": {"pre.lacunarity": 3}},
            {"set": {"pre.gain": 0.5}}, {"set": {"pre.exponent": 2}}, {"set": {"pre.exponent": 2}}])");
    EXPECT_EQ(
        "{ { 4, 10, 2.5, 0.25, 1.5 }, { 5, 10, 2.5, 0.25, 1.5 }, { 5, 10, 3, 0.25, 1.5 }, { 5, 10, 3, 0.5, 1.5 }, "
        "{ 5, 10, 3, 0.5, 2 } }",
        Text(asked.inits));
    for (const auto& [sample, object] : {std::pair(0, "1"), std::pair(1, "1"), std::pair(2, "2"), std::pair(6, "5")})
        EXPECT_EQ(object, Output(results, "noise", static_cast<std::size_t>(sample))) << sample;
}

TEST_F(NoiseTest, AnotherTypeIsANewObjectAndNoTypeKeepsTheOld)
{
    const host::Json results = EvalJson(Document(kSpy),
        R"([{}, {"set": {"pre.noiseType": ""}}, {"set": {"pre.noiseType": "net.velto.render.rendernoiseclass.perlin"}}])");
    EXPECT_EQ("1", Output(results, "noise", 0));
    EXPECT_EQ("1", Output(results, "noise", 1));
    EXPECT_NE("1", Output(results, "noise", 2));
    EXPECT_EQ(1u, asked.inits.size());
}

TEST_F(NoiseTest, NoTypeIsNoNoise)
{
    const host::Json results = EvalJson(Document(""), R"([{"uvw": [0.3, 0.4, 0.5]}])");
    EXPECT_EQ("0", Output(results, "noise"));
    EXPECT_EQ("0", Output(results, "maths"));
}

TEST_F(NoiseTest, Failures)
{
    const std::pair<const char*, const char*> rows[] = {{"net.velto.test.noise.none", "net.velto.error.unresolved"},
        {"net.velto.test.noise.number", "net.velto.error.illegalargument"},
        {kBroken, "net.velto.error.functionnotimplemented"}};
    for (const auto& [type, kind] : rows)
    {
        const host::Json results = EvalJson(Document(kSpy),
            R"([{}, {"set": {"pre.noiseType": ")" + std::string(type) + R"("}}, {"set": {"pre.gain": 0.25}}])");
        EXPECT_EQ("1", Output(results, "noise", 0)) << type;
        EXPECT_EQ(kind, Output(results, "noise", 1)) << type;
        // The settings are the new ones, the object is the old.
        EXPECT_EQ("1", Output(results, "noise", 2)) << type;
        asked = {};
    }
}

TEST_F(NoiseTest, AnObjectThatCouldNotBeSetUpStays)
{
    const host::Json results =
        EvalJson(Document(kSpy), R"([{}, {"set": {"pre.seed": 13}}, {"set": {"pre.seed": 13}}])");
    EXPECT_EQ("net.velto.error.illegalstate", Output(results, "noise", 1));
    EXPECT_EQ("2", Output(results, "noise", 2));
    EXPECT_EQ(2u, asked.inits.size());
}

} // namespace

} // namespace velto::test

#include "host/runtime/sampler.h"

#include "test/support/eval.h"

#include <gmock/gmock.h>

#include <thread>

namespace velto::test
{

namespace
{

using namespace host;
using ::testing::ElementsAre;

class SamplerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        constexpr std::string_view text = R"({"version": 1, "nodes": {"cloud": {"type": "noise"},
            "tint": {"type": "exposure", "inputs": {"color": {"from": "cloud.result"}, "exposure": 0.5}}},
            "outputs": {"color": "tint.result"}})";
        ASSERT_TRUE(Load(text, graph_));
        ASSERT_TRUE(graph_.setup->Run().IsOk());
        shared_.uvwValid = true;
        ASSERT_TRUE(Sampler::Create(*graph_.setup, shared_, sampler_).IsOk());
        for (int i = 0; i < kCount; ++i)
            places_.push_back({0.37 * i, 0.11 * i, 0.0});
    }

    // The colours of some of the places by themselves.
    ColorA ColorAt(int i)
    {
        std::unique_ptr<Instance> instance;
        EXPECT_TRUE(Instance::Create(*graph_.setup, instance).IsOk());
        instance->Context() = shared_;
        instance->Context().uvw = places_[static_cast<std::size_t>(i)];
        EXPECT_TRUE(instance->Evaluate().IsOk());
        return *static_cast<const ColorA*>(instance->Output(0));
    }

    static constexpr int kCount = 150;
    Graph graph_;
    ShadingContext shared_;
    std::unique_ptr<Sampler> sampler_;
    std::vector<Vector> places_;
};

TEST_F(SamplerTest, GivesWhatSingleSamplesGiveWhateverTheStrides)
{
    const ContextField& uvw = *FindContextField("uvw");
    const FieldArray each[] = {{uvw, places_.data(), sizeof(Vector)}};
    std::vector<ColorA> colors(kCount);
    const ValueArray values[] = {{0, colors.data(), sizeof(ColorA)}};
    ASSERT_TRUE(sampler_->Sample(kCount, each, values).IsOk());
    for (const int i : {0, 1, 63, 64, kCount - 1})
        EXPECT_EQ(ColorAt(i), colors[static_cast<std::size_t>(i)]) << i;

    // One place for all; then every second, backwards, as floats with a gap.
    const FieldArray one[] = {{uvw, &places_[7], 0}};
    ASSERT_TRUE(sampler_->Sample(3, one, values).IsOk());
    EXPECT_EQ(ColorAt(7), colors[2]);
    const FieldArray second[] = {{uvw, &places_[100], -2 * static_cast<std::ptrdiff_t>(sizeof(Vector))}};
    std::vector<float> floats(5 * 40, -1.0f);
    const ValueArray spread[] = {{0, floats.data(), 5 * sizeof(float), ValueFormat::Float32}};
    ASSERT_TRUE(sampler_->Sample(40, second, spread).IsOk());
    const ColorA expected = ColorAt(100 - 2 * 39);
    EXPECT_THAT(std::vector<float>(floats.end() - 5, floats.end()),
        ElementsAre(static_cast<float>(expected.r), static_cast<float>(expected.g), static_cast<float>(expected.b),
            static_cast<float>(expected.a), -1.0f));
}

TEST_F(SamplerTest, ServesThreadsAtOnce)
{
    const FieldArray each[] = {{*FindContextField("uvw"), places_.data(), sizeof(Vector)}};
    std::vector<std::vector<ColorA>> colors(4, std::vector<ColorA>(kCount));
    std::vector<std::thread> threads;
    for (std::vector<ColorA>& mine : colors)
        threads.emplace_back([&] {
            const ValueArray values[] = {{0, mine.data(), sizeof(ColorA)}};
            for (int round = 0; round < 20; ++round)
                ASSERT_TRUE(sampler_->Sample(kCount, each, values).IsOk());
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const std::vector<ColorA>& mine : colors)
        EXPECT_EQ(colors[0], mine);
}

TEST_F(SamplerTest, RefusesWhatIsNotThere)
{
    ColorA color;
    const ValueArray missing[] = {{1, &color, sizeof(ColorA)}};
    EXPECT_EQ(error::kIllegalArgument.View(), sampler_->Sample(1, {}, missing).Kind());
    const FieldArray beyond[] = {{{"", sizeof(ShadingContext), 1}, places_.data(), sizeof(Vector)}};
    EXPECT_EQ(error::kIllegalArgument.View(), sampler_->Sample(1, beyond, {}).Kind());
    EXPECT_EQ(nullptr, FindContextField("own0"));
}

} // namespace

} // namespace velto::test

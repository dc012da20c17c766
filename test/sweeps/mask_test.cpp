// The mask: which channels take part, and by what share.
#include "test/support/examples.h"

#include <array>

namespace velto::test
{

namespace
{

using host::Json;
using Channels = std::vector<double>;

constexpr const char* kFlags[] = {"maskred", "maskgreen", "maskblue", "maskalpha"};

Channels Masked(const Example& example, double share, int flags)
{
    Example masked = example;
    masked.document = example.With("maskblend", Json(share));
    for (int c = 0; c < 4; ++c)
        masked.document = masked.With(kFlags[c], Json((flags >> c & 1) != 0));
    host::Graph graph;
    Channels channels;
    if (!Load(masked.document, graph))
        return channels;
    const Json places = Look(graph);
    for (const Json& outputs : places.Elements())
    {
        for (const Json& channel : outputs.Elements().front().Elements())
            channels.push_back(channel.AsNumber());
    }
    return channels;
}

TEST(MaskTest, ChannelsTakePartByTheirFlagsAndShares)
{
    for (const Example& example : Examples())
    {
        if (!example.type->FindPort("maskblend", true))
            continue;
        SCOPED_TRACE(example.type->name);
        const Channels x = Masked(example, 5.0, 0); // no channel takes part: the input, whatever the share
        const Channels y = Masked(example, 1.0, 15);
        EXPECT_NE(x, y) << "the node has nothing to do";
        EXPECT_EQ(Masked(example, 0.0, 15), x);
        for (const double share : {0.25, 1.0, 2.0, -0.5})
        {
            for (const int flags : {1, 2, 4, 8, 10, 15})
            {
                const Channels result = Masked(example, share, flags);
                ASSERT_EQ(result.size(), x.size());
                for (std::size_t i = 0; i < x.size(); ++i)
                {
                    const double expected = (flags >> i % 4 & 1) == 0 ? x[i] : (y[i] - x[i]) * share + x[i];
                    ASSERT_NEAR(result[i], expected, 1e-12) << i << ", flags " << flags << ", share " << share;
                }
            }
        }
    }
}

} // namespace

} // namespace velto::test

#include "host/registry/datatypes.h"
#include "host/registry/registry.h"
#include "test/support/eval.h"
#include "velto/function.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace velto::test
{

namespace
{

using Channels = std::array<double, 4>;

constexpr std::string_view kMaskPorts[] = {"maskblend", "maskred", "maskgreen", "maskblue", "maskalpha"};

// Whatever is published with a mask is tested.
std::vector<std::string> MaskedNodes()
{
    TheModule();
    const host::NodeCatalog catalog;
    std::vector<std::string> ids;
    for (const std::string& id : host::EntryNames(registry::kCoreNodes.View()))
    {
        if (const auto type = catalog.Core(id); type && type->FindPort("maskblend", true))
            ids.push_back(id);
    }
    return ids;
}

class MaskRule : public testing::Test
{
protected:
    // Inputs that give the node something to do.
    static std::string Inputs(const std::string& id)
    {
        const auto type = host::NodeCatalog().Core(id);
        std::string inputs;
        int colors = 0;
        for (const host::NodePort& port : type->ports)
        {
            const bool isMask =
                std::find(std::begin(kMaskPorts), std::end(kMaskPorts), port.name) != std::end(kMaskPorts);
            if (!port.input || isMask)
                continue;
            const auto give = [&](std::string_view value) { inputs += fmt::format(R"("{}": {}, )", port.name, value); };
            const DataType* const of = port.type.Get();
            if (of == host::TypeOf<ColorAFunction>())
                give(R"({"from": "checker.result"})");
            else if (of == host::TypeOf<ColorA>())
                give(colors++ == 0 ? "[0.8, 0.3, 0.15, 0.6]" : "[0.1, 0.7, 0.9, 0.5]");
            else if (of == host::TypeOf<Color>())
                give("[0.5, 0.6, 0.7]");
            else if (of == host::TypeOf<Vector2d>())
                give("[4, 4]");
            else if (of == host::TypeOf<Float>())
                give("0.3");
            else if (of == host::TypeOf<Int32>())
                give("4");
            else if (port.name == "mode")
                give(R"("kernel")");
            else if (port.name == "inProfile")
                give(R"("gamma")");
            else if (port.name == "incolorspace")
                give(R"("rgb")");
            else if (port.name == "outcolorspace")
                give(R"("cmy")");
        }
        return inputs;
    }

    static Channels Result(const std::string& id, double blend, int flags)
    {
        const std::string document = fmt::format(R"({{"version": 1, "nodes": {{
            "checker": {{"type": "net.velto.pattern.corenode.generator.checkerboard",
                "inputs": {{"color1": [0.9, 0.2, 0.4, 0.25], "color2": [0.1, 0.6, 0.5, 0.75]}}}},
            "node": {{"type": "{}", "inputs": {{{} "maskblend": {}, "maskred": {}, "maskgreen": {}, "maskblue": {},
                "maskalpha": {}}}}}}}, "outputs": {{"result": "node.result"}}}})",
            id, Inputs(id), blend, (flags & 1) != 0, (flags & 2) != 0, (flags & 4) != 0, (flags & 8) != 0);
        const host::Json results = EvalJson(document, R"([{"uvw": [0.27, 0.61, 0]}])");
        const host::Json* const outputs = Entry(results).Find("outputs");
        Channels channels{};
        if (!outputs)
        {
            ADD_FAILURE() << results.Write();
            return channels;
        }
        for (std::size_t i = 0; i < 4; ++i)
            channels[i] = outputs->Find("result")->Elements()[i].AsNumber();
        return channels;
    }

    static void Check(const std::string& id)
    {
        const Channels x = Result(id, 5.0, 0); // no channel takes part: the input, whatever the share
        const Channels y = Result(id, 1.0, 15);
        EXPECT_NE(x, y) << "the inputs of this test leave the node nothing to do";
        EXPECT_EQ(Result(id, 0.0, 15), x);
        for (const double blend : {0.25, 1.0, 2.0, -0.5})
        {
            for (int flags = 1; flags < 16; ++flags)
            {
                const Channels result = Result(id, blend, flags);
                for (std::size_t c = 0; c < 4; ++c)
                {
                    if ((flags >> c & 1) == 0)
                        EXPECT_EQ(result[c], x[c]) << "channel " << c << ", flags " << flags << ", share " << blend;
                    else
                        EXPECT_NEAR(result[c], (y[c] - x[c]) * blend + x[c], 1e-12)
                            << "channel " << c << ", flags " << flags << ", share " << blend;
                }
            }
        }
    }
};

TEST_F(MaskRule, ChannelsTakePartByTheirFlagsAndShares)
{
    const std::vector<std::string> nodes = MaskedNodes();
    EXPECT_EQ(nodes.size(), 15u);
    for (const std::string& id : nodes)
    {
        SCOPED_TRACE(id);
        Check(id);
    }
}

} // namespace

} // namespace velto::test

#include "test/support/node_table.h"

namespace velto::test
{

#define VELTO_SCRATCHES(layers, step, gamma)                                                                           \
    R"({"seed": 3, "bend": 0.3, "scale": 12, "layers": )" #layers R"(, "density": 0.7, "frequencystep": )" #step       \
    R"(, "rotation": 1, "gamma": )" #gamma R"(, "thickness": 3, "depth": 0.8})"

static constexpr double kRounding = 1e-12; // of sines and powers

NODE_TABLE(ScratchesTable, "net.velto.pattern.corenode.generator.scratches",
    {
        {"a scratch in the last layer", VELTO_SCRATCHES(4, 0.6, 2), "0.1939616867485746",
            R"({"uvw": [-0.042, 0.765, 0]})", kRounding},
        {"none in the layers before", VELTO_SCRATCHES(3, 0.6, 2), "1", R"({"uvw": [-0.042, 0.765, 0]})"},
        {"a scratch in the first layer", VELTO_SCRATCHES(1, 0, 1), "0.9083788438254035",
            R"({"uvw": [-0.249, 0.795, 0]})", kRounding},
        {"later layers double what it removed", VELTO_SCRATCHES(4, 0, 1), "0.2670307506032277",
            R"({"uvw": [-0.249, 0.795, 0]})", kRounding},
        {"down to nothing", VELTO_SCRATCHES(100000, 0, 1), "0", R"({"uvw": [-0.249, 0.795, 0]})"},
        {"a power without a real value counts for nothing", VELTO_SCRATCHES(4, 1.5, 0.5), "1",
            R"({"uvw": [-0.256, 0.935, 0]})"},
        {"no layers", VELTO_SCRATCHES(0, 0.6, 2), "1", R"({"uvw": [-0.042, 0.765, 0]})"},
        {"the place may be invalid", VELTO_SCRATCHES(4, 0.6, 2), "0.1939616867485746",
            R"({"uvw": [-0.042, 0.765, 0], "uvwValid": false})", kRounding},
    });

} // namespace velto::test

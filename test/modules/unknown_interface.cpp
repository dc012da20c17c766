// Calls an interface that no host has.
#include "velto/module.h"

namespace velto::test
{

struct NowhereInterface
{
    static constexpr Id kId{"net.velto.test.interface.nowhere"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    VELTO_METHOD(Call, Result());
};

static Framework<"net.velto.core.framework", NowhereInterface> framework(g_velto);

} // namespace velto::test

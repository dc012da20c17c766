// Calls a method with a signature that no host offers.
#include "velto/module.h"

namespace velto::test
{

struct LargerSystemInterface
{
    static constexpr Id kId{SystemInterface::kId};
    static constexpr Id kFramework{SystemInterface::kFramework};

    VELTO_METHOD(Alloc, void*(UInt size, UInt alignment));
};

static Framework<"net.velto.core.framework", LargerSystemInterface> framework(g_velto);

} // namespace velto::test

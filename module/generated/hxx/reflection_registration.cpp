// Functions that a host finds by name.
#include "../../source/shader/shadernodesystem.h"
#include "velto/reflection.h"

namespace velto
{

VELTO_TRANSLATION_UNIT(record_flags::kGeneratedUnit);

static RootFunctionProvider<"net.velto.shadernode.SetupContext@fe0b344e033cea7a", &shadernode::SetupContext>
    setupContext;
static RootFunctionProvider<"net.velto.shadernode.CreateForwardingWires@fe0b344e033cea7a",
    &shadernode::CreateForwardingWires>
    createForwardingWires;
static RootFunctionProvider<"net.velto.shadernode.SetupMaterial@fe0b344e033cea7a", &shadernode::SetupMaterial>
    setupMaterial;

} // namespace velto

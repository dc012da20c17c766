// Interfaces of the host's objects whose functions nodes call.
#include "velto/function.h"
#include "velto/rendernoise.h"
#include "velto/unit.h"

namespace velto
{

VELTO_TRANSLATION_UNIT(record_flags::kGeneratedUnit);

static VirtualInterfaceRecord object(thisUnit, kObjectInterfaceId, "velto.ObjectInterface", ObjectMethods());
static VirtualInterfaceRecord function(
    thisUnit, FunctionInterface::kId, "velto.FunctionInterface", FunctionMethods(), &object);
static VirtualInterfaceRecord renderNoise(
    thisUnit, RenderNoiseInterface::kId, "velto.RenderNoiseInterface", RenderNoiseMethods(), &object);

} // namespace velto

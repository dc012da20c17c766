// Narrows the range of a grey, about a position.
#include "velto/node.h"

namespace velto::toolkit
{

static Float HistogramRange(In<"value", Float> value, In<"range", Float> range, In<"position", Float> position)
{
    const Float width = Clamp01(range);
    return Clamp01(value) * width + (1.0 - width) * Clamp01(position);
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.color.histogramrange", HistogramRange);

} // namespace velto::toolkit

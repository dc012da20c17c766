// The time of the sample: in seconds, in frames, and as a share of a loop.
#include "../maths/numbers.h"
#include "velto/node.h"

namespace velto::toolkit
{

static void Time(In<"context", ShadingContext> context, In<"length", Float> length, In<"offset", Float> offset,
    Out<"seconds", Float> seconds, Out<"frame", Float> frame, Out<"loop", Float> loop)
{
    const Float now = context->time.seconds + offset;
    seconds = now;
    frame = now * context->frameRate;
    loop = length > 0.0 ? Fraction(now / length) : 0.0;
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.context.time", Time);

} // namespace velto::toolkit

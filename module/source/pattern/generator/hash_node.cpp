// Random values that depend on two seeds alone.
#include "randomvalues.h"

namespace velto::pattern
{

static void Hash(In<"seed", Int> seed, In<"salt", Int> salt, In<"minimum", Float> minimum, In<"maximum", Float> maximum,
    Out<"resultColorA", ColorA> colorA, Out<"resultColor", Color> color, Out<"resultFloat", Float> number,
    Out<"resultInt", Int> integer, Out<"resultVector3", Vector> vector3, Out<"resultVector2", Vector2d> vector2,
    Out<"resultBool", Bool> flag)
{
    const UInt32 s = IntegerHash32(static_cast<UInt32>(*seed) + static_cast<UInt32>(*salt));
    const RandomValues values(RandomStream(s), minimum, maximum);
    colorA = values.AsColorA();
    color = values.AsColor();
    number = values.AsFloat();
    integer = values.AsInt();
    vector3 = values.AsVector3();
    vector2 = values.AsVector2();
    flag = values.AsBool();
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.hash", Hash);

} // namespace velto::pattern

// A convolution with three by three weights of the user's: sharpens, finds edges, blurs a little.
#include "sampling.h"
#include "velto/mask.h"

namespace velto::pattern::twod
{

static Result Kernel(In<"context", ShadingContext> context, In<"color", ColorAFunction> color,
    In<"resolution", Vector2d> resolution, In<"kernel00", Float> kernel00, In<"kernel01", Float> kernel01,
    In<"kernel02", Float> kernel02, In<"kernel10", Float> kernel10, In<"kernel11", Float> kernel11,
    In<"kernel12", Float> kernel12, In<"kernel20", Float> kernel20, In<"kernel21", Float> kernel21,
    In<"kernel22", Float> kernel22, In<"normalize", Bool> normalize, Mask mask, Out<"result", ColorA> result)
{
    const Float stepU = 1.0 / Max(resolution->x, 1.0);
    const Float stepV = 1.0 / Max(resolution->y, 1.0);
    ShadingContext local;
    CopyContext(local, *context);
    const Vector centre = local.uvw;
    ColorA base;
    VELTO_TRY(Sample(*color, local, base));

    // Along u, within it along v.
    Float weights[3][3] = {
        {kernel00, kernel01, kernel02},
        {kernel10, kernel11, kernel12},
        {kernel20, kernel21, kernel22},
    };
    if (normalize)
    {
        Float total = 0.0;
        for (const auto& column : weights)
        {
            for (const Float weight : column)
                total += weight;
        }
        if (total > 0.0)
        {
            for (auto& column : weights)
            {
                for (Float& weight : column)
                    weight /= total;
            }
        }
    }

    ColorA filtered = kTransparentBlack;
    for (int i = -1; i <= 1; ++i)
    {
        for (int j = -1; j <= 1; ++j)
        {
            MoveTo(local, {centre.x + i * stepU, centre.y + j * stepV, centre.z});
            ColorA tap;
            VELTO_TRY(Sample(*color, local, tap));
            AddScaled(filtered, tap, weights[i + 1][j + 1]);
        }
    }
    result = mask.Apply(base, filtered);
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.2d.kernel", Kernel);

} // namespace velto::pattern::twod

// The colours between the texels of a picture.
#pragma once

#include "pyramid.h"

#include "velto/shadingcontext.h"
#include "velto/texture.h"

namespace velto::host
{

struct SampleRequest
{
    double u = 0.0;
    double v = 0.0;
    double width = 0.0;
    double height = 0.0;
    std::uint8_t tileModeU = kTileNone;
    std::uint8_t tileModeV = kTileNone;
    Int32 interpolation = texture_filter::kNone;
    bool toLinear = true;
    Int32 alpha = texture_alpha::kStraight;
    bool acrossTiles = true;
};

// [any thread] The colour that the request asks for.
ColorA SamplePicture(const Picture& picture, const SampleRequest& request);

} // namespace velto::host

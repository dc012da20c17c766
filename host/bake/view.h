// What a bake looks at: the context of each place of the picture.
#pragma once

#include "velto/shadingcontext.h"

namespace velto::host
{

enum class BakeShape
{
    Plane,
    Sphere,
};

struct BakeView
{
    int width = 1024; // of the whole picture
    int height = 1024;
    BakeShape shape = BakeShape::Plane;
    int supersample = 1; // samples along a pixel's side; a sample's neighbours are one sample away
};

// The context of a sample at a place of the picture, in pixels from its upper left corner; false where the shape is
// not.
bool FillContext(const BakeView& view, double x, double y, ShadingContext& context);

} // namespace velto::host

// Curves through knots.
//
// A segment runs as its left knot says:
// - linear: straight;
// - Bezier: a cubic Bézier curve whose inner control points are the right tangent of the left knot and the left tangent
//   of the right knot. Control points that reach beyond the segment are drawn in along their tangent, so that the curve
//   has one height for every x;
// - cubic: a cubic Hermite curve whose slope at a knot is that of the line between the knot's neighbours, times
//   1 - tension (at the ends of the curve: the line to the only neighbour).
#pragma once

#include "velto/splinemapper.h"

namespace velto::host
{

const SplineMapperInterface& SplineMapperService();

} // namespace velto::host

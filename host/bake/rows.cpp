#include "rows.h"

#include <algorithm>

namespace velto::host
{

namespace
{

// What varies along a row of the plane.
constexpr UInt32 kPlaneLanes[] = {offsetof(ShadingContext, uvw), offsetof(ShadingContext, uvwPlusDeltaU),
    offsetof(ShadingContext, uvwPlusDeltaV), offsetof(ShadingContext, samplePosition),
    offsetof(ShadingContext, samplePositionPlusDeltaU), offsetof(ShadingContext, samplePositionPlusDeltaV),
    offsetof(ShadingContext, rayOrigin), offsetof(ShadingContext, rayOriginPlusDeltaU),
    offsetof(ShadingContext, rayOriginPlusDeltaV), offsetof(ShadingContext, pixel)};

} // namespace

SampleRow::SampleRow(const BakeView& view, const ShadingContext& shared, int first, double within, int count)
    : view_(view), first_(first), within_(within), count_(count), end_(count)
{
    const bool isPlane = view.shape == BakeShape::Plane;
    contexts_.assign(isPlane ? 1 : static_cast<std::size_t>(count), shared);
    if (!isPlane)
    {
        for (const ContextField& field : ContextFields())
            fields_.push_back({field, nullptr, sizeof(ShadingContext)});
        return;
    }
    lanes_.resize(std::size(kPlaneLanes) * kMost);
    ShadingContext context = shared;
    for (int i = 0; i < count; ++i)
    {
        FillContext(view, PlaceOf(i), 0.5, context);
        for (std::size_t lane = 0; lane < std::size(kPlaneLanes); ++lane)
            std::memcpy(&lanes_[lane * kMost + static_cast<std::size_t>(i)],
                reinterpret_cast<const std::byte*>(&context) + kPlaneLanes[lane], sizeof(UInt));
    }
    for (std::size_t lane = 0; lane < std::size(kPlaneLanes); ++lane)
        fields_.push_back({{{}, kPlaneLanes[lane], 1}, &lanes_[lane * kMost], sizeof(UInt)});
}

void SampleRow::MoveTo(double y)
{
    if (view_.shape == BakeShape::Plane)
    {
        FillContext(view_, PlaceOf(0), y, contexts_[0]);
        return;
    }
    begin_ = end_ = count_;
    for (int i = 0; i < count_; ++i)
    {
        if (!FillContext(view_, PlaceOf(i), y, contexts_[static_cast<std::size_t>(i)]))
            continue;
        begin_ = std::min(begin_, i);
        end_ = i + 1;
    }
    if (begin_ == count_)
        begin_ = end_ = 0;
}

std::span<const FieldArray> SampleRow::Fields()
{
    if (view_.shape != BakeShape::Plane)
    {
        const auto* const first = reinterpret_cast<const std::byte*>(&contexts_[static_cast<std::size_t>(begin_)]);
        for (FieldArray& array : fields_)
            array.data = first + array.field.offset;
    }
    return fields_;
}

} // namespace velto::host

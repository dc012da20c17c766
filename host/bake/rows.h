// What a bake looks at, a row of samples at a time.
#pragma once

#include "view.h"

#include "host/runtime/sampler.h"

namespace velto::host
{

// A row of up to `kMost` samples, one pixel apart. Of the plane's fields most are the same along a row, and the others
// the same in every row: these are made once.
class SampleRow
{
public:
    static constexpr int kMost = 64;

    // The samples lie `within` pixels from the left side of their pixels, of which `first` is the first.
    SampleRow(const BakeView& view, const ShadingContext& shared, int first, double within, int count);

    // To the row at `y`. The samples from `Begin` to `End` show the shape.
    void MoveTo(double y);
    int Begin() const { return begin_; }
    int End() const { return end_; }

    const ShadingContext& Shared() const { return contexts_[static_cast<std::size_t>(begin_)]; }

    // Of the samples that show the shape.
    std::span<const FieldArray> Fields();

private:
    double PlaceOf(int i) const { return first_ + i + within_; }

    const BakeView& view_;
    int first_;
    double within_;
    int count_;
    int begin_ = 0;
    int end_ = 0;
    std::vector<ShadingContext> contexts_; // by sample
    std::vector<UInt> lanes_;              // by field and sample
    std::vector<FieldArray> fields_;
};

} // namespace velto::host

// A raster that is made ahead of sampling and read by samples.
#pragma once

#include "velto/datatype.h"

namespace velto::pattern::twod
{

// Pixel (x, y) is element x + y * width and lies at u = (x + 0.5) / width, v = (y + 0.5) / height.
struct BakedImageData
{
    BaseArray<ColorA> pixels;
    UInt32 width = 0;
    UInt32 height = 0;

    BakedImageData() = default;
    BakedImageData(BakedImageData&& other) noexcept
        : pixels(std::move(other.pixels)), width(std::exchange(other.width, 0)), height(std::exchange(other.height, 0))
    {
    }
    BakedImageData& operator=(BakedImageData&& other) noexcept
    {
        pixels = std::move(other.pixels);
        width = std::exchange(other.width, 0);
        height = std::exchange(other.height, 0);
        return *this;
    }

    Result CopyFrom(const BakedImageData& other)
    {
        VELTO_TRY(pixels.CopyFrom(other.pixels));
        width = other.width;
        height = other.height;
        return {};
    }

    // Sizes and pixels disagree after a failed bake; nothing may be looked up then. In 64 bits, where no product wraps.
    bool IsUsable() const
    {
        const UInt count = static_cast<UInt>(width) * height;
        return count != 0 && count == static_cast<UInt>(pixels.Count());
    }
    // Whether there is a raster of that size already; what it was made from does not matter.
    bool Has(UInt32 w, UInt32 h) const { return !pixels.IsEmpty() && width == w && height == h; }
    const ColorA& At(Int x, Int y) const { return pixels[x + y * width]; }

    friend bool operator==(const BakedImageData&, const BakedImageData&) = default;
};

static_assert(sizeof(BakedImageData) == 32 && offsetof(BakedImageData, width) == 24);

struct SharedBakedImageData : Object, BakedImageData
{
};

// What `imageData` ports hold.
using BakedImageDataRef = Ref<SharedBakedImageData>;

} // namespace velto::pattern::twod

VELTO_DATA_TYPE(velto::pattern::twod::BakedImageData, "net.velto.render.datatype.bakedimagedata");
VELTO_DATA_TYPE(velto::pattern::twod::BakedImageDataRef, "net.velto.render.datatype.bakedimagedataref");

// The host's blend classes.
#pragma once

#include "velto/imagepixelblend.h"

#include <span>
#include <string_view>

namespace velto::host
{

// A blend mode by the last word of its id.
struct BlendMode
{
    std::string_view name;
    // One pixel: `foreground` over `background`, taking part to the share `opacity`.
    ColorA (*blend)(const ColorA& background, const ColorA& foreground, Float opacity);
};

// All modes, in order of their names.
std::span<const BlendMode> BlendModes();

// Puts a blend class for every mode into the registry of blend classes. Those that are there stay.
void PublishBlendClasses();

const ImagePixelBlendInterface& ImagePixelBlendService();

} // namespace velto::host

// From the name of a blend mode to the arithmetic behind it.
#pragma once

#include "velto/imagepixelblend.h"
#include "velto/registry.h"

namespace velto::pattern
{

// The class of a mode; null where there is none, for whatever reason.
inline BlendClassRef FindBlendClass(const Id& mode)
{
    Data found;
    if (Bound<RegistryInterface>().FindEntryValue(registry::kBlendModeClasses, mode, &found).IsError())
        return {};
    const auto* const blendClass = found.As<BlendClassRef>();
    return blendClass ? *blendClass : BlendClassRef();
}

// A handler of the class for pixels that are a `ColorA`. On error `handler` is as it was.
inline Result MakeBlendHandler(const BlendClassRef& blendClass, BlendPixelHandlerRef& handler)
{
    if (!blendClass)
        return MakeError(error::kNullptr, "There is no blend class of this mode.");
    BlendPixelHandler callables;
    VELTO_TRY(Bound<ImagePixelBlendInterface>().GetBlendPixelHandler(blendClass.Get(), pixel_format::kRgbaF64,
        kColorAChannels, pixel_format::kRgbaF64, kColorAChannels, 1.0, &callables));
    auto record = MakeShared<BlendPixelHandlerRecord>();
    if (!record)
    {
        if (callables.release)
            callables.release(callables.state);
        return OutOfMemory();
    }
    record->handler = callables;
    handler = std::move(record);
    return {};
}

// `result` may be either of the other two.
inline Result BlendPixel(
    const BlendPixelHandlerRef& record, ColorA& result, const ColorA& background, const ColorA& foreground)
{
    if (!record) [[unlikely]]
        return MakeError(error::kNullptr, "The layer has no blend handler: its mode is empty or unknown.");
    const BlendPixelHandler& handler = record->handler;
    return handler.blend(handler.state, {&result, 0}, {&background, 0}, {&foreground, 0}, 1, 0);
}

} // namespace velto::pattern

// Noise classes: the patterns that a noise type is chosen from.
#pragma once

#include "velto/data.h"

namespace velto
{

// An object of a noise class: made by the class, set up once by `init`, then sampled by any number of threads.
struct RenderNoiseInterface : Object
{
    static constexpr Id kId{"net.velto.render.interface.rendernoise"};

    // [one thread; setup] Once, before any sampling. `settings` is borrowed for the call: 64-bit floats under the keys
    // 0 lacunarity, 1 gain, 2 exponent; a missing one holds its default. On error the object stays as it was.
    Result (*init)(
        RenderNoiseInterface* self, UInt32 seed, Int32 complexity, const DictionaryObject* settings) = nullptr;
    // [any thread; sampling] The value at a place and a time: 0 to 1, or -1 to 1 for a signed class where `absolute` is
    // false. `filterWidth` is the width that one sample covers: finer detail fades to its mean. Never fails.
    Float32 (*noise)(const RenderNoiseInterface* self, Float32 x, Float32 y, Float32 z, Float32 time, Float32 octaves,
        Bool absolute, Float32 filterWidth) = nullptr;
    // [any thread; sampling] The same in the plane.
    Float32 (*noise2d)(const RenderNoiseInterface* self, Float32 x, Float32 y, Float32 time, Float32 octaves,
        Bool absolute, Float32 filterWidth) = nullptr;
};

// The functions of such an object by name.
struct RenderNoiseMethods
{
    VELTO_VIRTUAL_METHOD(RenderNoiseInterface, init);
    VELTO_VIRTUAL_METHOD(RenderNoiseInterface, noise);
    VELTO_VIRTUAL_METHOD(RenderNoiseInterface, noise2d);
};

// What the registry of noise classes holds under the class's identifier.
struct RenderNoiseClassObject : Object
{
    // [any thread; setup] A new object; the caller owns the reference. Out of memory.
    Result (*create)(const RenderNoiseClassObject* self, RenderNoiseInterface** noise) = nullptr;
};

using RenderNoiseClass = Ref<const RenderNoiseClassObject>;

// Keys of the settings of a noise object.
namespace noise_setting
{
inline constexpr Int kLacunarity = 0;
inline constexpr Int kGain = 1;
inline constexpr Int kExponent = 2;
} // namespace noise_setting

// The number that every user of noise passes to `init`.
inline constexpr Int32 kNoiseComplexity = 10;

} // namespace velto

VELTO_HOST_DATA_TYPE(velto::RenderNoiseClass, "net.velto.render.datatype.rendernoiseclass");

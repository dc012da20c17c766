// A scalar noise pattern, in texture space or at any position; the pre node makes the noise object.
#include "velto/footprint.h"
#include "velto/node.h"
#include "velto/rendernoise.h"

namespace velto::pattern
{

// A noise object with what it was made from. Copies share the object.
struct NoiseShaderTable
{
    UInt32 seed = 0;
    Float lacunarity = 0.0;
    Float gain = 0.0;
    Float exponent = 0.0;
    Id noiseType;
    Ref<RenderNoiseInterface> noise;

    friend bool operator==(const NoiseShaderTable&, const NoiseShaderTable&) = default;
};

} // namespace velto::pattern

VELTO_DATA_TYPE(velto::pattern::NoiseShaderTable, "net.velto.render.datatype.noiseshadertable");

namespace velto::pattern
{

VELTO_PUBLISH_DATA_TYPE(NoiseShaderTable);

// One unit of texture space is this many units of noise space.
static constexpr Float kNoiseUnits = 10.0;

static Result FindNoiseClass(const Id& noiseType, RenderNoiseClass& noiseClass)
{
    Data entry;
    VELTO_TRY(Bound<RegistryInterface>().FindEntryValue(registry::kRenderNoiseClasses, noiseType, &entry));
    const RenderNoiseClass* const found = entry.As<RenderNoiseClass>();
    VELTO_CHECK_ARGUMENT_AS(found && *found, "isNoiseClass && *isNoiseClass");
    noiseClass = *found;
    return {};
}

static Result NoisePre(In<"seed", UInt32> seed, In<"lacunarity", Float> lacunarity, In<"gain", Float> gain,
    In<"exponent", Float> exponent, In<"noiseType", Id> noiseType, Once<"noisetable", NoiseShaderTable> table)
{
    if (noiseType->IsEmpty())
        return {};
    if (table->noise && table->seed == *seed && table->lacunarity == *lacunarity && table->gain == *gain &&
        table->exponent == *exponent && table->noiseType == *noiseType)
        return {};

    table->seed = *seed;
    table->lacunarity = *lacunarity;
    table->gain = *gain;
    table->exponent = *exponent;
    table->noiseType = *noiseType;

    DataDictionary settings;
    VELTO_TRY(Bound<DataDictionaryInterface>().Alloc(settings.Receive()));
    VELTO_TRY(SetData(settings, noise_setting::kLacunarity, *lacunarity));
    VELTO_TRY(SetData(settings, noise_setting::kGain, *gain));
    VELTO_TRY(SetData(settings, noise_setting::kExponent, *exponent));

    RenderNoiseClass noiseClass;
    VELTO_TRY(FindNoiseClass(*noiseType, noiseClass));
    RenderNoiseInterface* made = nullptr;
    VELTO_TRY(noiseClass->create(noiseClass.Get(), &made));
    table->noise = Ref<RenderNoiseInterface>::Adopt(made);
    return made->init(made, *seed, kNoiseComplexity, settings.Get());
}

static Float Noise(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local,
    In<"animationSpeed", Float> animationSpeed, In<"octaves", Float> octaves, In<"absolute", Bool> absolute,
    In<"noisetable", NoiseShaderTable> table)
{
    if (!local->uvwValid)
        return 0.0;
    const RenderNoiseInterface* const noise = table->noise.Get();
    if (!noise)
        return 0.0;
    const Vector extent = Footprint<3>(*local);
    const Float32 filterWidth =
        static_cast<Float32>((extent.x + extent.y + extent.z) * 0.3333333333333333) * static_cast<Float32>(kNoiseUnits);
    const Float32 time = static_cast<Float32>(local->time.seconds * animationSpeed);
    const Vector& uvw = local->uvw;
    return noise->noise(noise, static_cast<Float32>(uvw.x * kNoiseUnits), static_cast<Float32>(uvw.y * kNoiseUnits),
        static_cast<Float32>(uvw.z * kNoiseUnits), time, static_cast<Float32>(*octaves), absolute, filterWidth);
}

static Float MathNoise(In<"value", Vector> value, In<"time", Float> time, In<"twod", Bool> isFlat,
    In<"scale", Float> scale, In<"octaves", Float> octaves, In<"absolute", Bool> absolute,
    In<"noisetable", NoiseShaderTable> table)
{
    const RenderNoiseInterface* const noise = table->noise.Get();
    if (!noise)
        return 0.0;
    const Float32 x = static_cast<Float32>(value->x * scale);
    const Float32 y = static_cast<Float32>(value->y * scale);
    const Float32 z = static_cast<Float32>(value->z * scale);
    const Float32 t = static_cast<Float32>(*time);
    const Float32 n = static_cast<Float32>(*octaves);
    return isFlat ? noise->noise2d(noise, x, y, t, n, absolute, 0.0f)
                  : noise->noise(noise, x, y, z, t, n, absolute, 0.0f);
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.noisepre", NoisePre);
VELTO_CORE_NODE("net.velto.pattern.corenode.generator.noise", Noise);
VELTO_CORE_NODE("net.velto.pattern.corenode.generator.mathnoise", MathNoise);

} // namespace velto::pattern

// The host's noise classes.
#pragma once

#include "host/system/shipped.h"
#include "noisekernels.h"
#include "velto/rendernoise.h"

#include <span>
#include <string_view>

namespace velto::host
{

class NoiseSampler;

// A noise class by the last word of its id. docs/noise.md shows what each looks like.
struct NoiseClass
{
    std::string_view name;
    bool isSigned; // -1 to 1 where `absolute` is false; all others 0 to 1
    bool hasEdges; // jumps where one cell ends and another begins
    Float32 (*value)(const NoiseSampler& sampler);
    Float32 fineness = 1.0f; // how much finer than a cell its shapes are: the filter is as much wider
};

// All classes, in order of their names.
std::span<const NoiseClass> NoiseClasses();

// A new object of a class that samples with given kernels; null without memory.
Ref<RenderNoiseInterface> MakeNoise(const NoiseClass& noiseClass, const NoiseKernels& kernels);

// The functions of noise objects, each with the one that does the same for many samples.
std::array<std::pair<const void*, BlockFunction>, 2> NoiseBlockForms();

// Puts all classes into the registry of noise classes. Those that are there stay.
void PublishNoiseClasses();

} // namespace velto::host

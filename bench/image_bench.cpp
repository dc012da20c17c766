// Looks into a picture of 2048 x 2048 pixels of 8 bits, beside the same looks through OpenImageIO's own texture system.
#include "host/loader/services.h"
#include "host/text/url.h"
#include "host/texture/texture.h"

#include <OpenImageIO/imageio.h>
#include <OpenImageIO/texture.h>
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <filesystem>
#include <vector>

namespace velto::bench
{

namespace
{

constexpr int kSize = 2048;

// The file that all benchmarks of this program look into.
const std::string& PictureFile()
{
    static const std::string file = [] {
        const std::string path =
            (std::filesystem::temp_directory_path() / ("velto_bench_" + std::to_string(getpid()) + ".tif")).string();
        std::vector<std::uint8_t> pixels(std::size_t(kSize) * kSize * 4);
        UInt32 noise = 1;
        for (std::uint8_t& channel : pixels)
            channel = static_cast<std::uint8_t>((noise = noise * 69069 + 1) >> 24);
        const auto output = OIIO::ImageOutput::create(path);
        if (!output || !output->open(path, OIIO::ImageSpec(kSize, kSize, 4, OIIO::TypeDesc::UINT8)) ||
            !output->write_image(OIIO::TypeDesc::UINT8, pixels.data()) || !output->close())
            std::abort();
        return path;
    }();
    return file;
}

struct RemoveAtEnd
{
    ~RemoveAtEnd() { std::filesystem::remove(PictureFile()); }
};

// Coordinates all over the picture, the same for both.
const std::vector<Vector2d>& Places()
{
    static const std::vector<Vector2d> places = [] {
        std::vector<Vector2d> made(1 << 14);
        UInt32 noise = 7;
        const auto next = [&noise] { return (noise = noise * 69069 + 1) * 0x1p-32; };
        for (Vector2d& place : made)
            place = {next(), next()};
        return made;
    }();
    return places;
}

const ThreadedTextureRef& Front()
{
    static const ThreadedTextureRef front = [] {
        static const RemoveAtEnd removeAtEnd;
        host::Services();
        Url url;
        Ref<Texture> texture;
        ThreadedTextureRef made;
        const auto& fronts = host::ThreadedTextureService();
        if (host::MakeUrl(PictureFile(), url).IsError() ||
            host::TextureManagementService()
                .LoadTexture(url.Get(), nullptr, false, nullptr, {}, nullptr, texture.Receive())
                .IsError() ||
            fronts.Alloc(made.Receive()).IsError() || fronts.Init(made.Get(), texture.Get()).IsError())
            std::abort();
        return made;
    }();
    return front;
}

void SetNanoseconds(benchmark::State& state)
{
    state.counters["ns"] = benchmark::Counter(static_cast<double>(state.iterations()) * Places().size() * 1e-9,
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void Look(benchmark::State& state, Int32 interpolation, double footprint)
{
    const ThreadedTexture* const front = Front().Get();
    const auto& fronts = host::ThreadedTextureService();
    for (auto _ : state)
    {
        for (const Vector2d& at : Places())
        {
            ColorA color = fronts.Sample(front, at.x, at.y, footprint, footprint, 2, 2, interpolation, true, 0, true);
            benchmark::DoNotOptimize(color);
        }
    }
    SetNanoseconds(state);
}
BENCHMARK_CAPTURE(Look, Nearest, texture_filter::kNone, 0.0);
BENCHMARK_CAPTURE(Look, Bilinear, texture_filter::kLinear, 0.0)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK_CAPTURE(Look, Mip, texture_filter::kMip, 3.0 / kSize);
BENCHMARK_CAPTURE(Look, Anisotropic, texture_filter::kRip, 3.0 / kSize);
BENCHMARK_CAPTURE(Look, Area, texture_filter::kSat, 3.0 / kSize);
BENCHMARK_CAPTURE(Look, Bicubic, texture_filter::kBicubic, 0.0);

void LibraryLook(benchmark::State& state)
{
    static OIIO::TextureSystem* const system = [] {
        OIIO::TextureSystem* const made = OIIO::TextureSystem::create(false);
        made->attribute("max_memory_MB", 256.0f);
        made->attribute("automip", 0);
        return made;
    }();
    OIIO::TextureSystem::Perthread* const mine = system->get_perthread_info();
    OIIO::TextureSystem::TextureHandle* const handle = system->get_texture_handle(OIIO::ustring(PictureFile()), mine);
    OIIO::TextureOpt options;
    options.swrap = options.twrap = OIIO::TextureOpt::WrapPeriodic;
    options.interpmode = OIIO::TextureOpt::InterpBilinear;
    options.mipmode = OIIO::TextureOpt::MipModeNoMIP;
    for (auto _ : state)
    {
        for (const Vector2d& at : Places())
        {
            float color[4] = {};
            if (!system->texture(
                    handle, mine, options, static_cast<float>(at.x), static_cast<float>(at.y), 0, 0, 0, 0, 4, color))
                return state.SkipWithError("the library does not read the picture");
            benchmark::DoNotOptimize(color);
        }
    }
    SetNanoseconds(state);
}
BENCHMARK(LibraryLook)->Threads(1)->Threads(2)->UseRealTime();

} // namespace

} // namespace velto::bench

// The host's side: finds the library and hands it what it compiles.
#include "fuse.h"

#include "request.h"

#include "host/corenode/group.h"
#include "host/noise/rendernoise.h"
#include "host/system/guard.h"
#include "host/system/shipped.h"
#include "host/text/interned.h"
#include "host/text/url.h"

#include "velto/module.h"

#include <dlfcn.h>

#include <cstring>

namespace velto::host
{

namespace
{

// Beside the resources, beside the executable, above it, or where the system looks.
FuseFunction FindLibrary(std::string& reason)
{
    std::error_code ignored;
    const auto directory = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const std::filesystem::path& place :
        {ResourceDirectory().parent_path() / kFuseLibraryFile, directory / kFuseLibraryFile,
            directory.parent_path() / kFuseLibraryFile, std::filesystem::path(kFuseLibraryFile)})
    {
        if (void* const library = dlopen(place.c_str(), RTLD_NOW | RTLD_LOCAL))
            return reinterpret_cast<FuseFunction>(dlsym(library, kFuseFunction));
        if (reason.empty() || std::filesystem::exists(place, ignored))
            reason = dlerror();
    }
    return nullptr;
}

// Stays loaded until the process ends.
FuseFunction TheLibrary(std::string& reason)
{
    static std::string failure;
    static const FuseFunction function = FindLibrary(failure);
    reason = failure;
    return function;
}

template <FixedString Name, class... Interfaces>
void AddInterfaces(std::vector<FuseInterface>& all, const Framework<Name, Interfaces...>*)
{
    (all.push_back({detail::CompilerTypeName<Interfaces>(), &slots<Interfaces>, sizeof(Interfaces)}), ...);
}

std::vector<FuseInterface> AllInterfaces()
{
    std::vector<FuseInterface> all;
    AddInterfaces(all, static_cast<const CoreFramework*>(nullptr));
    AddInterfaces(all, static_cast<const CoreNodesFramework*>(nullptr));
    AddInterfaces(all, static_cast<const ImageFramework*>(nullptr));
    AddInterfaces(all, static_cast<const MathFramework*>(nullptr));
    AddInterfaces(all, static_cast<const RenderFramework*>(nullptr));
    return all;
}

// What a sample does beside giving values must happen once, in order.
bool HasSideEffects(const Program& program)
{
    for (const BodyPlan& body : program.bodies)
    {
        for (const CallPlan& call : body.calls)
        {
            if (call.record && AsHost(program.groups[call.node]).hasSideEffect)
                return true;
        }
    }
    return false;
}

// More take longer to compile than most bakes do.
constexpr std::size_t kMostCalls = 3000;

std::size_t CallsOf(const Program& program)
{
    std::size_t calls = 0;
    for (const BodyPlan& body : program.bodies)
        calls += body.calls.size();
    return calls;
}

Result FuseWith(FuseFunction compile, Setup& setup, const ShadingContext& start, const SampleShape& shape,
    const FuseOptions& options, FuseReport& report, std::shared_ptr<const SampleKernel>& kernel)
{
    std::unique_ptr<Instance> instance;
    VELTO_TRY(Instance::Create(setup, instance));
    instance->SetIndependentSamples();
    instance->StartStateFrom(start);
    instance->PrimeAll();
    FuseRequest request;
    request.program = &setup.GetProgram();
    request.setup = setup.Memory();
    request.frame = instance->Memory();
    request.shape = shape;
    request.interfaces = AllInterfaces();
    request.tables = {{"ShippedBlends", ShippedBlends()}, {"ShippedConversions", ShippedConversions()}};
    for (const auto& [single, block] : NoiseBlockForms())
        request.blockForms.push_back({single, block});
    std::memcpy(&request.makeError, &slots<ErrorInterface>.Create, sizeof(request.makeError));
    request.intern = &Intern;
    request.processor = options.processor;
    request.stop = options.stop;
    FuseAnswer answer;
    compile(request, answer);
    report = {answer.reason, answer.seconds, answer.directCalls, answer.foreignCalls};
    if (!answer.kernel.entry)
        return {};
    // The code holds on to what the instance's nodes keep.
    struct Held
    {
        std::unique_ptr<Instance> instance;
        SampleKernel kernel;
    };
    auto held = std::make_shared<Held>(Held{std::move(instance), std::move(answer.kernel)});
    kernel = std::shared_ptr<const SampleKernel>(held, &held->kernel);
    return {};
}

} // namespace

double ExpectedFuseSeconds(const Program& program)
{
    // Measured; larger programs also have larger functions.
    const auto calls = static_cast<double>(CallsOf(program) + 1);
    return 0.03 * calls + 0.0004 * calls * calls;
}

bool CanFuse()
{
    std::string reason;
    return TheLibrary(reason) != nullptr;
}

std::shared_ptr<const SampleKernel> Fuse(
    Setup& setup, const ShadingContext& start, const SampleShape& shape, const FuseOptions& options, FuseReport& report)
{
    std::shared_ptr<const SampleKernel> kernel;
    const Result fused = Guarded([&]() -> Result {
        const FuseFunction compile = TheLibrary(report.reason);
        if (!compile)
            return {};
        const Program& program = setup.GetProgram();
        report.reason = setup.HasFailed()               ? "the setup has failed"
                        : HasSideEffects(program)       ? "a node does more than give values"
                        : CallsOf(program) > kMostCalls ? "it is too large"
                                                        : "";
        if (!report.reason.empty())
            return {};
        return FuseWith(compile, setup, start, shape, options, report, kernel);
    });
    if (fused.IsError())
        report.reason = fused.Message();
    return kernel;
}

} // namespace velto::host

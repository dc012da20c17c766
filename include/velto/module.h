// Makes a shared library a module: its record, the frameworks that it calls, and the one symbol that a host looks for.
#pragma once

#include "velto/corenodes.h"
#include "velto/descriptions.h"
#include "velto/graph.h"
#include "velto/imagepixelblend.h"
#include "velto/jobqueue.h"
#include "velto/logger.h"
#include "velto/message.h"
#include "velto/noise.h"
#include "velto/splinemapper.h"
#include "velto/texture.h"
#include "velto/unit.h"

namespace velto
{

// A host framework that this library calls: a module record with the bindings of its interfaces.
template <FixedString Name, class... Interfaces>
class Framework
{
public:
    explicit Framework(ModuleExport& moduleExport)
    {
        static constexpr Id name = Id::OverStatic(Name.View());
        static_assert(((Interfaces::kFramework.View() == Name.View()) && ...));
        module_.ConstructModule(name, 0, nullptr, 0, moduleExport);
        unit_.Construct(RecordKind::TranslationUnit, name, &module_, 0);
        unit_.module = &module_;
        module_.Add(unit_);
        (Bind<Interfaces>(), ...);
    }

private:
    template <class Interface>
    void Bind()
    {
        InterfaceBindingRecord& record = binding<Interface>;
        record.Construct(RecordKind::InterfaceBinding, Interface::kId, &unit_, 0);
        record.interfaceId = Interface::kId;
        record.slots = reinterpret_cast<void (**)()>(&slots<Interface>);
        record.shadow = reinterpret_cast<void (*const*)()>(&kUnboundSlots<Interface>);
        record.methodNames = kMethodNames<Interface>.data();
        record.methodCount = kSlotCount<Interface>;
        record.binder = [](InterfaceBindingRecord* self, void (*const* functions)()) {
            std::memcpy(self->slots, functions, self->methodCount * sizeof(*functions));
        };
        record.framework = &module_;
        unit_.Add(record);
    }

    ModuleRecord module_;
    TranslationUnitRecord unit_;
};

using CoreFramework = Framework<"net.velto.core.framework", SystemInterface, ErrorInterface, DataTypeLibInterface,
    RegistryInterface, FactoryInterface, DataDictionaryInterface, StringInterface, UrlInterface,
    ThreadServicesInterface, JobQueueInterface, LoggerInterface, ConfigurationInterface,
    DescriptionDefinitionDatabaseInterface, DescriptionDatabaseInterface>;
using CoreNodesFramework = Framework<"net.velto.corenodes.framework", MicroNodeGroupInterface, MicroNodeInterface,
    CoreNodeInstanceBaseInterface, CoreNodesLibInterface>;
using ImageFramework = Framework<"net.velto.image.framework", ImagePixelBlendInterface>;
using MathFramework = Framework<"net.velto.math.framework", SplineMapperInterface>;
using NodesFramework = Framework<"net.velto.nodes.framework", NodeGraphInterface, NodesLibInterface, NodePathInterface>;
using RenderFramework = Framework<"net.velto.render.framework", TextureManagementInterface, TextureInterface,
    ThreadedTextureInterface, RenderMessageInterface, NoiseInterface>;

// Null until a host has loaded the module.
inline void* (*GetInitializer(const ModuleExport& moduleExport))(const Id*, const Id*)
{
    if (!moduleExport.initializer)
        std::fputs("Assertion failed: g_velto.GetInitializer()\n", stderr);
    return moduleExport.initializer;
}

} // namespace velto

extern "C" __attribute__((visibility("default"))) velto::ModuleExport g_velto;

// Defines the library's export and its record; stands once, in the source `register`.
#define VELTO_MODULE(id)                                                                                               \
    constinit velto::ModuleExport g_velto;                                                                             \
    constinit velto::ModuleRecord velto::thisModule;                                                                   \
    VELTO_TRANSLATION_UNIT(::velto::record_flags::kRegisterUnit);                                                      \
    static const bool moduleConstructed =                                                                              \
        (::velto::thisModule.ConstructModule(id, 0, ::velto::kFrameworks, std::size(::velto::kFrameworks), g_velto),   \
            ::velto::MoveDataTypes(::velto::thisModule.dataTypes), true);                                              \
    static const ::velto::ConfigurationValue enableDebugBreak(                                                         \
        "g_enableDebugBreak", "enable debug breaks (when debugger is attached)", &::velto::g_enableDebugBreak);        \
    static const ::velto::ConfigurationValue enableParallelFor(                                                        \
        "g_enableParallelFor", "enable parallel execution of all ParallelFor loops", &::velto::g_enableParallelFor);   \
    static ::velto::StepRecord registerConfiguration(                                                                  \
        thisUnit, "configuration", &::velto::RegisterConfiguration, &::velto::ForgetConfiguration)

namespace velto
{

// The value of a registry's entry, found on demand; null when the host has none.
template <class T>
const T* Find(const Id& registry, const Id& name)
{
    const auto initializer = GetInitializer(g_velto);
    return initializer ? static_cast<const T*>(initializer(&registry, &name)) : nullptr;
}

// One of the application's places, or the directory of this module's file.
inline Result GetApplicationUrl(UrlKind kind, Url& url)
{
    const auto& urls = Bound<UrlInterface>();
    if (kind == UrlKind::ModuleDirectory)
        return urls.GetDirectory(g_velto.moduleUrl.Get(), url.Receive());
    return urls.GetApplicationUrl(static_cast<Int32>(kind), url.Receive());
}

// The host forgets the values of what it unloads.
inline void ForgetConfiguration() {}

// Hands the module's values to the host, unless a module record in the chain says not to.
inline Result RegisterConfiguration()
{
    for (const ModuleRecord* module = g_velto.moduleRecords; module; module = module->nextModule)
    {
        if (module->flags & record_flags::kNoConfiguration)
            return {};
    }
    for (Int i = 0; i < configurationTable.count; ++i)
        VELTO_TRY(Bound<ConfigurationInterface>().ConfigurationRegister(&configurationTable.entries[i]));
    return {};
}

} // namespace velto

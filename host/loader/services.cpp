#include "services.h"

#include "host/blend/blend.h"
#include "host/corenode/factory.h"
#include "host/corenode/group.h"
#include "host/graph/description.h"
#include "host/graph/nodesystem.h"
#include "host/math/splinemapper.h"
#include "host/noise/noise.h"
#include "host/noise/rendernoise.h"
#include "host/registry/datatypes.h"
#include "host/registry/dictionary.h"
#include "host/registry/registry.h"
#include "host/system/allocator.h"
#include "host/system/configuration.h"
#include "host/system/error.h"
#include "host/system/jobqueue.h"
#include "host/system/message.h"
#include "host/system/output.h"
#include "host/text/string.h"
#include "host/text/url.h"
#include "host/texture/texture.h"

#include <vector>

namespace velto::host
{

namespace
{

template <class Interface>
Service Offer(const Interface& table)
{
    slots<Interface> = table; // the host calls itself through the same tables
    return {Interface::kId.View(), kMethodNames<Interface>.data(), kSlotCount<Interface>,
        reinterpret_cast<void (*const*)()>(&table)};
}

// What the host itself puts into registries.
bool PublishEntries()
{
    PublishBlendClasses();
    PublishNoiseClasses();
    RegisterDescriptionProcessor().Ignore(); // fails only without memory
    PublishNodeSystemClass().Ignore();
    return true;
}

} // namespace

std::span<const Service> Services()
{
    static const std::vector<Service> services{
        Offer(SystemService()),
        Offer(ErrorService()),
        Offer(DataTypeService()),
        Offer(RegistryService()),
        Offer(FactoryService()),
        Offer(DictionaryService()),
        Offer(StringService()),
        Offer(UrlService()),
        Offer(ThreadService()),
        Offer(JobQueueService()),
        Offer(LoggerService()),
        Offer(ConfigurationService()),
        Offer(DescriptionDefinitionService()),
        Offer(DescriptionService()),
        Offer(NodeGraphService()),
        Offer(NodesLibService()),
        Offer(NodePathService()),
        Offer(GroupService()),
        Offer(MicroNodeService()),
        Offer(CoreNodeInstanceService()),
        Offer(CoreNodesLibService()),
        Offer(ImagePixelBlendService()),
        Offer(SplineMapperService()),
        Offer(TextureManagementService()),
        Offer(TextureService()),
        Offer(ThreadedTextureService()),
        Offer(RenderMessageService()),
        Offer(NoiseService()),
    };
    static const bool published = PublishEntries();
    static_cast<void>(published);
    return services;
}

const VirtualInterface* FindVirtualInterface(std::string_view id)
{
    static constexpr VirtualInterface interfaces[] = {
        {kObjectInterfaceId.View(), kMethodNames<ObjectMethods>.data(), kSlotCount<ObjectMethods>},
        {FunctionInterface::kId.View(), kMethodNames<FunctionMethods>.data(), kSlotCount<FunctionMethods>},
        {RenderNoiseInterface::kId.View(), kMethodNames<RenderNoiseMethods>.data(), kSlotCount<RenderNoiseMethods>},
    };
    for (const VirtualInterface& candidate : interfaces)
    {
        if (candidate.id == id)
            return &candidate;
    }
    return nullptr;
}

const Service* FindService(std::string_view id)
{
    for (const Service& service : Services())
    {
        if (service.id == id)
            return &service;
    }
    return nullptr;
}

} // namespace velto::host

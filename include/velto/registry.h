// Published things by name.
#pragma once

#include "velto/data.h"

namespace velto
{

struct RegistryInterface
{
    static constexpr Id kId{"net.velto.interface.registry"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // [one thread; loading] Keeps a copy of `value` in `registry` under `entry`, in order of publishing. Illegal
    // argument when the entry is there already.
    VELTO_METHOD(InsertEntry, Result(const Id& registry, const Id& entry, const Data& value));
    // [one thread; unloading] Illegal argument when there is no such entry.
    VELTO_METHOD(EraseEntry, Result(const Id& registry, const Id& entry));
    // [any thread] A copy of the value; unresolved when there is no such entry.
    VELTO_METHOD(FindEntryValue, Result(const Id& registry, const Id& entry, Data* value));
};
VELTO_USED_BY_INCLUDERS("velto/registry.h", RegistryInterface);

namespace registry
{
inline constexpr Id kCoreNodes{"net.velto.corenode.registry.corenodes"};
inline constexpr Id kDataTypes{"net.velto.registry.datatypes"};
inline constexpr Id kInternedIds{"net.velto.registry.internedids"};
inline constexpr Id kDescriptionFinalizers{"net.velto.node.registry.descriptionfinalizers"};
inline constexpr Id kDescriptionProcessors{"net.velto.registry.descriptionprocessors"};
inline constexpr Id kNodeSystemClasses{"net.velto.node.registry.nodesystemclasses"};
inline constexpr Id kBuiltinNodes{"net.velto.node.registry.builtinnodes"};
inline constexpr Id kBlendModeClasses{"net.velto.render.registry.blendmodeclasses"};
inline constexpr Id kRenderNoiseClasses{"net.velto.render.registry.rendernoiseclasses"};
} // namespace registry

} // namespace velto

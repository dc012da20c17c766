// A node is a function: the parameters of its compute function are its ports, in access order, each stated once.
//
//     static ColorA Tint(In<"color", ColorA> color, In<"amount", Float> amount) { ... }
//     VELTO_CORE_NODE("net.example.tint", Tint);
//
// The return value is the port `result`, after the others; a node that can fail returns `Result` and has its result as
// an `Out`. The kinds of parameter are in parameters.h; what declares ports, fills records and reads slots is derived
// from the function's type at compile time (nodetable.h, nodegroup.h).
#pragma once

#include "velto/nodegroup.h"
#include "velto/unit.h"

namespace velto
{

// A core node in the registry: a cached factory that builds the node's group on demand.
struct CoreNodeDeclaration : DeclarationRecord
{
    Id nodeId;
    const NodeTable* table;
    CoreNodeOptions options;

    CoreNodeDeclaration(
        TranslationUnitRecord& unit, const Id& id, const NodeTable& nodeTable, const CoreNodeOptions& nodeOptions = {})
        : nodeId(id), table(&nodeTable), options(nodeOptions)
    {
        ConstructPublished(unit, Id(), record_flags::kPublished, registry::kCoreNodes, &CreateFactory);
    }

private:
    static constexpr Int32 kCacheSize = 100;

    static Result CreateFactory(DeclarationRecord* self, Data* value, Id* entry)
    {
        const auto* const node = static_cast<CoreNodeDeclaration*>(self);
        *entry = node->nodeId;
        DataDictionary attributes;
        VELTO_TRY(Bound<DataDictionaryInterface>().Alloc(attributes.Receive()));
        VELTO_TRY(SetData(attributes, kNodeIdKey, node->nodeId));
        CoreNodeFactory factory;
        VELTO_TRY(Bound<FactoryInterface>().PrivateCreateCached(
            attributes.Get(), &BuildGroup, node, kCacheSize, factory.Receive()));
        return value->Set(factory);
    }

    static Result BuildGroup(const void* context, const DictionaryObject* arguments, MicroNodeGroup** group)
    {
        const auto* const node = static_cast<const CoreNodeDeclaration*>(context);
        return BuildMicroNodeGroup(*node->table, node->nodeId, node->options, arguments, group);
    }
};

} // namespace velto

VELTO_TRANSLATION_UNIT(0);

#ifdef VELTO_BITCODE
// By these names the host finds the compute functions.
#define VELTO_PUBLISH_NODE(id, function, kind, ...)                                                                    \
    static_assert(::velto::kIsNodeFunction<function>);                                                                 \
    extern const ::velto::NodeTable VELTO_UNIQUE_NAME(table) __asm__("velto.node:" id);                                \
    const ::velto::NodeTable VELTO_UNIQUE_NAME(table) = ::velto::TableOf<function, kind>()
#else
#define VELTO_PUBLISH_NODE(id, function, kind, ...)                                                                    \
    static_assert(::velto::kIsNodeFunction<function>,                                                                  \
        "the parameters of a node are its ports: write In<\"amount\", Float> amount where Float amount stands");       \
    static ::velto::CoreNodeDeclaration VELTO_UNIQUE_NAME(coreNode)(                                                   \
        thisUnit, id, ::velto::TableOf<function, kind>(), ::velto::CoreNodeOptions{__VA_ARGS__})
#endif

// Publishes `function` as the core node `id`. What follows are fields of `CoreNodeOptions`: `.hasSideEffect = true`.
#define VELTO_CORE_NODE(id, function, ...) VELTO_PUBLISH_NODE(id, function, ::velto::MicroNodeKind::Sample, __VA_ARGS__)

// The same for a node that the host may run over many samples in one call.
#define VELTO_BATCH_NODE(id, function, ...) VELTO_PUBLISH_NODE(id, function, ::velto::MicroNodeKind::Batch, __VA_ARGS__)

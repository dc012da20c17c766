// Publishes what completes described nodes, and nodes that are graphs.
#pragma once

#include "velto/graph.h"
#include "velto/unit.h"

namespace velto
{

// A function that completes the root of the described node of that id.
struct FinalizerDeclaration : DeclarationRecord
{
    Result (*finalize)(const MutableRoot& root);

    FinalizerDeclaration(TranslationUnitRecord& unit, const Id& id, Result (*function)(const MutableRoot& root))
        : finalize(function)
    {
        ConstructPublished(unit, id, record_flags::kPublished, registry::kDescriptionFinalizers,
            [](DeclarationRecord* self, Data* value, Id*) -> Result {
                struct Finalizer : DescriptionFinalizerObject
                {
                    Result (*function)(const MutableRoot& root) = nullptr;
                };
                Ref<Finalizer> made = MakeShared<Finalizer>();
                if (!made)
                    return OutOfMemory();
                made->function = static_cast<FinalizerDeclaration*>(self)->finalize;
                made->finalize = [](const DescriptionFinalizerObject* finalizer, const MutableRoot* root) -> Result {
                    return static_cast<const Finalizer*>(finalizer)->function(*root);
                };
                return value->Set(DescriptionFinalizer::Adopt(made.Detach()));
            });
    }
};

// A node that is a template of a graph.
struct BuiltinNodeDeclaration : DeclarationRecord
{
    Result (*makeTemplate)(Data& nodeTemplate);

    BuiltinNodeDeclaration(TranslationUnitRecord& unit, const Id& id, Result (*function)(Data& nodeTemplate))
        : makeTemplate(function)
    {
        ConstructPublished(unit, id, record_flags::kPublished, registry::kBuiltinNodes,
            [](DeclarationRecord* self, Data* value, Id*) -> Result {
                struct Builtin : BuiltinNodeObject
                {
                    Result (*function)(Data& nodeTemplate) = nullptr;
                };
                Ref<Builtin> made = MakeShared<Builtin>();
                if (!made)
                    return OutOfMemory();
                made->function = static_cast<BuiltinNodeDeclaration*>(self)->makeTemplate;
                made->makeTemplate = [](const BuiltinNodeObject* node, Data* nodeTemplate) -> Result {
                    return static_cast<const Builtin*>(node)->function(*nodeTemplate);
                };
                return value->Set(BuiltinNode::Adopt(made.Detach()));
            });
    }
};

} // namespace velto

#define VELTO_DESCRIPTION_FINALIZER(id, function)                                                                      \
    static ::velto::FinalizerDeclaration VELTO_UNIQUE_NAME(finalizer)(thisUnit, id, function)

#define VELTO_BUILTIN_NODE(id, function)                                                                               \
    static ::velto::BuiltinNodeDeclaration VELTO_UNIQUE_NAME(builtinNode)(thisUnit, id, function)

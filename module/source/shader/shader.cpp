// Wires a graph's context, and hands the nodes' descriptions to their processors.
#include "../datadescription_shadernodes/databaseregister.h"
#include "../pattern/2d/bakedimagedata.h"
#include "shadernodesystem.h"
#include "velto/moduledescriptions.h"
#include "velto/porttypes.h"
#include "velto/unit.h"

namespace velto::shadernode
{

// The search paths as this module makes their type; everybody else fetches it by name.
struct SearchPaths : SearchPathsType
{
};

} // namespace velto::shadernode

VELTO_DATA_TYPE(velto::shadernode::SearchPaths, "net.velto.render.datatype.searchpathstype");

namespace velto
{

VELTO_TRANSLATION_UNIT(0);
VELTO_DEPENDS_ON_LABEL(databaseRegister, "databaseregister");

VELTO_PUBLISH_DATA_TYPE(shadernode::SearchPaths);
VELTO_PUBLISH_DATA_TYPE(pattern::twod::BakedImageData);

namespace shadernode
{

namespace
{

// What one run of `SetupContext` knows.
class ContextWiring
{
public:
    Result Run(const MutableRoot& root)
    {
        MutablePort inputs;
        VELTO_TRY(root.GetInputs(inputs));
        VELTO_TRY(inputs.FindPort(port::kContext, context_));
        if (context_.IsEmpty())
            return {};
        MutablePort outputs;
        VELTO_TRY(root.GetOutputs(outputs));
        VELTO_TRY(ContextPath(path_));
        VELTO_TRY(SetContextType());
        VELTO_TRY(inputs.FindPort(port::kContextLocal, local_));
        if (!local_.IsEmpty())
        {
            VELTO_TRY(Prepare());
            VELTO_TRY(context_.Connect(local_, wire_mode::kDefaultContext));
        }
        VELTO_TRY(context_.SetValue(port_attribute::kContextMember, path_));
        VELTO_TRY(root.Commit(0));
        return WireChildren(inputs);
    }

private:
    Result SetContextType()
    {
        const DataType* type = nullptr;
        VELTO_TRY(GetDataType<ShadingContext>(type));
        return context_.SetValue(port_attribute::kFixedType, Ref<const DataType>::Share(type));
    }

    Result Prepare()
    {
        if (isPrepared_)
            return {};
        VELTO_TRY(SetContextType());
        VELTO_TRY(context_.SetValue(port_attribute::kContextMemberDefinitionPrefix, path_));
        isPrepared_ = true;
        return {};
    }

    // Groups are descended into, down to the leaves.
    Result WireChildren(const MutablePort& parent)
    {
        return parent.GetChildren([this](const MutablePort& child) -> Result {
            if (child == context_ || child == local_)
                return {};
            Id name;
            VELTO_TRY(child.GetName(name));
            bool isLeftAlone = false;
            if (!name.View().starts_with('.'))
                VELTO_TRY(IsLeftAlone(child, isLeftAlone));
            if (isLeftAlone || name.View().starts_with('.'))
                return {};
            Data type;
            VELTO_TRY(child.GetValue(port_attribute::kFixedType, type));
            if (type.IsEmpty())
                return WireChildren(child);
            Data isResult;
            VELTO_TRY(child.GetValue(port_attribute::kFunctionResult, isResult));
            if (const Bool* const flag = isResult.As<Bool>(); flag && *flag)
                return {};
            VELTO_TRY(Prepare());
            return context_.Connect(child, wire_mode::kContext);
        });
    }

    MutablePort context_;
    MutablePort local_;
    NodePath path_;
    bool isPrepared_ = false;
};

} // namespace

Result SetupContext(const MutableRoot& root)
{
    return ContextWiring().Run(root);
}

} // namespace shadernode

static constexpr Id kDatabases[] = {"net.velto.shadernodes.module", "net.velto.patterns.module"};

// What the processors handed out, for the life of the module.
static BaseArray<ProcessedDescription> kept;

static Result ProcessAllDescriptions()
{
    for (const Id& database : kDatabases)
        VELTO_TRY(ProcessDescriptions(database, kept));
    return {};
}

static void FreeKept()
{
    FreeDescriptions(kept);
}

static StepRecord processDescriptions(thisUnit, "processdescriptions", &ProcessAllDescriptions, &FreeKept);

} // namespace velto

#include "forward.h"

#include "group.h"

namespace velto::host
{

Result MakeForwardGroup(const DataType* type, Ref<MicroNodeGroup>& group)
{
    const MicroNodeGroupInterface& groups = GroupService();
    constexpr UInt in = PortKey("in", true);
    constexpr UInt out = PortKey("out", false);
    Ref<MicroNodeGroup> made;
    VELTO_TRY(groups.Alloc(made.Receive()));
    VELTO_TRY(groups.SetId(made.Get(), Id::OverStatic(kForwardNode)));
    VELTO_TRY(groups.PrivateCreatePort(made.Get(), in, "in", port_flags::kInput, 0, type, -1));
    VELTO_TRY(groups.PrivateCreatePort(made.Get(), out, "out", port_flags::kOutput, 0, type, -1));
    MicroNode* const record = New<MicroNode>();
    if (!record)
        return OutOfMemory();
    record->destructor = &Delete<MicroNode>;
    record->portCount = 2;
    record->compute = [](Result* result, const MicroNode*, const Binding*) { ::new (result) Result(); };
    record->access = [](MicroNode*, AccessBuilder* builder) -> Result {
        VELTO_TRY(MicroNodeService().PrivateDescribePortAccess(builder, 0, in, 0));
        return MicroNodeService().PrivateDescribePortAccess(builder, 1, out, 1);
    };
    VELTO_TRY(groups.AddMicroNode(made.Get(), record));
    VELTO_TRY(
        CoreNodesLibService().SetOptimizer(made.Get(), [](const OptimizeRequest*, Optimization* answer) -> Result {
            answer->kind = Optimization::Kind::TakeInput;
            answer->input = 0;
            return {};
        }));
    VELTO_TRY(groups.PrivateFinalize(made.Get()));
    group = std::move(made);
    return {};
}

} // namespace velto::host

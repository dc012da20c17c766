#include "datatypes.h"

#include "host/registry/registry.h"
#include "host/system/guard.h"
#include "velto/corenodes.h"
#include "velto/descriptions.h"
#include "velto/graph.h"
#include "velto/imagepixelblend.h"
#include "velto/porttypes.h"
#include "velto/rendernoise.h"
#include "velto/texture.h"

#include <fmt/format.h>

#include <map>
#include <mutex>

namespace velto::host
{

namespace
{

struct HostDataType : DataType
{
};

Result MakeDataType(std::string_view name, const DataTypeOperations& operations, const DataType** type)
{
    Id id;
    VELTO_TRY(Id::Create(name, id));
    HostDataType* const made = NewObject<HostDataType>();
    if (!made)
        return OutOfMemory();
    made->id = std::move(id);
    made->operations = operations;
    *type = made;
    return {};
}

// Types that live as long as the process, by name.
class TypeTable
{
public:
    static TypeTable& Get()
    {
        static TypeTable table;
        return table;
    }

    Result Find(std::string_view name, const DataTypeOperations* operations, const DataType** type)
    {
        const std::lock_guard lock(mutex_);
        auto found = types_.find(name);
        if (found == types_.end())
        {
            if (!operations)
                return MakeError(error::kUnresolved, fmt::format("There is no data type {}.", name));
            const DataType* made = nullptr;
            VELTO_TRY(MakeDataType(name, *operations, &made));
            found = types_.emplace(name, Ref<const DataType>::Adopt(made)).first;
        }
        *type = Ref<const DataType>(found->second).Detach();
        return {};
    }

private:
    std::mutex mutex_;
    std::map<std::string, Ref<const DataType>, std::less<>> types_;
};

// The operations of a type that every host has, or null.
const DataTypeOperations* HostOperations(std::string_view name)
{
    struct Entry
    {
        const Id* id;
        DataTypeOperations operations;
    };
#define VELTO_HOST_TYPE(...)                                                                                           \
    {                                                                                                                  \
        &DataTypeTraits<__VA_ARGS__>::kId, MakeDataTypeOperations<__VA_ARGS__>()                                       \
    }
    static constexpr Entry entries[] = {VELTO_HOST_TYPE(Float), VELTO_HOST_TYPE(Int), VELTO_HOST_TYPE(Int32),
        VELTO_HOST_TYPE(UInt32), VELTO_HOST_TYPE(Bool), VELTO_HOST_TYPE(Id), VELTO_HOST_TYPE(InternedId),
        VELTO_HOST_TYPE(TimeValue), VELTO_HOST_TYPE(String), VELTO_HOST_TYPE(Url), VELTO_HOST_TYPE(DataDictionary),
        VELTO_HOST_TYPE(ShadingContext), VELTO_HOST_TYPE(RenderMode), VELTO_HOST_TYPE(SearchPathsType),
        VELTO_HOST_TYPE(UInt8), VELTO_HOST_TYPE(Data), VELTO_HOST_TYPE(Ref<const DataType>),
        VELTO_HOST_TYPE(BaseArray<Id>), VELTO_HOST_TYPE(CoreNodeFactory), VELTO_HOST_TYPE(DescriptionProcessor),
        VELTO_HOST_TYPE(NodePath), VELTO_HOST_TYPE(NodeSystem), VELTO_HOST_TYPE(DescriptionFinalizer),
        VELTO_HOST_TYPE(BuiltinNode), VELTO_HOST_TYPE(NodeSystemClass), VELTO_HOST_TYPE(BlendPixelHandlerRef),
        VELTO_HOST_TYPE(BlendClassRef), VELTO_HOST_TYPE(LayerSet), VELTO_HOST_TYPE(RenderNoiseClass),
        VELTO_HOST_TYPE(ThreadedTextureRef)};
#undef VELTO_HOST_TYPE
    for (const Entry& entry : entries)
    {
        if (entry.id->View() == name)
            return &entry.operations;
    }
    return nullptr;
}

const DataTypeOperations* ComposedOperations(std::string_view parametric, Int count)
{
    static constexpr DataTypeOperations color = MakeDataTypeOperations<Color>();
    static constexpr DataTypeOperations colorA = MakeDataTypeOperations<ColorA>();
    static constexpr DataTypeOperations vector2 = MakeDataTypeOperations<Vector2d>();
    static constexpr DataTypeOperations vector3 = MakeDataTypeOperations<Vector>();
    static constexpr DataTypeOperations vector4 = MakeDataTypeOperations<Vector4d>();
    // A function's value is the same to keep and to copy, whatever it yields.
    static constexpr DataTypeOperations function = MakeDataTypeOperations<ColorAFunction>();
    if (parametric == "net.velto.parametrictype.col")
        return count == 3 ? &color : count == 4 ? &colorA : nullptr;
    if (parametric == "net.velto.parametrictype.vec")
        return count == 2 ? &vector2 : count == 3 ? &vector3 : count == 4 ? &vector4 : nullptr;
    if (parametric == "net.velto.parametrictype.function")
        return &function;
    return nullptr;
}

Result GetDataTypeForData(const Id& id, const DataType** type)
{
    return Guarded([&]() -> Result {
        // A type that a module published under this name takes precedence over the host's own.
        if (const Data* const published = FindEntry(registry::kDataTypes.View(), id.View()))
        {
            *type = Ref<const DataType>(*static_cast<const Ref<const DataType>*>(published->Value())).Detach();
            return {};
        }
        return TypeTable::Get().Find(id.View(), HostOperations(id.View()), type);
    });
}

Result Compose(const Id& parametric, const DataType* argument, Int count, const DataType** type)
{
    return Guarded([&]() -> Result {
        VELTO_CHECK_ARGUMENT(argument);
        if (parametric == Id("net.velto.parametrictype.const"))
        {
            *type = Ref<const DataType>::Share(argument).Detach();
            return {};
        }
        const std::string name = count > 0 ? fmt::format("{}<{},{}>", parametric.View(), argument->id.View(), count)
                                           : fmt::format("{}<{}>", parametric.View(), argument->id.View());
        return TypeTable::Get().Find(name, ComposedOperations(parametric.View(), count), type);
    });
}

Result Create(const Id& id, const DataTypeOperations* operations, const DataType** type)
{
    return Guarded([&]() -> Result {
        VELTO_CHECK_ARGUMENT(operations && operations->construct && operations->size > 0);
        return MakeDataType(id.View(), *operations, type);
    });
}

} // namespace

std::span<const FunctionType> FunctionTypes()
{
    static const FunctionType types[] = {
        {TypeOf<ColorAFunction>(), TypeOf<ColorA>(), "ColorAFunction"},
        {TypeOf<ColorFunction>(), TypeOf<Color>(), "ColorFunction"},
        {TypeOf<FloatFunction>(), TypeOf<Float>(), "FloatFunction"},
        {TypeOf<Vector2dFunction>(), TypeOf<Vector2d>(), "Vector2dFunction"},
        {TypeOf<BoolFunction>(), TypeOf<Bool>(), "BoolFunction"},
        {TypeOf<InternedIdFunction>(), TypeOf<InternedId>(), "InternedIdFunction"},
    };
    return types;
}

const DataType* FunctionResultType(const DataType* type)
{
    for (const FunctionType& function : FunctionTypes())
    {
        if (function.type == type)
            return function.yields;
    }
    return nullptr;
}

const DataTypeLibInterface& DataTypeService()
{
    static constexpr DataTypeLibInterface service{
        .GetDataTypeForData = {&GetDataTypeForData},
        .Compose = {&Compose},
        .Create = {&Create},
    };
    return service;
}

} // namespace velto::host

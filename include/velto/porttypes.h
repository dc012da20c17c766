// The data types of the port types that every host knows.
#pragma once

#include "velto/function.h"
#include "velto/string.h"

VELTO_HOST_DATA_TYPE(velto::Float, "float64");
VELTO_HOST_DATA_TYPE(velto::Int, "int64");
VELTO_HOST_DATA_TYPE(velto::Int32, "int32");
VELTO_HOST_DATA_TYPE(velto::UInt32, "uint32");
VELTO_HOST_DATA_TYPE(velto::UInt8, "uint8");
VELTO_HOST_DATA_TYPE(velto::Bool, "bool");
VELTO_HOST_DATA_TYPE(velto::Id, "id");
VELTO_HOST_DATA_TYPE(velto::InternedId, "internedid");
VELTO_HOST_DATA_TYPE(velto::TimeValue, "net.velto.datatype.timevalue");
VELTO_HOST_DATA_TYPE(velto::String, "net.velto.interface.string");
VELTO_HOST_DATA_TYPE(velto::Url, "net.velto.interface.url");
VELTO_HOST_DATA_TYPE(velto::DataDictionary, "net.velto.interface.datadictionary");
VELTO_HOST_DATA_TYPE(velto::ShadingContext, "net.velto.render.datatype.shadingcontext");
VELTO_HOST_DATA_TYPE(velto::RenderMode, "net.velto.render.datatype.rendermode");
VELTO_HOST_DATA_TYPE(velto::SearchPathsType, "net.velto.render.datatype.searchpathstype");
VELTO_HOST_DATA_TYPE(velto::Data, "net.velto.datatype.data");
VELTO_HOST_DATA_TYPE(velto::Ref<const velto::DataType>, "net.velto.datatype.datatype");

VELTO_COMPOSED_DATA_TYPE(velto::ColorA, "net.velto.parametrictype.col", velto::Float, 4);
VELTO_COMPOSED_DATA_TYPE(velto::Color, "net.velto.parametrictype.col", velto::Float, 3);
VELTO_COMPOSED_DATA_TYPE(velto::Vector2d, "net.velto.parametrictype.vec", velto::Float, 2);
VELTO_COMPOSED_DATA_TYPE(velto::Vector, "net.velto.parametrictype.vec", velto::Float, 3);
VELTO_COMPOSED_DATA_TYPE(velto::Vector4d, "net.velto.parametrictype.vec", velto::Float, 4);

namespace velto
{

template <class T>
struct DataTypeTraits<FunctionOf<T>>
{
    static Result Get(const DataType** type)
    {
        return detail::ComposeDataType<T>("net.velto.parametrictype.function", 0, type);
    }
};

} // namespace velto

// Lists of names, as a node's construction arguments hold them.
VELTO_HOST_DATA_TYPE(velto::BaseArray<velto::Id>, "net.velto.datatype.idarray");

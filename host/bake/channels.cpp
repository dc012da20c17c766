#include "channels.h"

#include "host/registry/datatypes.h"
#include "velto/porttypes.h"

namespace velto::host
{

namespace
{

template <class T>
void AddComponents(const void* value, double* sums)
{
    const auto* const components = static_cast<const Float*>(value);
    for (std::size_t i = 0; i < sizeof(T) / sizeof(Float); ++i)
        sums[i] += components[i];
}

template <class T>
void AddNumber(const void* value, double* sums)
{
    sums[0] += static_cast<double>(*static_cast<const T*>(value));
}

} // namespace

const Channels* FindChannels(const DataType* type)
{
    static const Channels all[] = {
        {TypeOf<ColorA>(), 4, &AddComponents<ColorA>},
        {TypeOf<Color>(), 3, &AddComponents<Color>},
        {TypeOf<Vector>(), 3, &AddComponents<Vector>},
        {TypeOf<Vector4d>(), 4, &AddComponents<Vector4d>},
        {TypeOf<Vector2d>(), 3, &AddComponents<Vector2d>}, // the third channel stays 0
        {TypeOf<Float>(), 1, &AddNumber<Float>},
        {TypeOf<Int>(), 1, &AddNumber<Int>},
        {TypeOf<Int32>(), 1, &AddNumber<Int32>},
        {TypeOf<UInt32>(), 1, &AddNumber<UInt32>},
        {TypeOf<Bool>(), 1, &AddNumber<Bool>},
        {TypeOf<TimeValue>(), 1, &AddComponents<TimeValue>},
    };
    for (const Channels& channels : all)
    {
        if (channels.type == type)
            return &channels;
    }
    return nullptr;
}

} // namespace velto::host

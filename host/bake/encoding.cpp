#include "encoding.h"

#include "host/registry/datatypes.h"
#include "velto/porttypes.h"

namespace velto::host
{

PictureEncoding EncodingOf(const Graph& graph, std::size_t output, const PictureEncoding& asked)
{
    const OutputPlan& plan = graph.program->outputs[output];
    const auto stated = graph.document.encodings.find(plan.name);
    PictureEncoding encoding = stated == graph.document.encodings.end() ? PictureEncoding() : stated->second;
    if (asked.depth != PixelDepth::Default)
        encoding.depth = asked.depth;
    if (asked.colorSpace != PictureColorSpace::Default)
        encoding.colorSpace = asked.colorSpace;
    if (asked.content != PictureContent::Default)
        encoding.content = asked.content;
    if (encoding.content == PictureContent::Default)
    {
        const bool isColor = plan.type == TypeOf<ColorA>() || plan.type == TypeOf<Color>();
        encoding.content = isColor ? PictureContent::Color : PictureContent::Data;
    }
    return encoding;
}

} // namespace velto::host

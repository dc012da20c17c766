#include "message.h"

#include "host/system/output.h"

namespace velto
{

struct RenderMessages
{
};

} // namespace velto

namespace velto::host
{

RenderMessages* RenderMessageSink()
{
    static RenderMessages sink;
    return &sink;
}

const RenderMessageInterface& RenderMessageService()
{
    static constexpr RenderMessageInterface service{
        .AddMessage = {+[](RenderMessages* messages, const StringObject* text) -> Result
            {
                VELTO_CHECK_ARGUMENT(messages);
                UInt count = 0;
                const char* const bytes = Bound<StringInterface>().GetBytes(text, &count);
                WriteOutput(OutputChannel::Message, LogTarget::Warning, {bytes, count});
                return {};
            }},
    };
    return service;
}

} // namespace velto::host

#include "message.h"

#include "host/system/guard.h"
#include "host/system/output.h"

namespace velto::host
{

namespace
{

Result AddMessage(RenderMessages* messages, const StringObject* text)
{
    return Guarded([&]() -> Result {
        VELTO_CHECK_ARGUMENT(messages);
        UInt count = 0;
        const char* const bytes = Bound<StringInterface>().GetBytes(text, &count);
        const std::string line(bytes, count);
        {
            const std::lock_guard lock(messages->mutex);
            if (!messages->said.insert(line).second)
                return {};
        }
        WriteOutput(OutputChannel::Message, LogTarget::Warning, line);
        return {};
    });
}

} // namespace

const RenderMessageInterface& RenderMessageService()
{
    static constexpr RenderMessageInterface service{.AddMessage = {&AddMessage}};
    return service;
}

} // namespace velto::host

// Render messages: lines to the user, wherever the host sends its output.
#pragma once

#include "velto/message.h"

namespace velto::host
{

// What a context's `renderMessages` holds for nodes to be heard.
RenderMessages* RenderMessageSink();

const RenderMessageInterface& RenderMessageService();

} // namespace velto::host

// Render messages: lines to the user, wherever the host sends its output.
#pragma once

#include "velto/message.h"

#include <mutex>
#include <set>
#include <string>

namespace velto
{

// The messages of a graph's nodes so far. When many threads meet the same trouble, the first of them reports it once,
// even if that thread's output is otherwise dropped.
struct RenderMessages
{
    std::mutex mutex;
    std::set<std::string, std::less<>> said;
};

} // namespace velto

namespace velto::host
{

const RenderMessageInterface& RenderMessageService();

} // namespace velto::host

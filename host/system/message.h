// Render messages: lines to the user, wherever the host sends its output.
#pragma once

#include "velto/message.h"

#include <mutex>
#include <set>
#include <string>

namespace velto
{

// What was said so far by the nodes of a graph. Many threads meet the same trouble, and say so once; also those that
// otherwise are silent, since it may be they who meet it first.
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

// Messages of nodes to the user of a render.
#pragma once

#include "velto/string.h"

namespace velto
{

struct RenderMessages;

struct RenderMessageInterface
{
    static constexpr Id kId{"net.velto.render.interface.message"};
    static constexpr Id kFramework{"net.velto.render.framework"};

    // [any thread; sampling] Hands `text` (borrowed) to the user. Illegal argument when `messages` is null.
    VELTO_METHOD(AddMessage, Result(RenderMessages* messages, const StringObject* text));
};
VELTO_USED_BY_INCLUDERS("velto/message.h", RenderMessageInterface);

} // namespace velto

// Makes `new` fail on purpose, for what the host keeps in standard containers.
#pragma once

#include "velto/types.h"

namespace velto::test
{

// While one lives, the `n`-th `new` of this thread (from 0) throws, and those after it where `andAllAfter` is set.
class FailingNew
{
public:
    explicit FailingNew(Int n, bool andAllAfter = false);
    ~FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;

    // How often `new` was called so far.
    Int Requests() const;
};

} // namespace velto::test

// Steps that say when they run; the second fails.
#include "velto/node.h"

namespace velto::test
{

static Float Zero(In<"x", Float>)
{
    return 0.0;
}

VELTO_CORE_NODE("net.velto.test.beforestep", Zero);

template <FixedString Text>
void Say()
{
    Log(LogTarget::Diagnostic, Text.View());
}

static Result Succeed()
{
    Say<"first runs">();
    return {};
}

static Result Fail()
{
    Say<"second fails">();
    return MakeError(error::kIllegalState, "The second step does not work.");
}

static StepRecord first(thisUnit, "first", &Succeed, &Say<"first ends">);
static StepRecord second(thisUnit, "second", &Fail, &Say<"second ends">);
static StepRecord third(thisUnit, "third", &Succeed, &Say<"third ends">);

} // namespace velto::test

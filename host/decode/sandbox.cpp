#include "sandbox.h"

#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace velto::host
{

namespace
{

bool Limit(int resource, rlim_t most)
{
    rlimit limit = {};
    if (getrlimit(static_cast<__rlimit_resource>(resource), &limit) != 0)
        return false;
    limit.rlim_max = std::min(limit.rlim_max, most);
    limit.rlim_cur = std::min(limit.rlim_cur, limit.rlim_max);
    return setrlimit(static_cast<__rlimit_resource>(resource), &limit) == 0;
}

class Filter
{
public:
    Filter() : rules_(seccomp_init(SCMP_ACT_KILL_PROCESS)) {}
    ~Filter() { seccomp_release(rules_); }
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;

    template <class... Condition>
    void Allow(int call, Condition... conditions)
    {
        if (failure_ == 0)
            failure_ =
                rules_ ? seccomp_rule_add(rules_, SCMP_ACT_ALLOW, call, sizeof...(conditions), conditions...) : -ENOMEM;
    }

    bool Load()
    {
        if (failure_ == 0)
            failure_ = seccomp_load(rules_);
        errno = -failure_;
        return failure_ == 0;
    }

private:
    scmp_filter_ctx rules_;
    int failure_ = 0;
};

} // namespace

bool EnterSandbox(int file, int socket, const SandboxLimits& limits)
{
    const auto onFile = SCMP_A0(SCMP_CMP_EQ, static_cast<scmp_datum_t>(file), 0);
    const auto onSocket = SCMP_A0(SCMP_CMP_EQ, static_cast<scmp_datum_t>(socket), 0);
    const auto noCode = SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0);
    Filter filter;
    filter.Allow(SCMP_SYS(pread64), onFile);
    filter.Allow(SCMP_SYS(read), onSocket);
    filter.Allow(SCMP_SYS(write), onSocket);
    filter.Allow(SCMP_SYS(mmap), noCode);
    filter.Allow(SCMP_SYS(mprotect), noCode);
    for (const int call : {SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(madvise), SCMP_SYS(brk), SCMP_SYS(futex),
             SCMP_SYS(clock_gettime), SCMP_SYS(gettimeofday), SCMP_SYS(getrandom), SCMP_SYS(rt_sigreturn),
             SCMP_SYS(restart_syscall), SCMP_SYS(exit), SCMP_SYS(exit_group)})
        filter.Allow(call);
    return Limit(RLIMIT_AS, limits.memoryBytes) && Limit(RLIMIT_CPU, limits.cpuSeconds) && Limit(RLIMIT_CORE, 0) &&
           Limit(RLIMIT_FSIZE, 0) && Limit(RLIMIT_NOFILE, 0) && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           filter.Load();
}

} // namespace velto::host

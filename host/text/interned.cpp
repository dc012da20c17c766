#include "interned.h"

#include <mutex>
#include <string>
#include <unordered_set>

namespace velto::host
{

InternedId Intern(std::string_view text)
{
    if (text.empty())
        return {};
    static std::mutex mutex;
    static std::unordered_set<std::string> table;
    const std::lock_guard lock(mutex);
    const std::string& unique = *table.emplace(text).first;
    return InternedId(unique.c_str(), Id::OverStatic(unique).Word());
}

} // namespace velto::host

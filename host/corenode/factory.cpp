#include "factory.h"

#include "host/corenode/group.h"
#include "host/registry/dictionary.h"
#include "host/system/guard.h"

#include <list>
#include <mutex>

namespace velto::host
{

namespace
{

struct CachedGroup
{
    DataDictionary arguments;
    Ref<MicroNodeGroup> group;
};

struct HostFactory : FactoryObject
{
    DataDictionary attributes;
    GroupBuilder builder = nullptr;
    const void* context = nullptr;
    std::size_t cacheSize = 0;

    std::mutex mutex;
    std::list<CachedGroup> cache; // the one used last is first
};

Result PrivateCreateCached(
    DictionaryObject* attributes, GroupBuilder builder, const void* context, Int32 cacheSize, FactoryObject** factory)
{
    VELTO_CHECK_ARGUMENT(builder && cacheSize > 0);
    HostFactory* const made = NewObject<HostFactory>();
    if (!made)
        return OutOfMemory();
    made->attributes = DataDictionary::Share(attributes);
    made->builder = builder;
    made->context = context;
    made->cacheSize = static_cast<std::size_t>(cacheSize);
    *factory = made;
    return {};
}

} // namespace

Result CreateGroup(const CoreNodeFactory& factory, const DataDictionary& arguments, Ref<MicroNodeGroup>& group)
{
    return Guarded([&]() -> Result {
        auto& self = *static_cast<HostFactory*>(factory.Get());
        const std::lock_guard lock(self.mutex);
        for (auto cached = self.cache.begin(); cached != self.cache.end(); ++cached)
        {
            if (AreEqual(cached->arguments.Get(), arguments.Get()))
            {
                self.cache.splice(self.cache.begin(), self.cache, cached);
                group = cached->group;
                return {};
            }
        }
        Ref<MicroNodeGroup> made;
        LookUpNotes notes;
        VELTO_TRY(self.builder(self.context, arguments.Get(), made.Receive()));
        static_cast<HostGroup*>(made.Get())->arguments = notes.Take();
        self.cache.push_front({arguments, made});
        if (self.cache.size() > self.cacheSize)
            self.cache.pop_back();
        group = std::move(made);
        return {};
    });
}

const FactoryInterface& FactoryService()
{
    static constexpr FactoryInterface service{.PrivateCreateCached = {&PrivateCreateCached}};
    return service;
}

} // namespace velto::host

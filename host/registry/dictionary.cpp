#include "dictionary.h"

#include "host/system/guard.h"

#include <algorithm>

namespace velto::host
{

namespace
{

struct Entry
{
    DictionaryKey key;
    Data value;
};

struct HostDictionary : DictionaryObject
{
    std::vector<Entry> entries;
};

const std::vector<Entry>& Entries(const DictionaryObject* dictionary)
{
    static const std::vector<Entry> none;
    return dictionary ? static_cast<const HostDictionary*>(dictionary)->entries : none;
}

thread_local LookUpNotes* currentNotes = nullptr;

const Data* GetData(const DictionaryObject* dictionary, const DictionaryKey& key)
{
    LookUpNotes::Note(key.name);
    for (const Entry& entry : Entries(dictionary))
    {
        if (entry.key == key)
            return &entry.value;
    }
    return nullptr;
}

Result SetData(DictionaryObject* dictionary, const DictionaryKey& key, const Data& value)
{
    return Guarded([&]() -> Result {
        VELTO_CHECK_ARGUMENT(dictionary);
        Data copy;
        VELTO_TRY(copy.CopyFrom(value));
        auto& entries = static_cast<HostDictionary*>(dictionary)->entries;
        for (Entry& entry : entries)
        {
            if (entry.key == key)
            {
                entry.value = std::move(copy);
                return {};
            }
        }
        entries.push_back({key, std::move(copy)});
        return {};
    });
}

} // namespace

Int EntryCount(const DictionaryObject* dictionary)
{
    return static_cast<Int>(Entries(dictionary).size());
}

const DictionaryKey& EntryKey(const DictionaryObject* dictionary, Int i)
{
    return Entries(dictionary)[static_cast<std::size_t>(i)].key;
}

const Data& EntryData(const DictionaryObject* dictionary, Int i)
{
    return Entries(dictionary)[static_cast<std::size_t>(i)].value;
}

bool AreEqual(const DictionaryObject* a, const DictionaryObject* b)
{
    if (Entries(a).size() != Entries(b).size())
        return false;
    for (const Entry& entry : Entries(a))
    {
        const Data* const other = GetData(b, entry.key);
        if (!other || !(*other == entry.value))
            return false;
    }
    return true;
}

LookUpNotes::LookUpNotes() : outer_(std::exchange(currentNotes, this)) {}

LookUpNotes::~LookUpNotes()
{
    currentNotes = outer_;
}

void LookUpNotes::Note(const Id& name) noexcept
{
    if (!currentNotes || name.IsEmpty())
        return;
    auto& names = currentNotes->names_;
    try
    {
        if (std::find(names.begin(), names.end(), name.View()) == names.end())
            names.emplace_back(name.View());
    }
    catch (const std::bad_alloc&)
    {
        currentNotes->isComplete_ = false;
    }
}

std::vector<std::string> LookUpNotes::Take()
{
    if (!isComplete_)
        throw std::bad_alloc();
    return std::move(names_);
}

const DataDictionaryInterface& DictionaryService()
{
    static constexpr DataDictionaryInterface service{
        .Alloc = {+[](DictionaryObject** dictionary) -> Result {
            *dictionary = NewObject<HostDictionary>();
            return *dictionary ? Result() : OutOfMemory();
        }},
        .Free = {+[](DictionaryObject* dictionary) { DataDictionary::Adopt(dictionary) = {}; }},
        .SetData = {&SetData},
        .GetData = {&GetData},
    };
    return service;
}

} // namespace velto::host

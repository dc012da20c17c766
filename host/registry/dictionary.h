// Dictionaries: values by name or number, compared as a whole.
#pragma once

#include "velto/data.h"

#include <string>
#include <vector>

namespace velto::host
{

const DataDictionaryInterface& DictionaryService();

// Whether both hold equal values under the same keys, in any order. Null is empty.
bool AreEqual(const DictionaryObject* a, const DictionaryObject* b);

// What is in a dictionary, in order of its first setting.
Int EntryCount(const DictionaryObject* dictionary);
const DictionaryKey& EntryKey(const DictionaryObject* dictionary, Int i);
const Data& EntryData(const DictionaryObject* dictionary, Int i);

// While this lives, records the names under which its thread looks values up, found or not.
class LookUpNotes
{
public:
    LookUpNotes();
    ~LookUpNotes();
    LookUpNotes(const LookUpNotes&) = delete;
    LookUpNotes& operator=(const LookUpNotes&) = delete;

    // Called when a module looks a value up; must not throw into the module.
    static void Note(const Id& name) noexcept;

    // Each name once, in order. Throws when there was no memory for one.
    std::vector<std::string> Take();

private:
    std::vector<std::string> names_;
    bool isComplete_ = true;
    LookUpNotes* outer_;
};

} // namespace velto::host

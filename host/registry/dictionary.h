// Dictionaries: values by name or number, compared as a whole.
#pragma once

#include "velto/data.h"

namespace velto::host
{

const DataDictionaryInterface& DictionaryService();

// Whether both hold equal values under the same keys, in any order. Null is empty.
bool AreEqual(const DictionaryObject* a, const DictionaryObject* b);

// What is in a dictionary, in order of its first setting.
Int EntryCount(const DictionaryObject* dictionary);
const DictionaryKey& EntryKey(const DictionaryObject* dictionary, Int i);
const Data& EntryData(const DictionaryObject* dictionary, Int i);

} // namespace velto::host

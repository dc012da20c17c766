// Where descriptions of nodes come from, and what turns them into nodes.
#pragma once

#include "velto/data.h"
#include "velto/registry.h"
#include "velto/url.h"

namespace velto
{

// A description that has been read: the dictionary of its head, and what its processor keeps beside it.
struct DescriptionObject : Object
{
};
using Description = Ref<DescriptionObject>;

struct DescriptionDefinitionDatabaseInterface
{
    static constexpr Id kId{"net.velto.interface.datadescriptiondefinitiondatabase"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // [one thread; loading] Makes a directory of descriptions known under `database`. It need not exist.
    VELTO_METHOD(RegisterDatabaseWithUrl, Result(const Id& database, const UrlObject* url));
    // [one thread; loading] The ids of all descriptions of `database` for a language; a database that nobody registered
    // is unresolved.
    VELTO_METHOD(GetRegisteredDescriptions, Result(const Id& database, const Id& language, BaseArray<Id>* ids));
};
VELTO_USED_BY_INCLUDERS("velto/descriptions.h", DescriptionDefinitionDatabaseInterface);

struct DescriptionDatabaseInterface
{
    static constexpr Id kId{"net.velto.interface.datadescriptiondatabase"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // [one thread; loading] Reads a description; the caller owns the reference. An error names what is wrong with it.
    VELTO_METHOD(
        LoadDescription, Result(const Id& database, const Id& language, const Id& id, DescriptionObject** description));
    // [any thread] The dictionary of the description's head; the caller owns the reference.
    VELTO_METHOD(GetDictionary, Result(const DescriptionObject* description, DictionaryObject** dictionary));
};
VELTO_USED_BY_INCLUDERS("velto/descriptions.h", DescriptionDatabaseInterface);

// What a processor hands out for a description: two words that its owner destroys.
struct ProcessedDescription
{
    void* value = nullptr;
    void (*destroy)(void* value) = nullptr;
};

struct DescriptionProcessorObject : Object
{
    // [one thread; loading] Processes a description, which is borrowed.
    Result (*process)(const DescriptionProcessorObject* self, const Id& id, const DescriptionObject* description,
        ProcessedDescription* result) = nullptr;
};
using DescriptionProcessor = Ref<const DescriptionProcessorObject>;

// Keys of a description's head.
namespace description
{
inline constexpr Id kClassification{"net.velto.description.data.info.classification"};
inline constexpr Id kProcessor{"net.velto.description.data.info.processor"};
inline constexpr Id kDataLanguage{"data"};
inline constexpr Id kNode{"node"};
} // namespace description

} // namespace velto

VELTO_HOST_DATA_TYPE(velto::DescriptionProcessor, "net.velto.datatype.descriptionprocessor");

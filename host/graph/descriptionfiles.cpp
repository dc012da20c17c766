#include "descriptionfiles.h"

#include "descriptionlists.h"

#include "host/system/guard.h"
#include "host/system/output.h"
#include "host/text/url.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

namespace velto::host
{

namespace
{

struct HostDescription : DescriptionObject
{
    std::shared_ptr<const DescriptionFile> file;
};

struct Databases
{
    std::map<std::string, std::filesystem::path, std::less<>> directories; // by database id
    std::map<std::filesystem::path, std::shared_ptr<const DescriptionFile>> files;
    std::set<std::filesystem::path> reported; // files and directories whose faults were reported
};

Databases& All()
{
    static Databases databases;
    return databases;
}

void Warn(const std::filesystem::path& file, std::string_view place, std::string_view text,
    std::string_view consequence = "the description is left out")
{
    WriteOutput(OutputChannel::Log, LogTarget::Warning,
        fmt::format(
            "velto: warning: {}: {}{}{}; {}", file.string(), place, place.empty() ? "" : ": ", text, consequence));
}

// The files of a directory in order of their names; none when there is no such directory.
std::vector<std::filesystem::path> DescriptionFiles(const std::filesystem::path& directory)
{
    std::vector<std::filesystem::path> files;
    std::error_code failure;
    for (std::filesystem::directory_iterator at(directory, failure), end; !failure && at != end; at.increment(failure))
    {
        if (at->path().extension() == ".json")
            files.push_back(at->path());
    }
    if (failure && failure != std::errc::no_such_file_or_directory && All().reported.insert(directory).second)
        Warn(directory, "", failure.message(), "descriptions in it are left out");
    std::sort(files.begin(), files.end());
    return files;
}

// Null and a warning when the file is no description.
std::shared_ptr<const DescriptionFile> ReadDescriptionFile(const std::filesystem::path& path)
{
    if (const auto known = All().files.find(path); known != All().files.end())
        return known->second;
    auto file = std::make_shared<DescriptionFile>();
    file->path = path;
    Diagnostics diagnostics;
    std::string text;
    const bool isRead = ReadFile(path.string(), JsonLimits().bytes, text, diagnostics) &&
                        ReadJson(text, file->json, diagnostics) && !diagnostics.HasFaults();
    if (isRead)
        IncludeLists(path.parent_path() / "lists", file->json, diagnostics);
    const Json* const id = file->json.Find("id");
    if (isRead && (!id || !id->IsString() || id->AsString().empty()))
        diagnostics.Fault("id", "is missing");
    for (const Diagnostic& diagnostic : diagnostics.All())
        Warn(path, diagnostic.place, diagnostic.text);
    std::shared_ptr<const DescriptionFile> result;
    if (!diagnostics.HasFaults())
        result = std::move(file);
    All().files[path] = result;
    return result;
}

Result GetRegisteredDescriptions(const Id& database, const Id& language, BaseArray<Id>* ids)
{
    return Guarded([&]() -> Result {
        const auto found = All().directories.find(database.View());
        if (found == All().directories.end())
            return MakeError(error::kUnresolved, "There is no such description database.");
        if (!std::filesystem::is_directory(found->second))
            return MakeError(error::kUnresolved, fmt::format("There is no directory {} with the descriptions of {}.",
                                                     found->second.string(), database.View()));
        if (!(language == description::kDataLanguage))
            return {};
        for (const std::filesystem::path& path : DescriptionFiles(found->second))
        {
            Id id;
            VELTO_TRY(Id::Create(path.stem().string(), id));
            VELTO_TRY(ids->Append(std::move(id)));
        }
        return {};
    });
}

Result LoadDescription(const Id& database, const Id&, const Id& id, DescriptionObject** description)
{
    return Guarded([&]() -> Result {
        const auto found = All().directories.find(database.View());
        if (found == All().directories.end())
            return MakeError(error::kUnresolved, "There is no such description database.");
        auto file = ReadDescriptionFile(found->second / fmt::format("{}.json", id.View()));
        if (!file)
            return MakeError(error::kIllegalArgument, fmt::format("The description {} is broken.", id.View()));
        HostDescription* const made = NewObject<HostDescription>();
        if (!made)
            return OutOfMemory();
        made->file = std::move(file);
        *description = made;
        return {};
    });
}

Result GetDictionary(const DescriptionObject* description, DictionaryObject** dictionary)
{
    return Guarded([&]() -> Result {
        const Json& json = static_cast<const HostDescription*>(description)->file->json;
        DataDictionary head;
        VELTO_TRY(Bound<DataDictionaryInterface>().Alloc(head.Receive()));
        const auto copy = [&](const char* name, const Id& key) -> Result {
            const Json* const member = json.Find(name);
            if (!member || !member->IsString())
                return {};
            Id id;
            VELTO_TRY(Id::Create(member->AsString(), id));
            return SetData(head, key, id);
        };
        VELTO_TRY(copy("classification", description::kClassification));
        VELTO_TRY(copy("processor", description::kProcessor));
        *dictionary = head.Detach();
        return {};
    });
}

} // namespace

const DescriptionFile& FileOf(const DescriptionObject& description)
{
    return *static_cast<const HostDescription&>(description).file;
}

void WarnOnce(const DescriptionFile& file, const Diagnostics& diagnostics)
{
    if (!All().reported.insert(file.path).second)
        return;
    for (const Diagnostic& diagnostic : diagnostics.All())
        Warn(file.path, diagnostic.place, diagnostic.text);
}

const DescriptionDefinitionDatabaseInterface& DescriptionDefinitionService()
{
    static constexpr DescriptionDefinitionDatabaseInterface service{
        .RegisterDatabaseWithUrl = {+[](const Id& database, const UrlObject* url) {
            return Guarded([&]() -> Result {
                VELTO_CHECK_ARGUMENT(url && !database.IsEmpty());
                const Url held = Url::Share(const_cast<UrlObject*>(url));
                All().directories[std::string(database.View())] = std::filesystem::path(Path(held));
                All().files.clear();
                All().reported.clear();
                return {};
            });
        }},
        .GetRegisteredDescriptions = {&GetRegisteredDescriptions},
    };
    return service;
}

const DescriptionDatabaseInterface& DescriptionService()
{
    static constexpr DescriptionDatabaseInterface service{
        .LoadDescription = {&LoadDescription},
        .GetDictionary = {&GetDictionary},
    };
    return service;
}

} // namespace velto::host

// A host of one file that shares no header with the module: what it takes to load the module, publish what it declares,
// build every node's group and run one. Whoever changes a record's layout or the order of the walk hears of it here.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <map>
#include <string>
#include <vector>

namespace
{

// --- The records, as the module lays them out. ---

struct Id
{
    const char* text;
    std::uint64_t word;
};

// Returned through memory, as it owns its error.
struct Result
{
    void* error = nullptr;
    ~Result() {}
};

struct Record
{
    std::int32_t kind;
    Id id;
    Record* owner;
    void* link;
    std::uint32_t flags;
    Record* next;
};

struct Dependency
{
    const char* header;
    std::uint8_t flags;
    Record* target;
    Id name;
    Dependency* next;
};

struct Unit : Record
{
    Record* module;
    Record* first;
    Record* last;
    Dependency* dependencies;
    std::int64_t sequence[3];
};

struct Provider
{
    std::uint64_t zero[2];
    Result (*provide)(void* receiver, Result (*receive)(void* receiver, const Id* descriptor));
    Provider* next;
};

struct LazyType
{
    void* resolved;
    LazyType* next;
    Result (*getter)(const void**);
};

struct Export;

struct Module : Record
{
    Unit* units;
    Provider* providers;
    LazyType* types;
    const Id* required;
    std::uint32_t requiredCount;
    Module* nextModule;
    Export* exported;
};

struct Export
{
    std::int64_t stamp;
    Module* modules;
    Id moduleId;
    void* moduleUrl;
    void* (*initializer)(const Id*, const Id*);
};

using Function = void (*)();

struct InterfaceBinding : Record
{
    Id interfaceId;
    Function* slots;
    const Function* shadow;
    const char* names;
    std::uint32_t count;
    void (*binder)(InterfaceBinding*, const Function*);
    Record* framework;
};

struct Declaration : Record
{
    void* value[2];
    Result (*create)(Declaration*, void*, Id*);
    Result (*publish)(Declaration*);
    Result (*withdraw)(Declaration*);
    Id registry;
    Id entry;
};

struct Step : Record
{
    Result (*initialize)();
    void (*free)();
};

struct MicroNode
{
    std::uint64_t word;
    std::int32_t kind;
    std::int32_t flags;
    void (*destructor)(MicroNode*);
    Result (*access)(MicroNode*, void* builder);
    std::uint64_t portCount;
    void (*compute)(void** out, const MicroNode*, const void* binding);
    std::uint64_t zero[2];
};

// --- What the host hands out. ---

struct Object
{
    std::int32_t references = 1;
    void (*destroy)(Object*) = [](Object*) {};
};

struct DataType : Object
{
    Id id{};
    std::uint64_t size = 8;
    std::uint64_t alignment = 8;
    void* functions[4] = {}; // all null: plain bytes
};

struct Port
{
    std::uint64_t key;
    std::string name;
    bool input;
    std::int64_t index = -1;
    MicroNode marks{};
};

struct Group : Object
{
    std::string id;
    std::vector<Port> ports;
    MicroNode* node = nullptr;
    bool isFinal = false;
};

using Builder = Result (*)(const void* context, void* arguments, Group** group);

struct Factory : Object
{
    Builder builder = nullptr;
    const void* context = nullptr;
};

int failures = 0;

void Expect(bool holds, const std::string& what)
{
    if (!holds)
        std::fprintf(stderr, "smallhost: %s\n", what.c_str());
    failures += !holds;
}

std::uint64_t Hash(const char* text)
{
    std::uint64_t h = 0;
    for (; *text; ++text)
        h = h * 31 + static_cast<unsigned char>(*text);
    return h;
}

std::uint64_t Word(const char* text)
{
    return *text ? (Hash(text) & 0x7FFFFFFFFFF) + (std::strlen(text) << 44) : 0;
}

std::map<std::string, std::vector<std::string>> registries;
std::vector<Factory*> factories;
std::vector<std::string> events;
std::vector<std::string> madeTypes;

// --- The services that loading and building call; everything else succeeds and does nothing. ---

Result Succeed()
{
    return {};
}

Result GetType(const Id& id, DataType** type)
{
    auto* const made = new DataType;
    made->size = std::strcmp(id.text, "id") == 0 ? 16 : 8;
    *type = made;
    return {};
}

Result Make(Object** object)
{
    *object = new Object;
    return {};
}

const std::map<std::string, Function>& Services()
{
    const auto as = [](auto* function) { return reinterpret_cast<Function>(function); };
    static const std::map<std::string, Function> services{
        {"system.Alloc", as(+[](std::uint64_t size, const void*) { return std::malloc(size); })},
        {"system.Realloc",
            as(+[](void* memory, std::uint64_t size, const void*) { return std::realloc(memory, size); })},
        {"system.Free", as(+[](void* memory) { std::free(memory); })},
        {"system.FreeWithDestructorI", as(+[](void* memory, void (*destructor)(void*)) {
             destructor(memory);
             std::free(memory);
         })},
        {"datatypelib.GetDataTypeForData", as(&GetType)},
        {"datatypelib.Compose",
            as(+[](const Id& id, const void*, std::int64_t, DataType** type) { return GetType(id, type); })},
        {"datatypelib.Create", as(+[](const Id& id, const void*, DataType** type) {
             madeTypes.push_back(id.text);
             return GetType(id, type);
         })},
        {"registry.InsertEntry", as(+[](const Id& registry, const Id& entry, const void*) -> Result {
             registries[registry.text].push_back(entry.text);
             return {};
         })},
        {"factoryfactory.PrivateCreateCached",
            as(+[](void*, Builder builder, const void* context, std::int32_t cache, Factory** factory) -> Result {
                Expect(cache == 100, "a factory keeps 100 groups");
                *factory = new Factory;
                (*factory)->builder = builder;
                (*factory)->context = context;
                factories.push_back(*factory);
                return {};
            })},
        {"datadictionary.Alloc", as(&Make)},
        {"datadictionary.GetData", as(+[](const void*, const void*) -> const void* { return nullptr; })},
        {"url.GetApplicationUrl", as(+[](std::int32_t kind, Object** url) {
             events.push_back("url " + std::to_string(kind));
             return Make(url);
         })},
        {"url.Append", as(+[](Object**, const char* component, std::uint64_t) -> Result {
             events.push_back(component);
             return {};
         })},
        {"datadescriptiondefinitiondatabase.RegisterDatabaseWithUrl", as(+[](const Id& id, const void*) -> Result {
             events.push_back(id.text);
             return {};
         })},
        {"configuration.ConfigurationRegister", as(+[](const char* const* entry) -> Result {
             events.push_back(*entry);
             return {};
         })},
        {"micronodegroup.Alloc", as(+[](Group** group) -> Result {
             *group = new Group;
             return {};
         })},
        {"micronodegroup.SetId", as(+[](Group* group, const Id& id) -> Result {
             group->id = id.text;
             return {};
         })},
        {"micronodegroup.PrivateCreatePort", as(+[](Group* group, std::uint64_t key, const char* name,
                                                     std::int32_t flags, std::int32_t zero, const void*,
                                                     std::int32_t minusOne) -> Result {
             const bool input = flags == 97;
             Expect((input || flags == 176) && zero == 0 && minusOne == -1, group->id + " declares a port as stated");
             const std::uint64_t bit = std::uint64_t(1) << 63;
             const std::uint64_t named = input ? ~Hash(name) | bit : Hash(name) & ~bit;
             Expect(key == named || name[0] == '.', group->id + " has the key of " + name);
             group->ports.push_back({key, name, input});
             return {};
         })},
        {"micronodegroup.PrivateGetMicroNode", as(+[](Group* group, std::uint64_t key, MicroNode** node) -> Result {
             for (Port& port : group->ports)
                 *node = port.key == key ? &port.marks : *node;
             return {};
         })},
        {"micronode.GetImplementation", as(+[](MicroNode* node, MicroNode** implementation) -> Result {
             *implementation = node;
             return {};
         })},
        {"micronodegroup.AddMicroNode", as(+[](Group* group, MicroNode* node) -> Result {
             group->node = node;
             return node->access(node, group);
         })},
        {"micronode.PrivateDescribePortAccess",
            as(+[](Group* group, std::int64_t index, std::uint64_t key, std::int32_t direction) -> Result {
                for (Port& port : group->ports)
                {
                    if (port.key == key && port.input == (direction == 0))
                        port.index = index;
                }
                return {};
            })},
        {"micronodegroup.PrivateFinalize", as(+[](Group* group) -> Result {
             group->isFinal = true;
             return {};
         })},
    };
    return services;
}

// --- The walk. ---

void Bind(InterfaceBinding& binding)
{
    const std::string interface(std::strrchr(binding.interfaceId.text, '.') + 1);
    std::vector<Function> functions;
    const char* name = binding.names;
    for (std::uint32_t i = 0; i < binding.count; ++i, name += std::strlen(name) + 1)
    {
        const std::string method(name, std::strchr(name, '@'));
        const auto found = Services().find(interface + "." + method);
        functions.push_back(found == Services().end() ? reinterpret_cast<Function>(&Succeed) : found->second);
    }
    binding.binder(&binding, functions.data());
}

std::vector<Record*> walked;

void Walk(Unit& unit)
{
    if (unit.link)
        return;
    unit.link = &unit;
    for (const Dependency* needed = unit.dependencies; needed; needed = needed->next)
    {
        Expect(needed->target && needed->flags == 0, std::string(unit.id.text) + " points at what it depends on");
        const bool isNamed = needed->name.text != nullptr;
        Expect(isNamed ? needed->target->kind == 10 && std::strcmp(needed->name.text + 1, needed->target->id.text) == 0
                       : std::strncmp(needed->header, "velto/", 6) == 0,
            std::string(unit.id.text) + " labels its dependencies");
        if (needed->target->owner && needed->target->owner != &unit)
            Walk(*static_cast<Unit*>(needed->target->owner));
    }
    for (Record* record = unit.first; record; record = record->next)
    {
        auto* const declaration = static_cast<Declaration*>(record);
        Result done;
        if (record->kind == 4 && declaration->publish)
            done = declaration->publish(declaration);
        else if (record->kind == 13)
            done = static_cast<Step*>(record)->initialize();
        Expect(!done.error, std::string(unit.id.text) + " is published");
        walked.push_back(record);
    }
}

void WalkModules(Export& exported)
{
    std::vector<std::string> functions;
    for (Module* module = exported.modules; module; module = module->nextModule)
    {
        Expect(module->kind == 8 && module->exported == &exported, "a module record");
        for (Record* unit = module->units; unit; unit = unit->next)
        {
            Expect(unit->kind == 7 && unit->id.word == Word(unit->id.text), std::string("the id of ") + unit->id.text);
            for (Record* record = static_cast<Unit*>(unit)->first; record; record = record->next)
            {
                if (record->kind == 3)
                    Bind(*static_cast<InterfaceBinding*>(record));
            }
        }
        for (const LazyType* type = module->types; type; type = type->next)
            Expect(!type->resolved && type->getter, "a data type that waits for its first use");
        for (Provider* provider = module->providers; provider; provider = provider->next)
            provider->provide(&functions, [](void* receiver, const Id* descriptor) -> Result {
                static_cast<std::vector<std::string>*>(receiver)->push_back(descriptor->text);
                return {};
            });
    }
    for (Module* module = exported.modules; module; module = module->nextModule)
    {
        for (Record* unit = module->units; unit; unit = unit->next)
            Walk(*static_cast<Unit*>(unit));
    }
    Expect(functions.size() == 3 && functions[0].ends_with("@fe0b344e033cea7a"), "three functions by name");
}

// --- What came of it. ---

// A contrast of -1 makes any colour mid-grey.
void RunContrast(const Group& group)
{
    double color[4] = {1.0, 0.0, 0.2, 1.0};
    double contrast = -1.0;
    double share = 1.0;
    bool takes = true;
    double result[4] = {};
    const std::map<std::string, void*> values{{"color", color}, {"contrast", &contrast}, {"maskblend", &share},
        {"maskred", &takes}, {"maskgreen", &takes}, {"maskblue", &takes}, {"maskalpha", &takes}, {"result", result}};
    struct Slot
    {
        void* value;
        std::uint32_t stride, flags;
    };
    std::vector<Slot> frame(group.ports.size());
    std::vector<std::uint32_t> offsets(group.ports.size());
    for (const Port& port : group.ports)
    {
        frame[static_cast<std::size_t>(port.index)] = {values.at(port.name), 0, 0};
        offsets[static_cast<std::size_t>(port.index)] = static_cast<std::uint32_t>(port.index * sizeof(Slot));
    }
    const void* const binding[] = {frame.data(), offsets.data()};
    void* error = &color;
    group.node->compute(&error, group.node, binding);
    Expect(!error && result[0] == 0.5 && result[1] == 0.5 && result[2] == 0.5 && result[3] == 1.0, "contrast computes");
}

void BuildGroups()
{
    for (const Factory* factory : factories)
    {
        Group* group = nullptr;
        const Result built = factory->builder(factory->context, nullptr, &group);
        Expect(!built.error && group && group->isFinal && !group->ports.empty(), "a group is built");
        for (const Port& port : group->ports)
        {
            const std::int32_t mark = port.marks.flags;
            Expect(mark == 0 || mark == 8 || mark == 40, group->id + "." + port.name + " is marked");
            Expect(port.index >= 0 || port.name[0] == '.', group->id + "." + port.name + " has an access index");
        }
        if (group->id.ends_with(".effect.contrast"))
            RunContrast(*group);
        group->node->destructor(group->node);
    }
}

} // namespace

int main(int, char** arguments)
{
    void* const library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    auto* const exported = library ? static_cast<Export*>(dlsym(library, "g_velto")) : nullptr;
    if (!exported)
    {
        std::fprintf(stderr, "smallhost: %s\n", dlerror());
        return 1;
    }
    Expect(exported->stamp == 21014, "the stamp");
    exported->moduleId = {"shadernodes", Word("shadernodes")};
    exported->initializer = [](const Id*, const Id*) -> void* { return nullptr; };
    WalkModules(*exported);
    const std::size_t nodes = registries["net.velto.corenode.registry.corenodes"].size();
    Expect(nodes > 0 && nodes == factories.size(), "a factory for each core node");
    Expect(!registries["net.velto.registry.datatypes"].empty(), "data types of its own");
    for (const std::string& type : registries["net.velto.registry.datatypes"])
        Expect(std::find(madeTypes.begin(), madeTypes.end(), type) != madeTypes.end(), type + " is the module's own");
    Expect(registries["net.velto.node.registry.descriptionfinalizers"].size() == 2, "2 finalizers");
    Expect(registries["net.velto.node.registry.builtinnodes"].size() == 1, "1 built-in node");
    // The module's record depends on the label of the databases.
    const std::vector<std::string> expected{"url 4", "modules", "shadernodes.module", "net.velto.shadernodes.module",
        "net.velto.patterns.module", "g_enableDebugBreak", "g_enableParallelFor"};
    Expect(events == expected, "databases are registered first, then switches");
    BuildGroups();
    for (auto record = walked.rbegin(); record != walked.rend(); ++record)
    {
        if (auto* const declaration = static_cast<Declaration*>(*record); (*record)->kind == 4 && declaration->withdraw)
            declaration->withdraw(declaration);
        if ((*record)->kind == 13)
            static_cast<Step*>(*record)->free();
    }
    exported->moduleId = {};
    dlclose(library);
    return failures == 0 ? 0 : 1;
}

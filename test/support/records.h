// A module's records, one of each kind that a host follows, in memory of the test's own.
#pragma once

#include "velto/unit.h"

namespace velto::test
{

struct Records
{
    static Result Succeed() { return {}; }
    static void Nothing() {}
    static Result Getter(const DataType**) { return {}; }
    static Result Provide(void*, Result (*)(void*, const FunctionDescriptor*)) { return {}; }
    static Result Create(DeclarationRecord*, Data*, Id*) { return {}; }
    static void Bind(InterfaceBindingRecord*, void (*const*)()) {}

    static constexpr Id kRequired[] = {"net.velto.core.framework", "net.velto.corenodes.framework"};

    ModuleExport exported;
    ModuleRecord module;
    TranslationUnitRecord first;
    TranslationUnitRecord second;
    DependencyRecord byRecord;
    DependencyRecord byName;
    InterfaceBindingRecord binding;
    DeclarationRecord published;
    DeclarationRecord importing;
    LabelRecord label;
    StepRecord step;
    ReflectionProvider provider;
    DataTypeRecord type;
    DataTypeRecord otherType;
    InternedId interned;
    void (*slots[2])() = {&Nothing, &Nothing};
    char methods[24] = "One@0\0Two@1";

    Records() : label(first, "label"), step(second, "step", &Succeed, &Nothing)
    {
        module.ConstructModule("net.velto.test.records", 0, kRequired, 2, exported);
        first.Construct(RecordKind::TranslationUnit, "first", &module, 0);
        second.Construct(RecordKind::TranslationUnit, "second", &module, 0);
        module.Add(first);
        module.Add(second);
        byName = {nullptr, 0, &label, ".label", nullptr};
        byRecord = {"velto/system.h", 0, &binding, {}, nullptr};
        second.Add(byName);
        second.Add(byRecord);
        binding.Construct(RecordKind::InterfaceBinding, "net.velto.test.interface", &first, 0);
        binding.interfaceId = binding.id;
        binding.slots = slots;
        binding.shadow = slots;
        binding.methodNames = methods;
        binding.methodCount = 2;
        binding.binder = &Bind;
        first.Add(binding);
        published.ConstructPublished(second, "published", 0, "net.velto.test.registry", &Create);
        importing.Construct(RecordKind::Declaration, "importing", &second, 0);
        importing.registry = registry::kInternedIds;
        importing.imported = &interned;
        second.Add(importing);
        provider.provide = &Provide;
        module.providers = &provider;
        type = {nullptr, &otherType, &Getter};
        otherType.getter = &Getter;
        module.dataTypes = &type;
    }
};

} // namespace velto::test

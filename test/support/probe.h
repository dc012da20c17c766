// Graphs of the probe's nodes (see modules/probe.cpp), stated by their nodes and outputs.
#pragma once

#include "eval.h"

#include "host/loader/module.h"

#include <fmt/format.h>

#include <paths.h>

namespace velto::test
{

// The probe, loaded for the whole process.
inline std::shared_ptr<host::Module> TheProbe()
{
    static const std::shared_ptr<host::Module> module = [] {
        TheModule();
        std::shared_ptr<host::Module> loaded;
        const Result result = host::Module::Load(VELTO_TEST_MODULES "/probe.module", loaded);
        EXPECT_TRUE(result.IsOk()) << result.Message();
        return loaded;
    }();
    return module;
}

// Evaluates nodes, written `"name": {"type": "sum", ...}` with the probe's short names, and outputs.
inline host::Json EvalProbe(std::string_view nodes, std::string_view outputs, std::string_view samples = "[{}]")
{
    TheProbe();
    std::string text = fmt::format(R"({{"version": 1, "nodes": {{{}}}, "outputs": {{{}}}}})", nodes, outputs);
    constexpr std::string_view type = R"("type": ")";
    for (auto at = text.find(type); at != text.npos; at = text.find(type, at + 1))
        text.insert(at + type.size(), "net.velto.test.");
    return EvalJson(text, samples);
}

} // namespace velto::test

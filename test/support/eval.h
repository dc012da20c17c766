// Evaluates graph documents through the loaded module, as `velto eval` does.
#pragma once

#include "host/bake/samples.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

namespace velto::test
{

// The module of this build; loaded on first use, for the whole process.
std::shared_ptr<host::Module> TheModule();

// Reads and compiles a document; a fault in it fails the test.
bool Load(std::string_view document, host::Graph& graph, const host::GraphOptions& options = {});

// What `velto eval --counts` prints, as a value: `{"results": [...]}`.
host::Json EvalJson(std::string_view document, std::string_view samples = "[{}]", host::GraphOptions options = {});

// The entry of sample `i` in what `EvalJson` gives.
const host::Json& Entry(const host::Json& results, std::size_t i = 0);

// An output of sample `i`, as JSON on one line; the error's kind when it failed.
std::string Output(const host::Json& results, std::string_view name, std::size_t i = 0);

// How often a node's compute function ran in sample `i`.
Int Evaluations(const host::Json& results, std::string_view node, std::size_t i = 0);

// The messages of all faults of a document, a line each: `PLACE: TEXT`.
std::string Faults(std::string_view document);

// Parses JSON that a test states.
host::Json Parse(std::string_view text);

// Equal values: numbers within `tolerance` of each other (relative above 1), NaN equal to NaN.
::testing::AssertionResult AreEqual(const host::Json& expected, const host::Json& actual, double tolerance = 0.0);

} // namespace velto::test

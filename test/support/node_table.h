// A table of rows for one node, by its core id or as users name it: inputs, and what comes out.
#pragma once

#include "eval.h"

#include <vector>

namespace velto::test
{

struct NodeRow
{
    std::string name;          // the behaviour
    std::string inputs;        // as in a graph document
    std::string expected;      // of `result`; or an object: of outputs by name, or {"error": KIND} where it fails
    std::string sample = "{}"; // as in `velto eval`
    double tolerance = 0.0;
};

// Evaluates one row; failures name it.
void CheckRow(const std::string& type, const NodeRow& row);

} // namespace velto::test

#define NODE_TABLE(suite, type, ...)                                                                                   \
    TEST(suite, Rows)                                                                                                  \
    {                                                                                                                  \
        for (const ::velto::test::NodeRow& row : std::vector<::velto::test::NodeRow> __VA_ARGS__)                      \
            ::velto::test::CheckRow(type, row);                                                                        \
    }                                                                                                                  \
    static_assert(true, "takes the semicolon")

// A table of rows for one core node: inputs, and what comes out.
#pragma once

#include "eval.h"

#include <vector>

namespace velto::test
{

struct NodeRow
{
    std::string name;          // the behaviour
    std::string inputs;        // as in a graph document
    std::string expected;      // outputs by name; those named are compared. {"error": KIND}: the sample fails.
    std::string sample = "{}"; // as in `velto eval`
    double tolerance = 0.0;
    std::string arguments = "{}"; // construction arguments
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

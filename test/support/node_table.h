// A table of rows for one core node: inputs, and what comes out.
#pragma once

#include "eval.h"

#include <ostream>
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

inline void PrintTo(const NodeRow& row, std::ostream* out)
{
    *out << row.name;
}

// Evaluates one row; failures name it.
void CheckRow(const std::string& type, const NodeRow& row);

} // namespace velto::test

#define NODE_TABLE(suite, type, ...)                                                                                   \
    class suite : public ::testing::TestWithParam<::velto::test::NodeRow>                                              \
    {                                                                                                                  \
    };                                                                                                                 \
    TEST_P(suite, Row)                                                                                                 \
    {                                                                                                                  \
        ::velto::test::CheckRow(type, GetParam());                                                                     \
    }                                                                                                                  \
    INSTANTIATE_TEST_SUITE_P(Table, suite, ::testing::ValuesIn(std::vector<::velto::test::NodeRow> __VA_ARGS__),       \
        [](const ::testing::TestParamInfo<::velto::test::NodeRow>& info) {                                             \
            std::string name = std::to_string(info.index) + "_";                                                       \
            for (const char c : info.param.name)                                                                       \
                name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';                                         \
            return name;                                                                                               \
        })

#include "node_table.h"

#include <fmt/format.h>

namespace velto::test
{

using host::Json;

static std::shared_ptr<const host::NodeType> TypeOf(const std::string& name)
{
    const host::NodeCatalog catalog;
    for (const auto& described : catalog.Described())
    {
        if (described->name == name)
            return described;
    }
    return catalog.Core(name);
}

void CheckRow(const std::string& type, const NodeRow& row)
{
    SCOPED_TRACE(row.name);
    const bool isResult = row.expected[0] != '{';
    const Json expected = Parse(isResult ? fmt::format(R"({{"result": {}}})", row.expected) : row.expected);
    const Json* const error = expected.Find("error");
    std::string outputs;
    const std::shared_ptr<const host::NodeType> node = TypeOf(type);
    ASSERT_TRUE(node) << type;
    for (const host::NodePort& port : node->ports)
    {
        const bool isWanted = error ? port.mark == 0 : expected.Find(port.name) != nullptr;
        if (!port.input && isWanted)
            outputs += fmt::format("{}\"{}\": \"node.{}\"", outputs.empty() ? "" : ", ", port.name, port.name);
    }
    const std::string document = fmt::format(R"({{"version": 1, "nodes": {{"node": {{"type": "{}", "inputs": {}}}}},
            "outputs": {{{}}}}})",
        type, row.inputs, outputs);
    const Json results = EvalJson(document, "[" + row.sample + "]");
    const Json& entry = Entry(results);
    if (error)
    {
        const Json* const got = entry.Find("error");
        ASSERT_TRUE(got) << entry.Write();
        EXPECT_EQ(error->AsString(), got->Find("kind")->AsString());
        return;
    }
    const Json* const got = entry.Find("outputs");
    ASSERT_TRUE(got) << entry.Write();
    EXPECT_TRUE(AreEqual(expected, *got, row.tolerance));
}

} // namespace velto::test

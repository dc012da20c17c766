#include "node_table.h"

#include <fmt/format.h>

namespace velto::test
{

using host::Json;

void CheckRow(const std::string& type, const NodeRow& row)
{
    SCOPED_TRACE(row.name);
    const Json expected = Parse(row.expected);
    const Json* const error = expected.Find("error");
    std::string outputs;
    host::NodeCatalog catalog;
    const std::shared_ptr<const host::NodeType> node = catalog.Core(type);
    ASSERT_TRUE(node) << type;
    for (const host::NodePort& port : node->ports)
    {
        const bool isWanted = error ? port.mark == 0 : expected.Find(port.name) != nullptr;
        if (!port.input && isWanted)
            outputs += fmt::format("{}\"{}\": \"node.{}\"", outputs.empty() ? "" : ", ", port.name, port.name);
    }
    const std::string document =
        fmt::format(R"({{"version": 1, "nodes": {{"node": {{"type": "{}", "arguments": {}, "inputs": {}}}}},
            "outputs": {{{}}}}})",
            type, row.arguments, row.inputs, outputs);
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

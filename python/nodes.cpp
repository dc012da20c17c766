#include "graph.h"
#include "values.h"

#include "host/graph/catalog.h"

#include <fmt/format.h>

namespace velto::python
{

namespace
{

py::list Nodes()
{
    TheModules();
    py::list list;
    const host::NodeCatalog catalog;
    for (const auto& type : catalog.Described())
        list.append(FromJson(host::DescribeNode(*type)));
    return list;
}

} // namespace

void AddNodes(py::module_& module)
{
    module.def("nodes", &Nodes);
}

} // namespace velto::python

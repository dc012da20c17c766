// `velto._velto`: what the package's Python files build on. Users see those.
#include "graph.h"

PYBIND11_MODULE(_velto, module)
{
    module.doc() = "The host of velto, for the modules of this package.";
    module.attr("__version__") = VELTO_VERSION;
    module.def("flush", &velto::python::FlushLines);
    velto::python::AddGraph(module);
    velto::python::AddNodes(module);
    velto::python::AddPictures(module);
}

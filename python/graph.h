// A graph as Python holds it.
#pragma once

#include "session.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <array>
#include <map>
#include <mutex>
#include <optional>

namespace velto::python
{

// What a document is read with, as Python gives it.
struct LoadOptions
{
    std::string file; // the document's; empty: it has none
    py::dict settings;
    std::vector<std::string> presets;
    std::vector<std::string> searchPaths;
    std::vector<std::string> libraries;
    std::vector<std::string> outputs;
    int renderMode = 0;
    bool isForced = false; // however much work a sample is
};

struct BakeRequest
{
    int width = 0;
    int height = 0;
    std::optional<std::vector<std::string>> outputs;
    int supersample = 1;
    int threads = 0;
    std::optional<std::array<int, 4>> crop;
    double time = 0.0;
    double frameRate = 25.0;
    bool isSphere = false;
};

class PyGraph
{
public:
    // The bytes of a text, or a value that is a document.
    PyGraph(const py::object& document, const LoadOptions& options);

    // A list of (name, type, value, values or None).
    py::list Inputs();
    void ChangeInputs(const py::dict& values);

    // A list of (name, type, numbers, channels).
    py::list Outputs();

    py::dict Sample(const py::dict& fields, const std::optional<std::vector<std::string>>& outputs, int threads);
    py::dict Bake(const BakeRequest& request, const py::object& progress);

private:
    // What of the context is no field that varies: whether there is a uvw, its tile modes, and the filter.
    using Modes = std::array<std::uint8_t, 4>;

    void Load(const py::object& document, const LoadOptions& options);
    // Throws where a sample is more work, or the graph takes more memory, than is given unasked.
    void CheckDemands() const;
    // Computes what is outdated.
    void Update();
    host::Sampler& SamplerOf(const Modes& modes);
    std::vector<std::size_t> ChosenOutputs(
        const std::optional<std::vector<std::string>>& names, bool forPictures) const;

    friend class SampleCall;

    GraphLock lock_;
    std::string file_;
    bool isForced_ = false;
    host::Graph graph_;
    bool isOutdated_ = true; // the setup
    std::mutex samplersMutex_;
    std::map<Modes, std::unique_ptr<host::Sampler>> samplers_;
};

// Adds the classes and functions of their area to the module.
void AddGraph(py::module_& module);
void AddNodes(py::module_& module);
void AddPictures(py::module_& module);

} // namespace velto::python

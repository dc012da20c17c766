// Every published node, in the graph of its example: what the sweeps go over.
#pragma once

#include "eval.h"

namespace velto::test
{

struct Example
{
    std::string node; // its name in the document
    std::shared_ptr<const host::NodeType> type;
    host::Json document; // shows all outputs of the node, where they can be shown

    // The document with another value, or link, at an input of the node.
    host::Json With(std::string_view input, host::Json value) const;

    // What the document, or else the description, gives the input; null: a link, or nothing.
    host::Json Given(const host::NodePort& port) const;
};

// By the nodes' names.
const std::vector<Example>& Examples();

// With the folder of the examples to find pictures in.
host::GraphOptions ExampleOptions();

bool Load(const host::Json& document, host::Graph& graph);

// Runs the setup and makes an instance whose sample is a place on a sphere.
Result Start(host::Graph& graph, std::unique_ptr<host::Instance>& instance);

// All outputs, as an array.
host::Json OutputsOf(const host::Graph& graph, const host::Instance& instance);

// The outputs at places on a sphere, an array or the error's kind each.
host::Json Look(host::Graph& graph);

} // namespace velto::test

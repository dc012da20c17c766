// Materials: layers and surface inputs, and what of them arrives at the material's output.
#pragma once

#include "nodesystem.h"
#include "nodetype.h"

#include "velto/bsdf.h"

namespace velto::host
{

// The described node that makes a BSDF layer. It has no core node: a layer's parameters are channels of the material.
std::shared_ptr<const NodeType> LayerNodeType();

// Whether a type is the layer node's, and whether a port's type is a layer's.
bool IsLayerNode(const NodeType& type);
const DataType* LayerType();

// The type of the values that a name of the vocabulary takes; null for lists.
const DataType* TypeOfName(const bsdf::Name& name);

// The material's input of that name, or null.
const bsdf::Name* FindMaterialInput(std::string_view name);

// Builds the root of a material with all inputs of the vocabulary and so many layer and AOV entries, and has the module
// set it up.
Result BuildMaterialRoot(std::size_t layers, std::size_t aovs, NodeSystem& root);

// The names of the inputs that arrive at the material's output, in their order.
std::vector<std::string> ArrivingInputs(const HostNodeSystem& root);

} // namespace velto::host

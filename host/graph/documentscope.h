// What the steps of reading a document share: its nodes as far as they are known, and where faults go.
#pragma once

#include "catalog.h"
#include "graphdocument.h"

#include <unordered_map>

namespace velto::host
{

struct DocumentNode
{
    std::string name;
    const Json* inputs = nullptr; // null: none
    const NodeType* type = nullptr;
    DataDictionary arguments;
    std::vector<const NodeType*> built; // a described node's inner nodes as its arguments make them; empty: it has none
    std::size_t firstCore = 0;
    std::vector<std::size_t> links;                            // nodes that it reads, for cycles
    std::vector<std::pair<std::string, CoreInput>> parameters; // of a BSDF layer: what the document gives it
};

struct DocumentScope
{
    NodeCatalog& catalog;
    const std::vector<Setting>& settings;
    Diagnostics& diagnostics;
    GraphDocument& document;
    const GraphLimits& limits;

    std::vector<DocumentNode> nodes;
    std::vector<std::string> names; // of the nodes
    std::unordered_map<std::string, std::size_t> indexOf;
    std::size_t links = 0;
};

// Letters, digits and `_`, not starting with a digit.
bool IsName(std::string_view text);

std::string Join(const std::string& place, std::string_view name);
void CheckKeys(
    DocumentScope& scope, const Json& object, const std::string& place, const std::vector<std::string>& known);
bool HasFewElements(DocumentScope& scope, const Json& json, const std::string& place);

// The nodes' names and types. False when there is nothing more to read.
bool ReadNodes(DocumentScope& scope, const Json* nodes);

// One core node for every inner node of every type.
void MakeCoreNodes(DocumentScope& scope);

// Whether every setting has an input to go to.
void CheckSettings(DocumentScope& scope);

// The inputs that the document gives, then the defaults of the others.
void ReadInputs(DocumentScope& scope, DocumentNode& node);

// A link or a value for a port of a node; links are noted in the node.
bool ReadSource(DocumentScope& scope, DocumentNode& node, const NodePort& port, const Json& json,
    const std::string& place, CoreInput& input);

// Finds the output that `NODE.PORT` names; the node's name ends at the first dot.
bool FindOutput(DocumentScope& scope, const std::string& text, const std::string& place, const NodePort*& port,
    CorePort& link, std::size_t& index);

CoreInput Copy(const CoreInput& input);

// Makes an output of every channel that the document's material drives, and the material's root.
void ReadMaterial(DocumentScope& scope, const Json& json);

// Reports one circle, by names.
void ReportCycle(DocumentScope& scope);

} // namespace velto::host

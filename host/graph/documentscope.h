// What the steps of reading a document share: its nodes as far as they are known, and where faults go.
#pragma once

#include "catalog.h"
#include "graphdocument.h"

#include <set>
#include <unordered_map>

namespace velto::host
{

class DocumentLibrary;

struct DocumentNode
{
    std::string name;
    std::string typeName;         // as the document has it
    const Json* inputs = nullptr; // null: none
    const NodeType* type = nullptr;
    DataDictionary arguments;
    std::vector<const NodeType*> built; // a described node's inner nodes as its arguments make them; empty: it has none
    std::size_t firstCore = 0;
    std::vector<std::size_t> links;                            // nodes that it reads, for cycles
    std::vector<std::pair<std::string, CoreInput>> parameters; // of a BSDF layer: what the document gives it
};

struct DocumentParameter
{
    NodePort port; // as a node made of the document has it
    Data value;    // empty: nothing can be written for its type
    bool isUsed = false;
    std::string place; // of its value, where it has a default
};

struct DocumentScope
{
    NodeCatalog& catalog;
    DocumentLibrary& library;
    const DocumentOptions& options;
    Diagnostics& diagnostics;
    GraphDocument& document;

    std::vector<DocumentNode> nodes = {};
    std::vector<std::string> names = {}; // of the nodes
    std::unordered_map<std::string, std::size_t> indexOf = {};
    std::vector<DocumentParameter> parameters = {};
    std::vector<Ref<const DataType>> outputTypes = {}; // of the document's outputs
    // Inputs of core nodes that take functions, of those that have a link.
    std::set<std::pair<std::size_t, std::string>> functions = {};
    std::size_t nodeCount = 0; // with those in documents that it uses
    std::size_t links = 0;     // likewise
};

// Letters, digits and `_`, not starting with a digit; `extra` characters may stand inside.
bool IsName(std::string_view text, std::string_view extra = {});

std::string Join(const std::string& place, std::string_view name);

// Whether a member is a remark that nothing depends on.
bool IsComment(const std::string& name, const Json& json);

// Reports members that are none of those known, but for comments.
void CheckKeys(
    DocumentScope& scope, const Json& object, const std::string& place, const std::vector<std::string>& known);

// What tools keep of how something is shown: an object.
void CheckInterface(DocumentScope& scope, const Json& json, const std::string& place);

// Of an array or an object.
bool HasFewElements(DocumentScope& scope, const Json& json, const std::string& place);

// Reads all of a document but its material and its root.
void ReadContents(DocumentScope& scope, const Json& root);

// Warns of parameters that stand nowhere.
void WarnOfUnused(DocumentScope& scope);

// The parameters with their values: defaults, presets, settings.
void ReadParameters(DocumentScope& scope, const Json& root);

DocumentParameter* FindParameter(DocumentScope& scope, std::string_view name);

// A parameter's value, or later its link, for a port.
bool ReadParameterUse(
    DocumentScope& scope, const NodePort& port, const Json& json, const std::string& place, CoreInput& input);

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

// A value for a port; enumerations take last words, and warn of what they do not know.
bool ReadPortValue(DocumentScope& scope, const NodePort& port, const Json& json, const std::string& place, Data& value);

// Finds the output that `NODE.PORT` names; the node's name ends at the first dot.
bool FindOutput(DocumentScope& scope, const std::string& text, const std::string& place, const NodePort*& port,
    CorePort& link, std::size_t& index);

CoreInput Copy(const CoreInput& input);

// Makes an output of every channel that the document's material drives, and the material's root.
void ReadMaterial(DocumentScope& scope, const Json& json);

// Reports one circle, by names.
void ReportCycle(DocumentScope& scope);

} // namespace velto::host

// All node types that a document may use, by their names.
#pragma once

#include "diagnostics.h"
#include "nodetype.h"

namespace velto::host
{

// What a document builds a node from, beside its type.
struct NodeArguments
{
    DataDictionary values; // null: none
    std::string key;       // equal where the values are
    std::string place;     // in the document
};

class NodeCatalog
{
public:
    // What stands in the registries now.
    NodeCatalog();

    // The described nodes, in order of their registration.
    const std::vector<std::shared_ptr<const NodeType>>& Described() const { return described_; }

    // A type by core id, described id or the last word of a described id. Null and a fault when there is none, when the
    // word is not unique, or when a core node cannot be made with the arguments.
    const NodeType* Find(
        const std::string& name, const NodeArguments& arguments, const std::string& place, Diagnostics& diagnostics);

    // Whether a type may go by that name, a fault or not.
    bool Knows(const std::string& name) const;

    // A core node's type, by id only.
    const NodeType* FindCore(
        const std::string& id, const NodeArguments& arguments, const std::string& place, Diagnostics& diagnostics);

    // A core node as it is without construction arguments. Null when there is none of that id.
    std::shared_ptr<const NodeType> Core(const std::string& id) const;

    std::vector<std::string> Names() const;

private:
    Result MakeCore(
        const std::string& id, const DataDictionary& arguments, std::shared_ptr<const NodeType>& type) const;

    std::vector<std::shared_ptr<const NodeType>> described_;
    std::map<std::string, std::vector<const NodeType*>> byName_;
    std::size_t portsMade_ = 0; // of types with arguments
    // By id and arguments; what no longer is needed stays, the documents hold pointers.
    std::map<std::pair<std::string, std::string>, std::shared_ptr<const NodeType>> core_;
    std::map<std::string, const NodePort*> coreDescriptions_; // `core id` + `.port`
};

} // namespace velto::host

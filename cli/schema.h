// `velto schema`: what a document may hold, as JSON Schema.
#pragma once

#include "session.h"

namespace velto::cli
{

struct SchemaArguments
{
    ModuleOptions modules;
    std::vector<std::string> libraries;
};

int Schema(const SchemaArguments& arguments, const Streams& streams);

// The schema (draft 2020-12) of documents that use the nodes of a catalog, and `documents` by the names under which a
// library has them. It takes what a strict check takes, as far as it can be told without following links.
host::Json DocumentSchema(
    const host::NodeCatalog& catalog, const std::map<std::string, std::shared_ptr<const host::NodeType>>& documents);

} // namespace velto::cli

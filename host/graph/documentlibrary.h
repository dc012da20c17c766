// Documents that documents use as nodes: found, read once, and made node types.
#pragma once

#include "catalog.h"
#include "graphdocument.h"

#include <memory>

namespace velto::host
{

class DocumentLibrary
{
public:
    DocumentLibrary(std::shared_ptr<NodeCatalog> catalog, const DocumentPlaces& places, const GraphLimits& limits);
    ~DocumentLibrary();
    DocumentLibrary(const DocumentLibrary&) = delete;
    DocumentLibrary& operator=(const DocumentLibrary&) = delete;

    // The file that a type names: a name that ends in `.json`, beside the document that is being read or on the search
    // paths, or one in a library. Empty: there is none.
    std::string FindFile(const std::string& type) const;

    // The type that a document makes; the one that `takesContext` has the contexts of its nodes as inputs. Null and
    // faults, in that file or at `place`, when it makes none.
    const NodeType* Find(
        const std::string& file, bool takesContext, const std::string& place, Diagnostics& diagnostics);

    // All that were read.
    std::vector<std::string> Files() const;

    NodeCatalog& Catalog() { return *catalog_; }

private:
    struct Entry
    {
        bool isOpen = false;
        std::shared_ptr<const NodeType> types[2]; // without and with contexts; null: it is at fault
    };

    std::shared_ptr<NodeCatalog> catalog_;
    DocumentPlaces places_;
    GraphLimits limits_;
    std::map<std::string, Entry> entries_; // by canonical path
    std::vector<std::string> open_;        // the files that are being read, from the outermost inward
};

} // namespace velto::host

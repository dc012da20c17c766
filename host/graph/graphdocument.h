// A document as a graph of core nodes, and what reading one takes beside its text.
#pragma once

#include "nodesystem.h"

#include "host/corenode/coregraph.h"
#include "host/picture/layout.h"

namespace velto::host
{

// A value given from outside in the place of one in the document: `NODE.PORT=VALUE`.
struct Setting
{
    std::string node; // empty: the port is a parameter of the document
    std::string port;
    Json value;
};

// Where the documents are that a document uses as nodes.
struct DocumentPlaces
{
    std::string file;                     // the document's own; empty: it has none
    std::vector<std::string> searchPaths; // directories, in order
    std::vector<std::string> libraries;   // directories of documents that go by their names
};

struct GraphLimits
{
    std::size_t nodes = 100'000;
    std::size_t links = 1'000'000;
    std::size_t elements = 10'000; // of one input
    std::size_t depth = 64;        // of documents in documents
};

struct DocumentOptions
{
    std::vector<std::string> presets; // in order
    std::vector<Setting> settings;    // after the presets
    DocumentPlaces places;
    bool warnsOutsideLimits = false; // of values outside the limits that descriptions state for people
    GraphLimits limits;
};

struct GraphDocument
{
    CoreGraph graph;
    std::vector<std::string> nodeNames;               // of the document, in its order
    std::vector<std::string> nodeTypes;               // of the same, as the document names them
    NodeSystem root;                                  // of the whole: its material, or its outputs
    std::map<std::string, PictureEncoding> encodings; // by output; those that the document states
    std::vector<std::string> files;                   // that were read for it, the documents that it uses
    std::shared_ptr<const void> types;                // keeps what the graph says of its inputs
};

} // namespace velto::host

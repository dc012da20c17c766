// What the page of the editor asks over HTTP, on the loopback interface alone.
#pragma once

#include "documentfile.h"
#include "evaluator.h"

#include <atomic>
#include <filesystem>
#include <memory>

namespace velto::editor
{

struct ServerOptions
{
    int port = 0; // 0: any that is free
    bool isView = false;
    std::string version;
    std::filesystem::path page;                        // the folder with index.html
    std::vector<std::filesystem::path> pictureFolders; // the document's, then the search paths
    std::string nodes;                                 // the catalogue, as JSON
};

class Server
{
public:
    Server(ServerOptions options, DocumentFile& document, Evaluator& evaluator);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Takes the port. False and the reason when it cannot be had.
    bool Listen(std::string& error);

    // What the browser is to open; who does not know it gets nothing.
    const std::string& Address() const { return address_; }

    // Answers until the process ends.
    void Run();

private:
    class Routes;

    std::unique_ptr<Routes> routes_;
    std::string address_;
};

} // namespace velto::editor

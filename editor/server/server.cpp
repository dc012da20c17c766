#include "server.h"

#include <fmt/format.h>

#include <sys/random.h>

#include <httplib.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <map>

namespace velto::editor
{

namespace
{

using host::Json;

constexpr std::size_t kMostBytes = (std::size_t{64} << 20) + (1 << 20); // a document and what is around it
constexpr double kLongestWait = 25.0;                                   // seconds
constexpr int kMostSide = 32'768;
constexpr int kMostPixels = 4096 * 4096; // of an answer
constexpr std::size_t kThreads = 24;     // each page that waits has one, and each client that is slow
constexpr time_t kReadSeconds = 3;       // for the next bytes of a request
constexpr time_t kIdleSeconds = 2;       // of a connection

constexpr const char* kJson = "application/json";

// 128 bits that nobody can guess.
std::string RandomToken()
{
    std::array<unsigned char, 16> bytes;
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return {};
    std::string token;
    for (const unsigned char byte : bytes)
        token += fmt::format("{:02x}", byte);
    return token;
}

// Takes as long whatever differs.
bool IsSame(std::string_view left, std::string_view right)
{
    if (left.size() != right.size())
        return false;
    unsigned difference = 0;
    for (std::size_t i = 0; i < left.size(); ++i)
        difference |= static_cast<unsigned char>(left[i]) ^ static_cast<unsigned char>(right[i]);
    return difference == 0;
}

const char* TypeOfFile(const std::filesystem::path& file)
{
    static const std::map<std::string, const char*> kTypes = {{".html", "text/html; charset=utf-8"},
        {".js", "text/javascript"}, {".css", "text/css"}, {".svg", "image/svg+xml"}, {".png", "image/png"},
        {".json", kJson}, {".woff2", "font/woff2"}, {".txt", "text/plain; charset=utf-8"}};
    const auto type = kTypes.find(file.extension().string());
    return type == kTypes.end() ? "application/octet-stream" : type->second;
}

bool IsPictureFile(const std::filesystem::path& file)
{
    static const std::array<const char*, 16> kSuffixes = {".png", ".jpg", ".jpeg", ".tif", ".tiff", ".exr", ".hdr",
        ".tga", ".gif", ".mp4", ".mov", ".avi", ".webm", ".mkv", ".mpg", ".json"};
    std::string suffix = file.extension().string();
    std::transform(suffix.begin(), suffix.end(), suffix.begin(), [](unsigned char c) { return std::tolower(c); });
    return std::find(kSuffixes.begin(), kSuffixes.end(), suffix) != kSuffixes.end();
}

Json DescribeDiagnostics(const host::Diagnostics& diagnostics)
{
    Json list = Json::Array();
    for (const host::Diagnostic& diagnostic : diagnostics.All())
    {
        Json json = Json::Object();
        json.Add("place", diagnostic.place);
        json.Add("text", diagnostic.text);
        json.Add("severity", diagnostic.isWarning ? "warning" : "error");
        if (!diagnostic.file.empty())
            json.Add("file", diagnostic.file);
        list.Append(std::move(json));
    }
    return list;
}

void Answer(httplib::Response& response, int status, const Json& json)
{
    response.status = status;
    response.set_content(json.Write(), kJson);
}

void AnswerError(httplib::Response& response, int status, std::string_view text)
{
    Json json = Json::Object();
    json.Add("error", host::Printable(text));
    Answer(response, status, json);
}

void AnswerRefusal(httplib::Response& response, const Refusal& refusal)
{
    Json json = Json::Object();
    if (refusal.isSuperseded)
    {
        json.Add("superseded", true);
        return Answer(response, 409, json);
    }
    if (refusal.error.empty())
        json.Add("diagnostics", DescribeDiagnostics(refusal.diagnostics));
    else
    {
        json.Add("error", host::Printable(refusal.error));
        json.Add("node", refusal.node);
    }
    Answer(response, 422, json);
}

// The members of a request. What is missing or of another kind is a fault, told once.
class Body
{
public:
    explicit Body(const std::string& bytes)
    {
        host::Diagnostics diagnostics;
        host::JsonLimits limits;
        limits.bytes = kMostBytes;
        limits.stringBytes = limits.bytes; // the document is one
        if (!host::ReadJson(bytes, json_, diagnostics, limits) || diagnostics.HasFaults())
            fault_ = diagnostics.All().empty() ? "no JSON" : diagnostics.All().front().text;
        else if (!json_.IsObject())
            fault_ = "expected an object";
    }

    std::string Text(const char* name, const char* otherwise = nullptr)
    {
        const Json* const value = json_.Find(name);
        if (value && value->IsString())
            return value->AsString();
        if (value || !otherwise)
            Fault(name, "a text");
        return otherwise ? otherwise : "";
    }

    double Number(const char* name, double least, double most, double otherwise)
    {
        const Json* const value = json_.Find(name);
        if (!value)
            return otherwise;
        const double number = value->IsNumber() ? value->AsNumber() : NAN;
        if (number >= least && number <= most)
            return number;
        Fault(name, fmt::format("a number from {} to {}", least, most));
        return otherwise;
    }

    int Integer(const char* name, int least, int most, int otherwise)
    {
        const double number = Number(name, least, most, otherwise);
        if (number != std::floor(number))
            Fault(name, "a whole number");
        return static_cast<int>(number);
    }

    bool Flag(const char* name)
    {
        const Json* const value = json_.Find(name);
        return value && value->IsBool() && value->AsBool();
    }

    void Fault(const char* name, std::string_view expected)
    {
        if (fault_.empty())
            fault_ = fmt::format("{}: expected {}", name, expected);
    }

    const std::string& FaultText() const { return fault_; }

private:
    Json json_;
    std::string fault_;
};

// What a picture and its values are asked for by.
PictureRequest ReadPicture(Body& body)
{
    PictureRequest request;
    request.text = body.Text("text");
    request.output = body.Text("output", "");
    request.lane = body.Text("lane", "");
    request.serial = static_cast<UInt>(body.Number("serial", 0, 1e15, 0));
    const int step = body.Integer("step", 1, 64, 1);
    const auto coarse = [step](int pixels) { return (pixels + step - 1) / step; };
    const int width = body.Integer("width", 1, kMostSide, 512);
    const int height = body.Integer("height", 1, kMostSide, 512);
    request.view.width = coarse(width);
    request.view.height = coarse(height);
    request.window.x = body.Integer("x", 0, width - 1, 0) / step;
    request.window.y = body.Integer("y", 0, height - 1, 0) / step;
    request.window.width = std::min(coarse(body.Integer("w", 1, width, width)), request.view.width - request.window.x);
    request.window.height =
        std::min(coarse(body.Integer("h", 1, height, height)), request.view.height - request.window.y);
    const std::string shape = body.Text("shape", "plane");
    if (shape != "plane" && shape != "sphere")
        body.Fault("shape", "plane or sphere");
    if (static_cast<double>(request.window.width) * request.window.height > kMostPixels)
        body.Fault("w", fmt::format("at most {} pixels in all", kMostPixels));
    request.view.shape = shape == "sphere" ? host::BakeShape::Sphere : host::BakeShape::Plane;
    request.frame = body.Number("frame", -1e9, 1e9, 0);
    request.framesPerSecond = body.Number("fps", 1e-6, 1e6, 25);
    return request;
}

} // namespace

class Server::Routes
{
public:
    Routes(ServerOptions options, DocumentFile& document, Evaluator& evaluator)
        : options_(std::move(options)), document_(document), evaluator_(evaluator), token_(RandomToken())
    {
        ReadPage();
        server_.set_payload_max_length(kMostBytes);
        server_.set_tcp_nodelay(true);
        server_.set_read_timeout(kReadSeconds);
        server_.set_keep_alive_timeout(kIdleSeconds);
        server_.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
        server_.set_default_headers({{"X-Content-Type-Options", "nosniff"}, {"Referrer-Policy", "no-referrer"},
            {"Cache-Control", "no-store"}, {"Cross-Origin-Resource-Policy", "same-origin"},
            {"Content-Security-Policy", "default-src 'self'; img-src 'self' data: blob:; style-src 'self' "
                                        "'unsafe-inline'; worker-src 'self' blob:; frame-ancestors 'none'"}});
        server_.set_exception_handler(
            [](const auto&, auto& response, auto) { AnswerError(response, 500, "out of memory, or worse"); });
        server_.set_pre_routing_handler([this](const auto& request, auto& response) {
            return Admit(request, response) ? httplib::Server::HandlerResponse::Unhandled
                                            : httplib::Server::HandlerResponse::Handled;
        });
        AddRoutes();
    }

    bool Listen(std::string& error, std::string& address)
    {
        if (token_.empty() || page_.empty())
        {
            error = token_.empty() ? "there are no random numbers for its address"
                                   : fmt::format("the page is missing: {}", options_.page.string());
            return false;
        }
        // Without SO_REUSEPORT, which would let another process of this user take requests.
        server_.set_socket_options([](auto socket) {
            const int yes = 1;
            ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        });
        port_ = options_.port;
        if (port_ == 0)
            port_ = server_.bind_to_any_port("127.0.0.1");
        else if (!server_.bind_to_port("127.0.0.1", port_))
            port_ = -1;
        if (port_ <= 0)
        {
            error = options_.port == 0 ? "no port is free" : fmt::format("port {} is taken", options_.port);
            return false;
        }
        address = fmt::format("http://127.0.0.1:{}/{}/", port_, token_);
        return true;
    }

    void Run() { server_.listen_after_bind(); }

private:
    // The page's files, all of them: nothing else can be asked for by a path.
    void ReadPage()
    {
        std::error_code failed;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(options_.page, failed))
        {
            if (!entry.is_regular_file(failed))
                continue;
            std::ifstream stream(entry.path(), std::ios::binary);
            page_[entry.path().lexically_relative(options_.page).generic_string()] = {
                {std::istreambuf_iterator<char>(stream), {}}, TypeOfFile(entry.path())};
        }
    }

    // Requests that were sent here by another site's page, or that do not know the token, learn nothing.
    bool Admit(const httplib::Request& request, httplib::Response& response) const
    {
        const std::string hosts[] = {fmt::format("127.0.0.1:{}", port_), fmt::format("localhost:{}", port_)};
        const auto isOurs = [&](std::string_view name) {
            return std::any_of(std::begin(hosts), std::end(hosts), [&](const auto& ours) { return ours == name; });
        };
        const std::string origin = request.get_header_value("Origin");
        const bool isFromHere =
            isOurs(request.get_header_value("Host")) && request.get_header_value_count("Host") == 1 &&
            (origin.empty() || (origin.starts_with("http://") && isOurs(std::string_view(origin).substr(7))));
        const std::string_view path = request.path;
        const std::size_t end = path.find('/', 1);
        if (isFromHere && end != std::string_view::npos && IsSame(path.substr(1, end - 1), token_))
            return true;
        AnswerError(response, isFromHere ? 404 : 403, "not here");
        return false;
    }

    void AddRoutes()
    {
        using Request = httplib::Request;
        using Response = httplib::Response;
        const std::string root = "/" + token_ + "/";
        server_.Get(root + "api/start", [this](const Request&, Response& response) { Start(response); });
        server_.Get(root + "api/nodes",
            [this](const Request&, Response& response) { response.set_content(options_.nodes, kJson); });
        server_.Get(root + "api/changes",
            [this](const Request& request, Response& response) { WaitForChange(request, response); });
        server_.Get(
            root + "api/files", [this](const Request& request, Response& response) { ListFiles(request, response); });
        const auto taking = [this](void (Routes::*handler)(Body&, Response&)) {
            return [this, handler](const Request& request, Response& response) {
                Body body(request.body);
                if (body.FaultText().empty())
                    (this->*handler)(body, response);
                if (!body.FaultText().empty())
                    AnswerError(response, 400, body.FaultText());
            };
        };
        server_.Post(root + "api/check", taking(&Routes::Check));
        server_.Post(root + "api/picture", taking(&Routes::MakePicture));
        server_.Post(root + "api/values", taking(&Routes::Evaluate));
        server_.Post(root + "api/cost", taking(&Routes::MeasureCost));
        server_.Put(root + "api/document", taking(&Routes::Save));
        server_.Get(root + "(.*)", [this](const Request& request, Response& response) {
            const std::string name = request.matches[1].str();
            const auto file = page_.find(name.empty() ? "index.html" : name);
            if (file == page_.end())
                return AnswerError(response, 404, "not here");
            response.set_content(file->second.bytes, file->second.type);
        });
    }

    void Start(httplib::Response& response)
    {
        const DocumentFile::State state = document_.Current();
        Json json = Json::Object();
        json.Add("name", std::filesystem::path(document_.Path()).filename().string());
        json.Add("path", document_.Path());
        json.Add("isNew", document_.IsNew());
        json.Add("view", options_.isView);
        json.Add("version", options_.version);
        json.Add("text", state.text);
        json.Add("revision", Json(state.revision));
        Json paths = Json::Array();
        for (const std::filesystem::path& folder : options_.pictureFolders)
            paths.Append(Json(folder.string()));
        json.Add("searchPaths", std::move(paths));
        Answer(response, 200, json);
    }

    static Json Describe(const DocumentFile::State& state)
    {
        Json json = Json::Object();
        json.Add("text", state.text);
        json.Add("revision", Json(state.revision));
        return json;
    }

    void WaitForChange(const httplib::Request& request, httplib::Response& response)
    {
        const std::string revision = request.get_param_value("revision");
        DocumentFile::State state;
        if (document_.WaitForChange(std::strtoull(revision.c_str(), nullptr, 10), kLongestWait, state))
            Answer(response, 200, Describe(state));
        else
            response.status = 204;
    }

    void Save(Body& body, httplib::Response& response)
    {
        const std::string text = body.Text("text");
        const auto revision = static_cast<UInt>(body.Number("revision", 0, 1e15, 0));
        if (options_.isView)
            body.Fault("text", "nothing: this is a view");
        if (!body.FaultText().empty())
            return;
        DocumentFile::State state;
        std::string error;
        switch (document_.Save(text, revision, body.Flag("force"), state, error))
        {
        case DocumentFile::Saved::Yes:
        {
            Json json = Json::Object();
            json.Add("revision", Json(state.revision));
            return Answer(response, 200, json);
        }
        case DocumentFile::Saved::Conflict:
            return Answer(response, 409, Describe(state));
        case DocumentFile::Saved::Failed:
            return AnswerError(response, 422, error);
        }
    }

    void Check(Body& body, httplib::Response& response)
    {
        const std::string text = body.Text("text");
        if (!body.FaultText().empty())
            return;
        Json outputs;
        const host::Diagnostics diagnostics = evaluator_.Check(text, outputs);
        Json json = Json::Object();
        json.Add("diagnostics", DescribeDiagnostics(diagnostics));
        json.Add("outputs", std::move(outputs));
        Answer(response, 200, json);
    }

    void MakePicture(Body& body, httplib::Response& response)
    {
        const PictureRequest request = ReadPicture(body);
        if (request.output.empty())
            body.Fault("output", "a name");
        if (!body.FaultText().empty())
            return;
        Picture picture;
        Refusal refusal;
        if (!evaluator_.MakePicture(request, picture, refusal))
            return AnswerRefusal(response, refusal);
        response.set_header("X-Width", std::to_string(picture.width));
        response.set_header("X-Height", std::to_string(picture.height));
        response.set_header("X-Channels", std::to_string(picture.channels));
        response.set_header("X-Milliseconds", fmt::format("{:.3f}", picture.milliseconds));
        response.set_content(reinterpret_cast<const char*>(picture.pixels.data()),
            picture.pixels.size() * sizeof(float), "application/octet-stream");
    }

    void Evaluate(Body& body, httplib::Response& response)
    {
        const PictureRequest request = ReadPicture(body);
        if (!body.FaultText().empty())
            return;
        Json values;
        Refusal refusal;
        if (!evaluator_.Evaluate(request, values, refusal))
            return AnswerRefusal(response, refusal);
        Json json = Json::Object();
        json.Add("outputs", std::move(values));
        Answer(response, 200, json);
    }

    void MeasureCost(Body& body, httplib::Response& response)
    {
        const std::string text = body.Text("text");
        const int size = body.Integer("size", 1, kMostSide, 256);
        if (!body.FaultText().empty())
            return;
        host::Explanation explanation;
        Refusal refusal;
        if (!evaluator_.MeasureCost(text, size, explanation, refusal))
            return AnswerRefusal(response, refusal);
        Json nodes = Json::Array();
        for (const host::NodeCost& node : explanation.nodes)
        {
            Json entry = Json::Object();
            entry.Add("name", node.name);
            entry.Add("nanoseconds", node.nanoseconds);
            entry.Add("evaluations", node.evaluationsPerSample);
            nodes.Append(std::move(entry));
        }
        Json json = Json::Object();
        json.Add("nodes", std::move(nodes));
        json.Add("nanosecondsPerSample", explanation.nanosecondsPerSample);
        Answer(response, 200, json);
    }

    // Folders and pictures, by the names that a document gives them. Links are followed, and where they lead out of
    // the folders that may be read is not shown.
    void ListFiles(const httplib::Request& request, httplib::Response& response)
    {
        const std::string asked = request.get_param_value("folder");
        Json entries = Json::Array();
        const auto add = [&](const std::filesystem::path& path, bool isFolder) {
            Json json = Json::Object();
            json.Add("name", path.filename().string());
            json.Add("path", NameInDocument(path));
            json.Add("isFolder", isFolder);
            entries.Append(std::move(json));
        };
        for (const std::filesystem::path& root : options_.pictureFolders)
        {
            const std::filesystem::path folder = (root / asked).lexically_normal();
            std::error_code failed;
            if (!host::MayRead(folder) || !std::filesystem::is_directory(folder, failed))
                continue;
            for (const auto& entry : std::filesystem::directory_iterator(folder, failed))
            {
                if (!host::MayRead(entry.path()) || entry.path().filename().string().starts_with('.'))
                    continue;
                if (entry.is_directory(failed))
                    add(entry.path(), true);
                else if (IsPictureFile(entry.path()))
                    add(entry.path(), false);
            }
            break;
        }
        Json json = Json::Object();
        json.Add("folder", asked);
        json.Add("entries", std::move(entries));
        Answer(response, 200, json);
    }

    std::string NameInDocument(const std::filesystem::path& path) const
    {
        for (const std::filesystem::path& root : options_.pictureFolders)
        {
            const std::filesystem::path relative = path.lexically_relative(root);
            if (!relative.empty() && !relative.string().starts_with(".."))
                return relative.generic_string();
        }
        return path.generic_string();
    }

    struct PageFile
    {
        std::string bytes;
        const char* type;
    };

    const ServerOptions options_;
    DocumentFile& document_;
    Evaluator& evaluator_;
    const std::string token_;
    std::map<std::string, PageFile> page_;
    httplib::Server server_;
    int port_ = 0;
};

Server::Server(ServerOptions options, DocumentFile& document, Evaluator& evaluator)
    : routes_(std::make_unique<Routes>(std::move(options), document, evaluator))
{
}

Server::~Server() = default;

bool Server::Listen(std::string& error)
{
    return routes_->Listen(error, address_);
}

void Server::Run()
{
    routes_->Run();
}

} // namespace velto::editor

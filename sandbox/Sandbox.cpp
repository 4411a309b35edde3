#include "Sandbox.h"

#include "Arguments.h"
#include "ConnectionDrop.h"
#include "JsonText.h"
#include "LoginPage.h"
#include "NumberedConnections.h"
#include "Refusal.h"
#include "Service.h"
#include "UploadTarget.h"

#include <httplib.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

namespace SorvelSandbox
{

namespace
{

// cpp-httplib passes every multipart/form-data body through its own lenient parser, even when the
// handler asks its content reader for raw bytes (the raw reader then throws bad_function_call).
// The sandbox therefore moves the Content-Type header of every request aside before routing, so
// that bodies reach its own parser untouched, and reads the original from here.
const char* const kOriginalContentType = "X-Sorvel-Sandbox-Content-Type";

constexpr size_t kMaxJsonBody = 1 << 20;
constexpr uint64_t kDefaultDropPoint = 64 * 1024;

std::string originalContentType(const httplib::Request& request)
{
    return request.get_header_value(kOriginalContentType);
}

bool isJsonContentType(const std::string& contentType)
{
    std::string type = contentType.substr(0, contentType.find(';'));
    while (!type.empty() && (type.back() == ' ' || type.back() == '\t'))
        type.pop_back();
    for (char& c : type)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return type == "application/json";
}

std::string envelope(int statusCode, const std::string& data)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> out(buffer);
    out.StartObject();
    member(out, "status_code", statusCode);
    out.Key("data");
    out.RawValue(data.data(), data.size(), rapidjson::kObjectType);
    out.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

std::string errorData(const std::string& message)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> out(buffer);
    out.StartObject();
    member(out, "error", message);
    out.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

// Damages a reply body as the fault asks; other faults leave it alone.
void spoil(const std::optional<Fault>& fault, std::string& body)
{
    if (!fault)
        return;
    if (fault->kind == Fault::Kind::InvalidBody)
        body = "Service temporarily unavailable {";
    else if (fault->kind == Fault::Kind::EmptyBody)
        body.clear();
    else if (fault->kind == Fault::Kind::TruncatedBody)
        body.resize(body.size() / 2);
    else if (fault->kind == Fault::Kind::ReplacedBody)
        body = fault->body;
}

bool readFile(const std::string& path, std::string& contents, std::string& error)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        error = "cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad())
    {
        error = "cannot read " + path;
        return false;
    }
    contents = buffer.str();
    return true;
}

std::optional<Catalogue> loadCatalogue(const std::string& path, std::string& error)
{
    std::string json;
    if (!readFile(path, json, error))
        return std::nullopt;
    std::optional<Catalogue> catalogue = Catalogue::fromJson(json, error);
    if (!catalogue)
        error = path + ": " + error;
    return catalogue;
}

// The query parameters in the order sent. The library's own parameter map is sorted and folds
// repeated identical pairs into one, which would hide a client that sends a parameter twice.
std::vector<std::pair<std::string, std::string>> queryOf(const httplib::Request& request)
{
    std::vector<std::pair<std::string, std::string>> parameters;
    const size_t question = request.target.find('?');
    if (question == std::string::npos)
        return parameters;
    std::string_view rest = std::string_view(request.target).substr(question + 1);
    while (!rest.empty())
    {
        const std::string_view piece = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(rest.size(), piece.size() + 1));
        if (piece.empty())
            continue;
        const size_t equals = piece.find('=');
        const std::string name(piece.substr(0, equals));
        const std::string value(equals == std::string_view::npos ? std::string_view() : piece.substr(equals + 1));
        parameters.emplace_back(httplib::detail::decode_url(name, true), httplib::detail::decode_url(value, true));
    }
    return parameters;
}

} // namespace

struct Sandbox::Running
{
    using Action = std::function<std::string(const Arguments&, const httplib::Request&)>;

    Running(const Options& options, RequestLog& log, FaultPlan& faults) : options(options), log(log), faults(faults) {}

    bool open(std::string& error);
    void close();

    void addRoutes();
    void api(Endpoint endpoint, const httplib::Request& request, httplib::Response& response,
             const httplib::ContentReader* reader, const Action& action);
    void upload(const httplib::Request& request, httplib::Response& response, const httplib::ContentReader& reader);
    void webLogin(const httplib::Request& request, httplib::Response& response);
    void unknown(const httplib::Request& request, httplib::Response& response, const httplib::ContentReader* reader);

    LoggedRequest describe(Endpoint endpoint, const httplib::Request& request) const;
    void finish(const LoggedRequest& entry);
    void pause(std::chrono::milliseconds delay);
    // The fault for this request: a dropped connection when the link drops the connection it came
    // on, else the one armed for it, if any (counted either way).
    std::optional<Fault> faultFor(Endpoint endpoint);
    // Holds the reply back for a Delay fault; for a DropConnection fault closes the connection,
    // and for a HoldRequest fault holds it and then closes it; after either it has logged the
    // request and returns true (nothing more is to be answered).
    bool delayOrDrop(const std::optional<Fault>& fault, const httplib::Request& request, LoggedRequest& entry);
    // Logs the request as held, holds it until it is released, the sandbox stops or the fault's
    // time has passed, and then resets its connection.
    void holdThenDrop(const Fault& fault, const httplib::Request& request, LoggedRequest& entry);
    void releaseHeld();
    std::string origin() const { return scheme + "://" + host + ":" + std::to_string(port); }
    std::string uploadUrlBase(const httplib::Request& request) const;

    Options options;
    RequestLog& log;
    FaultPlan& faults;
    std::unique_ptr<Service> service;
    std::unique_ptr<UploadTarget> uploads;
    std::unique_ptr<httplib::Server> server;
    std::thread listener;
    std::atomic<bool> listenerEnded{false};
    int port = -1;
    std::string scheme = "http";
    std::string host;
    std::filesystem::path temporaryFolder;
    Login demo;

    std::mutex pauseMutex;
    std::condition_variable pauseWake;
    bool stopping = false;
    uint64_t releases = 0; // counts releaseHeld calls; a held request ends when it changes
};

bool Sandbox::Running::open(std::string& error)
{
    if (options.tlsCertFile.empty() != options.tlsKeyFile.empty())
    {
        error = "a TLS certificate and a TLS key are needed together";
        return false;
    }

    std::optional<Catalogue> catalogue;
    Service::Settings settings;
    settings.partnerId = options.partnerId;
    settings.partnerKey = options.partnerKey;
    settings.timestampTolerance = options.timestampTolerance;
    settings.tokenLifetime = options.tokenLifetime;
    settings.uploadUrlLifetime = options.uploadUrlLifetime;
    std::error_code failure;
    if (!options.dataDir.empty())
    {
        const std::filesystem::path folder(options.dataDir);
        settings.uploadFolder = folder / "files";
        settings.cataloguePath = folder / "catalogue.json";
        std::filesystem::create_directories(settings.uploadFolder, failure);
        if (failure)
        {
            error = "cannot create the data folder " + settings.uploadFolder.string() + ": " + failure.message();
            return false;
        }
        if (std::filesystem::exists(settings.cataloguePath))
        {
            catalogue = loadCatalogue(settings.cataloguePath.string(), error);
            if (!catalogue)
                return false;
        }
    }
    if (!catalogue && !options.seedFile.empty())
    {
        catalogue = loadCatalogue(options.seedFile, error);
        if (!catalogue)
            return false;
    }
    if (!catalogue)
        catalogue = Catalogue::demo();
    if (options.dataDir.empty())
    {
        std::string pattern = (std::filesystem::temp_directory_path(failure) / "sorvel-sandbox-XXXXXX").string();
        if (failure || mkdtemp(pattern.data()) == nullptr)
        {
            error = "cannot create a temporary folder for uploads: " + std::string(std::strerror(errno));
            return false;
        }
        temporaryFolder = pattern;
        settings.uploadFolder = temporaryFolder;
    }

    const AccountRecord& first = catalogue->accounts().front();
    demo = Login{first.username, first.password, first.id};
    service = std::make_unique<Service>(std::move(settings), std::move(*catalogue));
    // A data folder holds the catalogue from the start, also when it came from a seed.
    if (!options.dataDir.empty() && !service->saveCatalogue(error))
        return false;
    uploads = std::make_unique<UploadTarget>(*service, options.discardUploads);

    if (!options.tlsCertFile.empty())
    {
        server = std::make_unique<httplib::SSLServer>(options.tlsCertFile.c_str(), options.tlsKeyFile.c_str());
        scheme = "https";
    }
    else
        server = std::make_unique<httplib::Server>();
    if (!server->is_valid())
    {
        error = "cannot load the TLS certificate " + options.tlsCertFile + " with the key " + options.tlsKeyFile;
        return false;
    }
    const size_t threads = std::max<size_t>(options.threads, 2);
    server->new_task_queue = [threads] { return new NumberedConnections(threads); };
    server->set_keep_alive_timeout(options.keepAliveTimeout.count());
    server->set_keep_alive_max_count(std::max<size_t>(options.requestsPerConnection, 1));
    // The library's default also sets SO_REUSEPORT, with which a second server binds a port that
    // is in use without an error and the two share its connections. Only SO_REUSEADDR is wanted.
    server->set_socket_options([](socket_t socket) {
        int on = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    // Without it, a reply written in two pieces meets the peer's delayed acknowledgement and
    // every request takes 40 ms longer.
    server->set_tcp_nodelay(true);
    server->set_read_timeout(30);
    server->set_write_timeout(30);
    addRoutes();

    errno = 0;
    if (options.port == 0)
        port = server->bind_to_any_port(options.bindAddress);
    else
        port = server->bind_to_port(options.bindAddress, options.port) ? options.port : -1;
    if (port < 0)
    {
        error = "cannot listen on " + options.bindAddress + " port " + std::to_string(options.port) +
                (errno != 0 ? std::string(": ") + std::strerror(errno) : std::string());
        return false;
    }

    host = options.bindAddress;
    if (host.empty() || host == "0.0.0.0")
        host = "127.0.0.1";
    else if (host == "::")
        host = "[::1]";
    else if (host.find(':') != std::string::npos)
        host = "[" + host + "]";

    listener = std::thread([this] {
        server->listen_after_bind();
        listenerEnded = true;
    });
    // The socket already listens, so no connection is lost meanwhile; but stop() only works once
    // the server reports that it runs, and this library version has no call that waits for that.
    while (!server->is_running() && !listenerEnded)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (listenerEnded)
    {
        listener.join();
        error = "the server stopped at once";
        return false;
    }
    return true;
}

void Sandbox::Running::close()
{
    {
        std::lock_guard lock(pauseMutex);
        stopping = true;
    }
    pauseWake.notify_all();
    if (server && listener.joinable())
    {
        server->stop();
        // Open connections, idle keep-alive ones too, would otherwise hold their threads, and so
        // the stop, until they time out.
        dropConnections(port);
        listener.join();
    }
    server.reset();
    if (!temporaryFolder.empty())
    {
        std::error_code ignored;
        std::filesystem::remove_all(temporaryFolder, ignored);
    }
}

void Sandbox::Running::addRoutes()
{
    server->set_pre_routing_handler([](const httplib::Request& request, httplib::Response&) {
        // The request object is not const where cpp-httplib created it; only the handler's view is.
        auto& writable = const_cast<httplib::Request&>(request);
        writable.headers.erase(kOriginalContentType);
        if (writable.has_header("Content-Type"))
        {
            std::string type = writable.get_header_value("Content-Type");
            writable.headers.erase("Content-Type");
            writable.headers.emplace(kOriginalContentType, std::move(type));
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });

    using Request = httplib::Request;
    using Response = httplib::Response;
    using Reader = httplib::ContentReader;
    auto post = [this](const std::string& pattern, Endpoint endpoint, Action action) {
        server->Post(pattern, [this, endpoint, action](const Request& request, Response& response, const Reader& reader) {
            api(endpoint, request, response, &reader, action);
        });
    };
    auto get = [this](const std::string& pattern, Endpoint endpoint, Action action) {
        server->Get(pattern, [this, endpoint, action](const Request& request, Response& response) {
            api(endpoint, request, response, nullptr, action);
        });
    };

    post("/api/users/auth/token", Endpoint::SignIn,
         [this](const Arguments& arguments, const Request&) { return service->signIn(arguments); });
    post("/api/users/0/activity", Endpoint::AnonymousActivity, [this](const Arguments& arguments, const Request&) {
        return service->anonymousActivity(arguments, origin() + "/login");
    });
    get(R"(/api/users/([^/]+)/activity)", Endpoint::Activity,
        [this](const Arguments& arguments, const Request& request) {
            return service->activity(request.matches[1].str(), arguments);
        });
    get("/api/titles", Endpoint::Titles,
        [this](const Arguments& arguments, const Request&) { return service->titles(arguments); });
    post("/api/titles", Endpoint::CreateTitle,
         [this](const Arguments& arguments, const Request&) { return service->createTitle(arguments); });
    post("/api/tracks", Endpoint::CreateTrack,
         [this](const Arguments& arguments, const Request&) { return service->createTrack(arguments); });
    get(R"(/api/tracks/([^/]+)/upload_token)", Endpoint::UploadToken,
        [this](const Arguments& arguments, const Request& request) {
            return service->uploadToken(request.matches[1].str(), arguments, uploadUrlBase(request));
        });
    post(R"(/api/tracks/([^/]+)/upload_status)", Endpoint::UploadStatus,
         [this](const Arguments& arguments, const Request& request) {
             return service->uploadStatus(request.matches[1].str(), arguments);
         });

    server->Post(R"(/upload/([^/]+))", [this](const Request& request, Response& response, const Reader& reader) {
        upload(request, response, reader);
    });
    server->Get("/login", [this](const Request& request, Response& response) { webLogin(request, response); });

    // Everything else is answered 404 here rather than by the library, which would first read a
    // body of any size into memory.
    server->Get(".*", [this](const Request& request, Response& response) { unknown(request, response, nullptr); });
    auto unknownWithBody = [this](const Request& request, Response& response, const Reader& reader) {
        unknown(request, response, &reader);
    };
    server->Post(".*", unknownWithBody);
    server->Put(".*", unknownWithBody);
    server->Patch(".*", unknownWithBody);
    server->Delete(".*", unknownWithBody);
}

LoggedRequest Sandbox::Running::describe(Endpoint endpoint, const httplib::Request& request) const
{
    LoggedRequest entry;
    entry.endpoint = endpoint;
    entry.method = request.method;
    entry.target = request.target;
    entry.contentType = originalContentType(request);
    entry.connection = NumberedConnections::current();
    return entry;
}

void Sandbox::Running::finish(const LoggedRequest& entry)
{
    log.add(entry);
    if (options.onRequest)
        options.onRequest(entry);
}

void Sandbox::Running::pause(std::chrono::milliseconds delay)
{
    std::unique_lock lock(pauseMutex);
    pauseWake.wait_for(lock, delay, [this] { return stopping; });
}

std::optional<Fault> Sandbox::Running::faultFor(Endpoint endpoint)
{
    std::optional<Fault> fault = faults.next(endpoint);
    const uint64_t connection = NumberedConnections::current();
    if (options.dropEveryNthConnection > 0 && connection > 0 && connection % options.dropEveryNthConnection == 0)
        return Fault::dropConnection();
    return fault;
}

bool Sandbox::Running::delayOrDrop(const std::optional<Fault>& fault, const httplib::Request& request,
                                   LoggedRequest& entry)
{
    if (fault && fault->kind == Fault::Kind::Delay)
        pause(fault->delay);
    if (fault && fault->kind == Fault::Kind::HoldRequest)
    {
        holdThenDrop(*fault, request, entry);
        return true;
    }
    if (!fault || fault->kind != Fault::Kind::DropConnection)
        return false;
    dropConnection(request);
    entry.error = "the connection was dropped (injected fault)";
    finish(entry);
    return true;
}

void Sandbox::Running::holdThenDrop(const Fault& fault, const httplib::Request& request, LoggedRequest& entry)
{
    entry.httpStatus = 0;
    entry.error = "held without an answer (injected fault)";
    // Logged before the hold, so that a test waiting for it can act while it lasts; a release
    // that follows the entry must end the hold, so the count of releases is read before.
    uint64_t released = 0;
    {
        std::lock_guard lock(pauseMutex);
        released = releases;
    }
    finish(entry);
    {
        std::unique_lock lock(pauseMutex);
        pauseWake.wait_for(lock, fault.delay, [&] { return stopping || releases != released; });
    }
    dropConnection(request);
}

void Sandbox::Running::releaseHeld()
{
    {
        std::lock_guard lock(pauseMutex);
        ++releases;
    }
    pauseWake.notify_all();
}

std::string Sandbox::Running::uploadUrlBase(const httplib::Request& request) const
{
    // The upload URL names the host the client reached, so it works through any address the
    // sandbox listens on; a Host header that is not a plain host and port is not trusted.
    static const std::regex plainHost(R"(^(\[[0-9A-Fa-f:.]+\]|[A-Za-z0-9.-]+)(:[0-9]{1,5})?$)");
    const std::string hostHeader = request.get_header_value("Host");
    const std::string authority =
        std::regex_match(hostHeader, plainHost) ? hostHeader : host + ":" + std::to_string(port);
    return scheme + "://" + authority + "/upload/";
}

void Sandbox::Running::api(Endpoint endpoint, const httplib::Request& request, httplib::Response& response,
                           const httplib::ContentReader* reader, const Action& action)
{
    LoggedRequest entry = describe(endpoint, request);
    const std::optional<Fault> fault = faultFor(endpoint);
    if (fault)
        entry.fault = fault->kind;

    std::string body;
    bool tooLarge = false;
    if (reader != nullptr)
    {
        const bool complete = (*reader)([&](const char* data, size_t length) {
            if (body.size() + length > kMaxJsonBody)
            {
                tooLarge = true;
                return false;
            }
            body.append(data, length);
            return true;
        });
        entry.body = body;
        entry.bodyBytes = body.size();
        if (!complete && !tooLarge)
        {
            entry.error = "the connection broke while the body was read";
            finish(entry);
            return;
        }
    }
    if (delayOrDrop(fault, request, entry))
        return;

    int httpStatus = 200;
    int statusCode = 200;
    std::string data;
    if (fault && (fault->kind == Fault::Kind::StatusCode || fault->kind == Fault::Kind::HttpStatus))
    {
        statusCode = fault->value;
        if (fault->kind == Fault::Kind::HttpStatus)
            httpStatus = fault->value;
        entry.error = "injected fault";
        data = errorData(entry.error);
    }
    else
    {
        try
        {
            if (tooLarge)
            {
                httpStatus = 413;
                throw Refusal{413, "the body is larger than " + std::to_string(kMaxJsonBody) + " bytes"};
            }
            std::optional<Arguments> arguments;
            if (reader != nullptr)
            {
                if (!isJsonContentType(entry.contentType))
                    throw Refusal{415, "the body must be sent as application/json, not \"" + entry.contentType + "\""};
                arguments.emplace(Arguments::fromJson(body));
                entry.memberNames = arguments->names();
            }
            else
                arguments.emplace(Arguments::fromQuery(queryOf(request)));
            data = action(*arguments, request);
        }
        catch (const Refusal& refusal)
        {
            statusCode = refusal.status;
            entry.error = refusal.message;
            data = errorData(refusal.message);
        }
    }
    if (fault && fault->kind == Fault::Kind::HoldReply)
    {
        // The request took effect; its answer is what is held.
        entry.statusCode = statusCode;
        holdThenDrop(*fault, request, entry);
        return;
    }
    std::string text = envelope(statusCode, data);
    spoil(fault, text);
    response.status = httpStatus;
    if (fault && fault->kind == Fault::Kind::CloseMidReply)
    {
        // The length announced is the whole body's; the provider sends half and gives up, which
        // closes the connection.
        entry.error = "the connection closed in the middle of the reply (injected fault)";
        response.set_content_provider(text.size(), "application/json",
                                      [text](size_t offset, size_t, httplib::DataSink& sink) {
                                          if (offset == 0)
                                              sink.write(text.data(), text.size() / 2);
                                          return offset == 0;
                                      });
    }
    else
        response.set_content(text, "application/json");
    entry.httpStatus = httpStatus;
    entry.statusCode = statusCode;
    finish(entry);
}

void Sandbox::Running::upload(const httplib::Request& request, httplib::Response& response,
                              const httplib::ContentReader& reader)
{
    LoggedRequest entry = describe(Endpoint::Upload, request);
    const std::optional<Fault> fault = faultFor(Endpoint::Upload);
    if (fault)
        entry.fault = fault->kind;

    if (fault && fault->kind == Fault::Kind::StopReading)
    {
        // Nothing of the body is read: the client's sending stalls once the socket's buffers
        // are full, then the connection closes.
        pause(fault->delay);
        dropConnection(request);
        entry.error = "stopped reading the body (injected fault)";
        finish(entry);
        return;
    }

    uint64_t dropAfter = 0;
    const bool holdMidBody = fault && fault->kind == Fault::Kind::HoldRequest;
    if (fault && (fault->kind == Fault::Kind::DropConnection || holdMidBody))
    {
        dropAfter = fault->afterBytes;
        if (dropAfter == 0)
        {
            const uint64_t announced = std::strtoull(request.get_header_value("Content-Length").c_str(), nullptr, 10);
            dropAfter = announced > 1 ? announced / 2 : kDefaultDropPoint;
        }
    }
    std::optional<int> forcedStatus;
    if (fault && fault->kind == Fault::Kind::HttpStatus)
        forcedStatus = fault->value;

    bool held = false;
    const auto cut = [&](uint64_t received) {
        if (!holdMidBody)
        {
            dropConnection(request);
            return;
        }
        entry.bodyBytes = received;
        holdThenDrop(*fault, request, entry);
        held = true;
    };
    UploadTarget::Outcome outcome =
        uploads->receive(request.matches[1].str(), originalContentType(request), reader, dropAfter, cut, forcedStatus);
    if (held)
        return;
    entry.bodyBytes = outcome.bodyBytes;
    if (!outcome.stored)
        entry.error = outcome.message;
    if (outcome.httpStatus == 0)
    {
        finish(entry);
        return;
    }
    if (fault && fault->kind == Fault::Kind::HoldReply)
    {
        holdThenDrop(*fault, request, entry);
        return;
    }
    if (fault && fault->kind == Fault::Kind::Delay)
        pause(fault->delay);
    std::string text = outcome.message + "\n";
    spoil(fault, text);
    response.status = outcome.httpStatus;
    response.set_content(text, "text/plain; charset=utf-8");
    entry.httpStatus = outcome.httpStatus;
    finish(entry);
}

void Sandbox::Running::webLogin(const httplib::Request& request, httplib::Response& response)
{
    LoggedRequest entry = describe(Endpoint::WebLogin, request);
    const std::optional<Fault> fault = faultFor(Endpoint::WebLogin);
    if (fault)
        entry.fault = fault->kind;
    // A page changes nothing: holding its request or its reply comes to the same.
    if (fault && fault->kind == Fault::Kind::HoldReply)
    {
        holdThenDrop(*fault, request, entry);
        return;
    }
    if (delayOrDrop(fault, request, entry))
        return;

    int status = 200;
    std::string html;
    if (fault && fault->kind == Fault::Kind::HttpStatus)
    {
        status = fault->value;
        entry.error = "injected fault";
        html = renderErrorPage(status, entry.error);
    }
    else
    {
        try
        {
            Service::WebLogin login = service->webLogin(Arguments::fromQuery(queryOf(request)));
            html = login.title ? renderProductPage(login.account, *login.title) : renderAccountPage(login.account);
        }
        catch (const Refusal& refusal)
        {
            status = refusal.status;
            entry.error = refusal.message;
            html = renderErrorPage(status, refusal.message);
        }
    }
    spoil(fault, html);
    response.status = status;
    response.set_content(html, "text/html; charset=utf-8");
    entry.httpStatus = status;
    finish(entry);
}

void Sandbox::Running::unknown(const httplib::Request& request, httplib::Response& response,
                               const httplib::ContentReader* reader)
{
    LoggedRequest entry = describe(Endpoint::Unknown, request);
    if (reader != nullptr)
        (*reader)([&entry](const char*, size_t length) {
            entry.bodyBytes += length;
            return true;
        });
    entry.error = "no such resource: " + request.method + " " + request.path;
    entry.httpStatus = 404;
    response.status = 404;
    if (request.path.rfind("/api/", 0) == 0)
    {
        entry.statusCode = 404;
        response.set_content(envelope(404, errorData(entry.error)), "application/json");
    }
    else
        response.set_content(entry.error + "\n", "text/plain; charset=utf-8");
    finish(entry);
}

Sandbox::Sandbox() = default;

Sandbox::~Sandbox()
{
    stop();
}

int Sandbox::start(const Options& options, std::string& error)
{
    if (running)
    {
        error = "the sandbox is running already";
        return -1;
    }
    auto next = std::make_unique<Running>(options, log, faults);
    if (!next->open(error))
    {
        next->close();
        return -1;
    }
    running = std::move(next);
    return running->port;
}

void Sandbox::stop()
{
    if (!running)
        return;
    running->close();
    running.reset();
}

bool Sandbox::isRunning() const
{
    return running != nullptr;
}

int Sandbox::port() const
{
    return running ? running->port : -1;
}

std::string Sandbox::baseUrl() const
{
    return running ? running->origin() + "/api/" : std::string();
}

std::string Sandbox::loginUrl() const
{
    return running ? running->origin() + "/login" : std::string();
}

std::string Sandbox::partnerId() const
{
    return running ? running->options.partnerId : std::string();
}

std::string Sandbox::partnerKey() const
{
    return running ? running->options.partnerKey : std::string();
}

Sandbox::Login Sandbox::demoLogin() const
{
    return running ? running->demo : Login{};
}

std::vector<AccountRecord> Sandbox::accounts() const
{
    return running ? running->service->accounts() : std::vector<AccountRecord>{};
}

std::vector<StoredFile> Sandbox::storedFiles() const
{
    return running ? running->service->storedFiles() : std::vector<StoredFile>{};
}

void Sandbox::expireSessions()
{
    if (running)
        running->service->expireSessions();
}

bool Sandbox::expireToken(const std::string& token)
{
    return running && running->service->expireToken(token);
}

void Sandbox::injectFault(Endpoint endpoint, const Fault& fault, unsigned nth, unsigned times)
{
    faults.arm(endpoint, fault, nth, times);
}

void Sandbox::clearFaults()
{
    faults.clear();
}

void Sandbox::releaseHeld()
{
    if (running)
        running->releaseHeld();
}

} // namespace SorvelSandbox

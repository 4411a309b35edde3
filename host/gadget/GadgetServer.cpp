#include "host/gadget/GadgetServer.h"

#include "host/gadget/GadgetSession.h"

#include "framework/core/Object.h"
#include "framework/core/Runnable.h"
#include "framework/services/IRunLoop.h"
#include "framework/services/SystemServices.h"

#include <httplib.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <utility>

// The page's script and styles, assembled into the program (PageAssets.S).
extern "C" const char sorvel_page_js_begin[], sorvel_page_js_end[];
extern "C" const char sorvel_page_css_begin[], sorvel_page_css_end[];

namespace Host {

using namespace KVX;
namespace fs = std::filesystem;

namespace {

/// How long a request waits for the user-interface thread before it is answered 503.
constexpr auto kUserInterfaceWait = std::chrono::seconds(20);
/// A comment line on an idle event stream, so that a page that went away is noticed.
constexpr auto kKeepAliveEvery = std::chrono::seconds(10);
/// Events waiting for a page before the states among them are dropped for the newest.
constexpr size_t kMaxQueuedEvents = 16;
/// The largest file the page may drop (an hour of 96 kHz 32-bit stereo is 2.6 GB).
constexpr size_t kMaxDroppedFile = size_t(4) << 30;

std::string makeSecret()
{
    unsigned char bytes[16];
    if (RAND_bytes(bytes, sizeof bytes) != 1)
        return {};
    std::string text;
    for (unsigned char byte : bytes)
    {
        char hex[3];
        std::snprintf(hex, sizeof hex, "%02x", byte);
        text += hex;
    }
    return text;
}

bool sameSecret(const std::string& given, const std::string& secret)
{
    return given.size() == secret.size() && CRYPTO_memcmp(given.data(), secret.data(), secret.size()) == 0;
}

/// A dropped file's name as it may be stored: its last path component, with characters that
/// have a meaning to shells or file systems replaced. Empty when nothing usable is left.
std::string safeFileName(const std::string& name)
{
    std::string base = name.substr(name.find_last_of("/\\") + 1);
    for (char& c : base)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f || c == ':' || c == '*' || c == '?' || c == '"' ||
            c == '<' || c == '>' || c == '|')
            c = '_';
    while (!base.empty() && (base.front() == '.' || base.front() == ' '))
        base.erase(base.begin());
    if (base.size() > 200)
        base.erase(0, base.size() - 200);
    return base;
}

std::vector<int> numbersOf(const std::string& list)
{
    std::vector<int> numbers;
    size_t start = 0;
    while (start < list.size())
    {
        size_t comma = list.find(',', start);
        if (comma == std::string::npos)
            comma = list.size();
        const std::string item = list.substr(start, comma - start);
        if (!item.empty() && item.size() < 10 && item.find_first_not_of("-0123456789") == std::string::npos)
            numbers.push_back(std::atoi(item.c_str()));
        start = comma + 1;
    }
    return numbers;
}

/// The fields of a form-encoded request body.
httplib::Params formOf(const httplib::Request& request)
{
    httplib::Params form;
    httplib::detail::parse_query_text(request.body, form);
    return form;
}

std::string fieldOf(const httplib::Params& form, const char* name)
{
    const auto found = form.find(name);
    return found == form.end() ? std::string() : found->second;
}

int numberOf(const httplib::Params& form, const char* name, int fallback)
{
    const std::string text = fieldOf(form, name);
    if (text.empty() || text.size() > 10 || text.find_first_not_of("-0123456789") != std::string::npos)
        return fallback;
    return std::atoi(text.c_str());
}

} // namespace

struct GadgetServer::Job
{
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    std::string answer;
};

GadgetServer::GadgetServer(GadgetSession& session, const GadgetPage& page, ITheme& theme, fs::path dropFolder)
    : session_(session), html_(page.html), themeCss_(page.themeCss), dropFolder_(std::move(dropFolder)),
      server_(std::make_unique<httplib::Server>()), jobOwner_(makeRef<Object>())
{
    for (const std::string& name : page.images)
    {
        ImageRecord image{};
        const void* data = nullptr;
        uint64 size = 0;
        if (theme.getImage(name.c_str(), image) == kResultOk && theme.getFile(image.file, data, size) == kResultOk)
            images_[name].assign(static_cast<const char*>(data), size);
    }
}

GadgetServer::~GadgetServer()
{
    if (listener_.joinable())
        stop();
}

bool GadgetServer::start(std::string& error)
{
    secret_ = makeSecret();
    if (secret_.empty())
    {
        error = "no random numbers for the page's secret";
        return false;
    }
    // The event streams hold a thread each for as long as their page is open.
    server_->new_task_queue = [] { return new httplib::ThreadPool(16); };
    server_->set_payload_max_length(kMaxDroppedFile);
    server_->set_keep_alive_timeout(2);
    // Answers are written as headers, then body: without this, the body waits for the browser's
    // delayed acknowledgement of the headers (40 ms on Linux).
    server_->set_tcp_nodelay(true);
    server_->set_default_headers({
        {"Cache-Control", "no-store"},
        {"X-Content-Type-Options", "nosniff"},
        {"Referrer-Policy", "no-referrer"},
        {"X-Frame-Options", "DENY"},
        {"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; "
                                    "img-src 'self'; connect-src 'self'; form-action 'none'; frame-ancestors 'none'; "
                                    "base-uri 'none'"},
    });
    route();
    port_ = server_->bind_to_any_port("127.0.0.1");
    if (port_ <= 0)
    {
        error = "cannot listen on 127.0.0.1";
        return false;
    }
    listening_ = true;
    listener_ = std::thread([this] {
        server_->listen_after_bind();
        listening_ = false;
    });
    // stop() reaches only a server that runs; a start answered here is one that stop() can end.
    while (listening_ && !server_->is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return true;
}

std::string GadgetServer::address() const
{
    return "http://127.0.0.1:" + std::to_string(port_) + "/" + secret_ + "/";
}

bool GadgetServer::admit(const httplib::Request& request, httplib::Response& response) const
{
    auto refuse = [&](int status, const char* why) {
        response.status = status;
        response.set_content(why, "text/plain; charset=utf-8");
        return false;
    };
    // The secret is the path's first segment; without it nothing, not even whether the server
    // is this one, is answered.
    const std::string& path = request.path;
    const size_t end = path.find('/', 1);
    if (path.size() < 2 || path[0] != '/' || !sameSecret(path.substr(1, end == std::string::npos ? end : end - 1), secret_))
        return refuse(404, "not found\n");
    // A name that resolves to loopback from another site (DNS rebinding) carries that name.
    const std::string port = ":" + std::to_string(port_);
    const std::string host = request.get_header_value("Host");
    if (host != "127.0.0.1" + port && host != "localhost" + port)
        return refuse(403, "forbidden: the page is served to 127.0.0.1 only\n");
    // Pages of other sites may send requests here, but browsers name them in Origin and
    // Sec-Fetch-Site; only this page itself may act.
    const std::string origin = request.get_header_value("Origin");
    const bool sameOrigin = origin == "http://127.0.0.1" + port || origin == "http://localhost" + port;
    if (!origin.empty() && !sameOrigin)
        return refuse(403, "forbidden: requests from other sites are refused\n");
    if (request.method != "GET" && !sameOrigin)
        return refuse(403, "forbidden: a change must come from the gadget's page\n");
    const std::string site = request.get_header_value("Sec-Fetch-Site");
    if (site == "cross-site" || site == "same-site")
        return refuse(403, "forbidden: requests from other sites are refused\n");
    return true;
}

bool GadgetServer::onUserInterface(std::function<std::string()> work, std::string& answer)
{
    if (stopping_)
        return false;
    auto job = std::make_shared<Job>();
    const auto task = Runnable::make([job, work = std::move(work)] {
        std::string result = work();
        std::lock_guard lock(job->mutex);
        job->answer = std::move(result);
        job->done = true;
        job->finished.notify_all();
    });
    if (GetRunLoop()->post(task, jobOwner_) != kResultOk)
        return false;
    std::unique_lock lock(job->mutex);
    const auto deadline = std::chrono::steady_clock::now() + kUserInterfaceWait;
    while (!job->done && !stopping_)
        if (job->finished.wait_until(lock, std::min(deadline, std::chrono::steady_clock::now() +
                                                                   std::chrono::milliseconds(200))) ==
                std::cv_status::timeout &&
            std::chrono::steady_clock::now() >= deadline)
            break;
    if (!job->done)
        return false;
    answer = job->answer;
    return true;
}

void GadgetServer::answer(httplib::Response& response, bool ran, const std::string& refusal) const
{
    if (!ran)
    {
        response.status = 503;
        response.set_content("the gadget is not answering\n", "text/plain; charset=utf-8");
    }
    else if (!refusal.empty())
    {
        response.status = 409;
        response.set_content(refusal + "\n", "text/plain; charset=utf-8");
    }
    else
        response.set_content("{}", "application/json");
}

void GadgetServer::action(const std::string& path, std::function<std::string(GadgetSession&, const Form&)> act)
{
    server_->Post(path, [this, act](const httplib::Request& request, httplib::Response& response) {
        std::string refusal;
        const bool ran = onUserInterface([this, act, form = formOf(request)] { return act(session_, form); }, refusal);
        answer(response, ran, refusal);
    });
}

void GadgetServer::route()
{
    server_->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        return admit(request, response) ? httplib::Server::HandlerResponse::Unhandled
                                        : httplib::Server::HandlerResponse::Handled;
    });
    const std::string base = "/" + secret_;
    server_->Get(base + "/", [this](const httplib::Request&, httplib::Response& response) {
        response.set_content(html_, "text/html; charset=utf-8");
    });
    server_->Get(base + "/page.js", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(sorvel_page_js_begin, size_t(sorvel_page_js_end - sorvel_page_js_begin),
                             "text/javascript; charset=utf-8");
    });
    server_->Get(base + "/page.css", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(sorvel_page_css_begin, size_t(sorvel_page_css_end - sorvel_page_css_begin),
                             "text/css; charset=utf-8");
    });
    server_->Get(base + "/theme.css", [this](const httplib::Request&, httplib::Response& response) {
        response.set_content(themeCss_, "text/css; charset=utf-8");
    });
    server_->Get(base + R"(/image/([A-Za-z0-9._-]+))", [this](const httplib::Request& request, httplib::Response& response) {
        const auto image = images_.find(request.matches[1]);
        if (image == images_.end())
        {
            response.status = 404;
            return;
        }
        response.set_content(image->second, "image/png");
    });
    server_->Get(base + "/state", [this](const httplib::Request&, httplib::Response& response) {
        std::string state;
        if (onUserInterface([this] { return session_.state(); }, state))
            response.set_content(state, "application/json");
        else
            answer(response, false, {});
    });
    server_->Get(base + "/events", [this](const httplib::Request&, httplib::Response& response) {
        // The stream opens with the whole state, so the page starts from what it will be told about.
        std::string state;
        if (!onUserInterface([this] { return session_.state(); }, state))
            return answer(response, false, {});
        auto stream = std::make_shared<Stream>();
        stream->queue.push_back({true, "event: state\ndata: " + state + "\n\n"});
        {
            std::lock_guard lock(streamsMutex_);
            if (!pendingActivation_.empty())
                stream->queue.push_back({false, std::exchange(pendingActivation_, {})});
            streams_.push_back(stream);
        }
        response.set_header("X-Accel-Buffering", "no");
        response.set_chunked_content_provider(
            "text/event-stream",
            [this, stream](size_t, httplib::DataSink& sink) {
                std::unique_lock lock(streamsMutex_);
                streamsChanged_.wait_for(lock, kKeepAliveEvery, [&] { return stopping_ || !stream->queue.empty(); });
                if (stopping_)
                    return false;
                std::string text;
                if (stream->queue.empty())
                    text = ": still here\n\n";
                while (!stream->queue.empty())
                {
                    text += stream->queue.front().text;
                    stream->queue.pop_front();
                }
                lock.unlock();
                return sink.write(text.data(), text.size());
            },
            [this, stream](bool) {
                std::lock_guard lock(streamsMutex_);
                std::erase(streams_, stream);
            });
    });

    // What the page's controls do: each runs on the user-interface thread with the posted form.
    action(base + "/value", [](GadgetSession& session, const Form& form) {
        return session.setValue(fieldOf(form, "key"), fieldOf(form, "value"), fieldOf(form, "notify") == "1");
    });
    action(base + "/press", [](GadgetSession& session, const Form& form) { return session.press(fieldOf(form, "key")); });
    action(base + "/menu", [](GadgetSession& session, const Form& form) {
        return session.chooseMenuEntry(fieldOf(form, "key"), numberOf(form, "index", -1));
    });
    action(base + "/list/click", [](GadgetSession& session, const Form& form) {
        return session.clickCell(fieldOf(form, "key"), numberOf(form, "row", -1), numberOf(form, "column", -1),
                                 fieldOf(form, "shift") == "1", fieldOf(form, "ctrl") == "1");
    });
    action(base + "/list/column", [](GadgetSession& session, const Form& form) {
        return session.resizeColumn(fieldOf(form, "key"), numberOf(form, "column", -1), numberOf(form, "width", 0));
    });
    action(base + "/list/select", [](GadgetSession& session, const Form& form) {
        return session.selectRow(fieldOf(form, "key"), numberOf(form, "row", -1), fieldOf(form, "shift") == "1",
                                 fieldOf(form, "ctrl") == "1");
    });
    action(base + "/list/remove", [](GadgetSession& session, const Form& form) {
        return session.removeRows(fieldOf(form, "key"), numbersOf(fieldOf(form, "rows")));
    });
    action(base + "/list/move", [](GadgetSession& session, const Form& form) {
        return session.moveRows(fieldOf(form, "key"), numbersOf(fieldOf(form, "rows")), numberOf(form, "row", -1));
    });
    // A file dropped on the page arrives on its own, streamed to the drop folder; the drop that
    // follows names it by the id answered here.
    server_->Post(base + "/file",
                  [this](const httplib::Request& request, httplib::Response& response, const httplib::ContentReader& reader) {
                      std::string error;
                      const std::string id = storeDroppedFile(request.get_param_value("name"), reader, error);
                      if (id.empty())
                      {
                          response.status = 400;
                          response.set_content(error + "\n", "text/plain; charset=utf-8");
                          return;
                      }
                      response.set_content("{\"id\":\"" + id + "\"}", "application/json");
                  });
    server_->Post(base + "/list/drop", [this](const httplib::Request& request, httplib::Response& response) {
        const httplib::Params form = formOf(request);
        std::vector<std::string> paths;
        {
            std::lock_guard lock(filesMutex_);
            for (int id : numbersOf(fieldOf(form, "files")))
                if (const auto file = droppedFiles_.find(std::to_string(id)); file != droppedFiles_.end())
                    paths.push_back(file->second.string());
        }
        if (paths.empty())
        {
            response.status = 400;
            response.set_content("no dropped file of that id\n", "text/plain; charset=utf-8");
            return;
        }
        std::string refusal;
        const bool ran = onUserInterface(
            [this, key = fieldOf(form, "key"), paths, row = numberOf(form, "row", -1)] {
                return session_.dropFiles(key, paths, row);
            },
            refusal);
        if (!ran || !refusal.empty())
            for (const std::string& path : paths)
            {
                std::error_code ignored;
                fs::remove(path, ignored);
            }
        answer(response, ran, refusal);
    });
}

std::string GadgetServer::storeDroppedFile(const std::string& name,
                                           const std::function<bool(std::function<bool(const char*, size_t)>)>& read,
                                           std::string& error)
{
    const std::string safe = safeFileName(name);
    if (safe.empty())
    {
        error = "a dropped file needs a name";
        return {};
    }
    std::string id;
    fs::path path;
    {
        std::lock_guard lock(filesMutex_);
        id = std::to_string(++droppedCount_);
        // Every file has a folder of its own, so that two files of the same name both keep it.
        path = dropFolder_ / id;
    }
    std::error_code failure;
    fs::create_directories(path, failure);
    path /= safe;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (failure || !out)
    {
        error = "cannot store the dropped file";
        return {};
    }
    const bool whole = read([&out](const char* data, size_t length) {
        out.write(data, static_cast<std::streamsize>(length));
        return static_cast<bool>(out);
    });
    out.close();
    if (!whole || !out)
    {
        fs::remove_all(path.parent_path(), failure);
        error = "the dropped file did not arrive whole";
        return {};
    }
    std::lock_guard lock(filesMutex_);
    droppedFiles_[id] = path;
    return id;
}

void GadgetServer::broadcast(const std::vector<std::pair<std::string, std::string>>& events)
{
    if (events.empty())
        return;
    std::lock_guard lock(streamsMutex_);
    for (const auto& [name, data] : events)
    {
        const bool whole = name == "state" || name == "changed" || name == "propertyChanged" || name == "progress";
        const std::string text = "event: " + name + "\ndata: " + data + "\n\n";
        if (name == "activate" && streams_.empty())
            pendingActivation_ = text; // the gadget asked to be shown before the page was opened
        for (const std::shared_ptr<Stream>& stream : streams_)
        {
            // A page that does not keep up (a frozen tab) is sent the newest state, not every one.
            if (whole && stream->queue.size() >= kMaxQueuedEvents)
                std::erase_if(stream->queue, [](const Stream::Event& event) { return event.whole; });
            stream->queue.push_back({whole, text});
        }
    }
    streamsChanged_.notify_all();
}

void GadgetServer::stop()
{
    {
        std::lock_guard lock(streamsMutex_);
        stopping_ = true;
        streamsChanged_.notify_all();
    }
    server_->stop();
    // Requests under way may wait for this thread; keep answering until the listener is done.
    while (listening_)
        GetRunLoop()->processEvents(20);
    if (listener_.joinable())
        listener_.join();
    GetRunLoop()->cancel(jobOwner_);
}

} // namespace Host

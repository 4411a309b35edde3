#include "host/app/Commands.h"
#include "host/app/Complaint.h"
#include "host/app/LiveHandOver.h"
#include "host/app/Preflight.h"
#include "host/app/Rendering.h"
#include "host/gadget/GadgetPage.h"
#include "host/gadget/GadgetServer.h"
#include "host/gadget/GadgetSession.h"
#include "host/gadget/HandOverSocket.h"
#include "host/ledger/PublishLedger.h"
#include "host/terminal/TextWidth.h"
#include "host/watch/DescriptorWaker.h"
#include "host/watch/FolderWatch.h"

#include "framework/data/Json.h"
#include "framework/hostsupport/EventWait.h"
#include "framework/interfaces/IPublisher.h"
#include "framework/services/GuiServices.h"
#include "framework/services/IRunLoop.h"
#include "framework/services/SystemServices.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace Host {

using namespace KVX;

namespace {

/// The theme the plug-in loads its forms into.
const char* const kThemeName = "sorvel";

/// Writes, in this user's private runtime folder, a page that sends the browser on to `address`;
/// its path, or empty when it cannot be written. The browser is handed this page and not the
/// address: a command line can be read by every user of the machine (ps, /proc/PID/cmdline) for
/// as long as the browser runs, and the address's secret is all that guards the signed-in page.
std::filesystem::path writeRedirectPage(const std::string& address)
{
    std::string error;
    const std::filesystem::path folder = HandOverSocket::folder(error);
    if (folder.empty())
        return {};
    std::string path = (folder / "open-XXXXXX.html").string();
    const int fd = ::mkstemps(path.data(), 5); // 0600, a name of its own
    if (fd < 0)
        return {};
    const std::string page =
        "<!DOCTYPE html>\n<meta charset=\"utf-8\">\n<meta http-equiv=\"refresh\" content=\"0; url=" + address +
        "\">\n<title>Sorvel</title>\n<a href=\"" + address + "\">Sorvel</a>\n";
    const bool written = ::write(fd, page.data(), page.size()) == static_cast<ssize_t>(page.size());
    ::close(fd);
    if (!written)
    {
        ::unlink(path.c_str());
        return {};
    }
    return path;
}

/// The page written for the browser, removed when the gadget ends.
struct RedirectPage
{
    explicit RedirectPage(std::filesystem::path page) : path(std::move(page)) {}
    RedirectPage(const RedirectPage&) = delete;
    RedirectPage& operator=(const RedirectPage&) = delete;
    ~RedirectPage()
    {
        std::error_code ignored;
        if (!path.empty())
            std::filesystem::remove(path, ignored);
    }

    const std::filesystem::path path; ///< empty: none
};

/// Opens `page` in the user's browser ($BROWSER, else xdg-open) when there is a desktop to show
/// it on. The browser starts in a session of its own (Ctrl-C here does not end it) and without
/// the SORVEL_ variables (the partner key among them). False when none could be started.
bool openInBrowser(const std::filesystem::path& page)
{
    const char* browser = std::getenv("BROWSER");
    const bool desktop = std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY");
    std::string program = browser && *browser ? browser : desktop ? "xdg-open" : "";
    if (program.empty() || page.empty())
        return false;
    std::vector<char*> variables;
    for (char** variable = environ; *variable; ++variable)
        if (std::strncmp(*variable, "SORVEL_", 7) != 0)
            variables.push_back(*variable);
    variables.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    std::string target = page.string();
    char* arguments[] = {program.data(), target.data(), nullptr};
    pid_t child = 0;
    const int failed = posix_spawnp(&child, program.c_str(), &actions, &attributes, arguments, variables.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failed)
        return false;
    // xdg-open hands the page over and ends; a browser named in $BROWSER may keep running.
    int status = 0;
    for (int waited = 0; waited < 50; ++waited)
    {
        if (::waitpid(child, &status, WNOHANG) == child)
            return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        ::usleep(20000);
    }
    return true;
}

/// The files of a `sorvel add`, opened; "" or why none was taken.
std::string openHandedFiles(const std::vector<std::string>& files,
                            const std::map<std::string, std::vector<std::string>>& fields, std::vector<SourceFile>& sources)
{
    for (const auto& [key, values] : fields)
        if (values.size() != 1 && values.size() != files.size())
            return "a metadata value was given " + std::to_string(values.size()) + " times for " +
                   std::to_string(files.size()) + " files: give it once for all, or once per file";
    sources.assign(files.size(), SourceFile());
    for (size_t i = 0; i < files.size(); ++i)
        if (std::string error; !SourceFile::open(files[i], sources[i], error))
            return error;
    return {};
}

std::string eventData(const char* name, const std::string& value)
{
    Attributes data;
    data.set(name, String(value.c_str()));
    return Json::toText(data);
}

} // namespace

int showGadget(const GadgetOptions& options)
{
    if (int code = checkFieldValues(options.fields, &options.product); code != kDone)
        return code;
    std::vector<SourceFile> sources;
    if (int code = openSourceFiles(options.files, options.fields, sources); code != kDone)
        return code;
    // The folders are looked at first: a missing one is a mistake to hear of before anything starts.
    std::unique_ptr<FolderWatch> watch;
    if (!options.watchFolders.empty())
    {
        std::string error;
        watch = FolderWatch::create({options.watchFolders.begin(), options.watchFolders.end()}, {}, error);
        if (!watch)
        {
            complain("%s", error.c_str());
            return kUsage;
        }
    }

    // The ledger is opened before anything starts: the gadget records what it publishes there,
    // and one that cannot be used is a mistake to hear of now, not after an upload.
    std::string error;
    const std::unique_ptr<PublishLedger> ledger = PublishLedger::open(PublishLedger::defaultFile(), error);
    if (!ledger)
    {
        complain("%s", error.c_str());
        return kConfiguration;
    }

    Runtime runtime;
    if (int code = runtime.start(); code != kDone)
        return code;
    const Ref<Engine::IPublisher> publisher = runtime.createPublisher();
    if (!publisher)
        return kServiceFailed;

    RenderedBatch batch;
    if (!sources.empty())
        if (int code = renderAndPublish(*publisher, sources, options.fields, options.product, false, options.jobs, batch); code != kDone)
            return code;

    ITheme* theme = GetThemeManager() ? GetThemeManager()->getTheme(kThemeName) : nullptr;
    IThemeElement* clientForm = theme ? theme->getForm("SorvelClient") : nullptr;
    if (!clientForm)
    {
        batch.removeFolder();
        complain("the plug-in's theme has no gadget form\n");
        return kServiceFailed;
    }
    const char* title = clientForm->getAttribute("title");
    const GadgetPage page = GadgetPage::build(*theme, {"SorvelDashboard", "SorvelClient"}, title ? title : "Sorvel");
    const std::filesystem::path dropFolder = makeCacheFolder("dropped", error);
    if (dropFolder.empty())
    {
        batch.removeFolder();
        complain("%s\n", error.c_str());
        return kServiceFailed;
    }
    // Judged against the product the files were handed to, before the page's table view takes
    // the model (the report selects rows through a view of its own).
    std::map<std::string, Ref<Attributes>> reports;
    if (!batch.files.empty())
    {
        const PreflightReport report = preflightOfTable(runtime.gadget(), batch, runtime.preflightLimits());
        for (size_t i = 0; i < batch.files.size(); ++i)
            reports[batch.files[i].output.string()] = preflightDocument(batch.files[i], report.rows[i]);
    }
    auto session = makeRef<GadgetSession>(runtime.gadget().component(), page, kThemeName);
    session->setFileReports(reports);
    // From here on the files handed over, the first ones included, are the hand-over's to keep.
    auto handOver = std::make_unique<LiveHandOver>(runtime, *publisher, *session, options.jobs);
    handOver->adopt(std::move(batch), std::move(reports));
    handOver->useLedger(*ledger, options.force);
    session->beforePress = [&](const std::string&) { handOver->beforePress(); };
    batch = RenderedBatch();
    GadgetServer server(*session, page, *theme, dropFolder);

    // Each finished export of a watched folder goes to the gadget as the files named on the
    // command line went: with the metadata given once for all files, and the product named.
    std::map<std::string, std::vector<std::string>> watchedFields;
    for (const auto& [key, values] : options.fields)
        if (values.size() == 1)
            watchedFields[key] = values;
    bool watchEnded = false;
    auto takeWatched = [&] {
        if (!watch || watchEnded)
            return;
        for (const FolderWatch::Event& event : watch->collect())
        {
            std::string reason = event.message;
            if (event.kind == FolderWatch::Event::Kind::Finished)
            {
                LiveHandOver::Request request{{SourceFile()}, watchedFields, options.product};
                if (SourceFile::open(event.path, request.sources[0], reason))
                {
                    handOver->enqueue(std::move(request));
                    continue;
                }
            }
            if (event.kind == FolderWatch::Event::Kind::Failed)
            {
                complain("%s", reason.c_str());
                watchEnded = true;
                return;
            }
            std::printf("Skipped %s: %s\n", printable(event.path.string()).c_str(), printable(reason).c_str());
            flushOutput(stdout);
        }
    };
    std::unique_ptr<DescriptorWaker> waker;
    std::unique_ptr<HandOverSocket> mailbox;

    auto cleanUp = [&] {
        mailbox.reset();
        waker.reset();
        session->beforePress = nullptr;
        runtime.alerts().onAlert = nullptr;
        runtime.pages().onOpen = nullptr;
        runtime.context().onActivate = nullptr;
        session->close();
        handOver.reset();
        std::error_code ignored;
        std::filesystem::remove_all(dropFolder, ignored);
    };
    if (!server.start(error))
    {
        cleanUp();
        complain("%s\n", error.c_str());
        return kServiceFailed;
    }
    runtime.alerts().onAlert = [&](const std::string& text) { session->queueEvent("alert", eventData("text", text)); };
    runtime.pages().onOpen = [&](const std::string& url) { session->queueEvent("openUrl", eventData("url", url)); };
    runtime.context().onActivate = [&] { session->queueEvent("activate", "{}"); };
    if (runtime.context().activations() > 0) // the publisher asked when it took the files
        session->queueEvent("activate", "{}");

    const std::string address = server.address();
    std::printf("Sorvel gadget: %s\n", address.c_str());
    // The browser may read its page only later (xdg-open hands it to a browser already running):
    // the page stays until the gadget ends.
    const RedirectPage redirect(options.openBrowser ? writeRedirectPage(address) : std::filesystem::path());
    if (!options.openBrowser || !openInBrowser(redirect.path))
        std::printf("Open this address in a browser on this machine. Press Ctrl+C to stop.\n");
    else
        std::printf("Opened in the browser. Press Ctrl+C to stop.\n");
    for (const std::filesystem::path& folder : watch ? watch->folders() : std::vector<std::filesystem::path>())
        std::printf("Watching %s\n", folder.c_str());
    flushOutput(stdout);
    if (watch)
        waker = std::make_unique<DescriptorWaker>(watch->descriptor(), takeWatched);
    // `sorvel add` of this user hands its files here, as the command line's were handed.
    std::string note;
    mailbox = HandOverSocket::open(
        [&](const HandOverSocket::Request& request) {
            HandOverSocket::Answer answer;
            answer.address = address;
            LiveHandOver::Request taken{{}, request.fields, request.product};
            answer.error = openHandedFiles(request.files, request.fields, taken.sources);
            if (answer.error.empty())
            {
                answer.taken = static_cast<int>(taken.sources.size());
                handOver->enqueue(std::move(taken));
            }
            return answer;
        },
        note);
    if (!mailbox)
        complain("%s", note.c_str());

    // The page hears of content changes at most every 40 ms: an upload's progress signals far
    // more often than a screen can show, and each state the page is sent is the whole table
    // drawn again. Alerts and property changes go at once. Files waiting for the gadget are
    // looked at every 100 ms (the end of an upload and of the reload after it).
    constexpr auto kEventSpacing = std::chrono::milliseconds(40);
    constexpr auto kWaitingLook = std::chrono::milliseconds(100);
    IRunLoop* loop = GetRunLoop();
    auto lastSent = std::chrono::steady_clock::now() - kEventSpacing;
    while (!gInterrupted.load(std::memory_order_relaxed) && !watchEnded)
    {
        takeWatched(); // the files whose settle time passed
        if (handOver->hasWaiting() && handOver->handOverWaiting() == kInterrupted)
            break;
        handOver->leaveOutUnchanged();
        const auto now = std::chrono::steady_clock::now();
        if (session->hasUrgent() || (session->hasPending() && now - lastSent >= kEventSpacing))
        {
            server.broadcast(session->takeEvents());
            lastSent = now;
        }
        auto wait = session->hasPending() ? std::chrono::duration_cast<std::chrono::milliseconds>(kEventSpacing - (now - lastSent))
                                          : std::chrono::milliseconds(250);
        if (handOver->hasWaiting())
            wait = std::min(wait, kWaitingLook);
        if (const auto due = watch ? watch->nextDue() : std::nullopt)
            wait = std::min(wait, std::chrono::duration_cast<std::chrono::milliseconds>(*due - now) + std::chrono::milliseconds(1));
        loop->processEvents(static_cast<uint32>(std::max<long long>(1, wait.count())));
    }
    // An upload under way is cancelled before its rendered files go.
    if (runtime.gadget().isUploading())
    {
        runtime.gadget().press("cancel");
        EventWait::until([&] { return !runtime.gadget().isUploading(); }, Runtime::waitLimitMs());
    }
    server.stop();
    cleanUp();
    std::printf("Stopped.\n");
    return watchEnded ? kUsage : kDone;
}

int addToGadget(const GadgetOptions& options)
{
    if (int code = checkFieldValues(options.fields, &options.product); code != kDone)
        return code;
    HandOverSocket::Request request;
    for (const std::string& file : options.files)
    {
        // As the gadget must find them, whatever folder it runs in.
        std::error_code failure;
        request.files.push_back(std::filesystem::absolute(file, failure).lexically_normal().string());
    }
    request.product = options.product;
    request.fields = options.fields;
    HandOverSocket::Answer answer;
    std::string error;
    switch (HandOverSocket::send(request, answer, error))
    {
    case HandOverSocket::Delivery::Taken:
        if (!answer.error.empty())
        {
            complain("the open gadget took nothing: %s", answer.error.c_str());
            return kUsage;
        }
        std::printf("Handed %d file%s to the open gadget: %s\n", answer.taken, answer.taken == 1 ? "" : "s",
                    answer.address.c_str());
        return kDone;
    case HandOverSocket::Delivery::NoGadget:
        return showGadget(options); // none is open: this one opens, with the files
    case HandOverSocket::Delivery::Failed:
        break;
    }
    complain("%s", error.c_str());
    return kServiceFailed;
}

} // namespace Host

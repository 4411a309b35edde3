#include "host/app/Runtime.h"

#include "framework/hostsupport/EventWait.h"
#include "framework/interfaces/IComponent.h"
#include "framework/services/AudioServices.h"
#include "framework/services/GuiServices.h"
#include "framework/services/NetServices.h"
#include "framework/services/SystemServices.h"
#include "host/config/ConfigurationProvider.h"
#include "host/terminal/PasswordInput.h"
#include "host/terminal/TerminalCredentialPrompt.h"
#include "sandbox/Sandbox.h"

#include "framework/data/Url.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Host {

using namespace KVX;

std::atomic<bool> gInterrupted{false};

namespace {

uint32 stallTimeoutSeconds = 0;

void onInterrupt(int)
{
    gInterrupted.store(true, std::memory_order_relaxed);
}

const char* const kLoginFailed = "Login failed. Please note that usernames and passwords are case sensitive.";
const char* const kSessionExpired = "Session expired. Please login again.";

/// Whether a connection to the server of `address` can be opened within a few seconds; a
/// sentence in `error` when not. The plug-in would only report a failed sign-in, which would
/// read as a refused login.
bool canConnect(const std::string& address, std::string& error)
{
    const Url url = Url::fromDisplayString(address);
    const std::string host = url.host().view().empty() ? std::string() : std::string(url.host().view());
    const int port = url.port() ? url.port() : (url.protocol() == "https" ? 443 : 80);
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (host.empty() || getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0)
    {
        error = "cannot reach the service at " + address + ": unknown host";
        return false;
    }
    std::string reason = "no address";
    bool connected = false;
    for (addrinfo* candidate = found; candidate && !connected; candidate = candidate->ai_next)
    {
        const int fd = socket(candidate->ai_family, candidate->ai_socktype | SOCK_NONBLOCK, candidate->ai_protocol);
        if (fd < 0)
            continue;
        int result = connect(fd, candidate->ai_addr, candidate->ai_addrlen);
        if (result != 0 && errno == EINPROGRESS)
        {
            pollfd wait = {fd, POLLOUT, 0};
            int pending = 0;
            socklen_t length = sizeof pending;
            result = poll(&wait, 1, 5000) == 1 && getsockopt(fd, SOL_SOCKET, SO_ERROR, &pending, &length) == 0 && !pending
                         ? 0
                         : -1;
            errno = pending ? pending : ETIMEDOUT;
        }
        connected = result == 0;
        if (!connected)
            reason = std::strerror(errno);
        close(fd);
    }
    freeaddrinfo(found);
    if (!connected)
        error = "cannot reach the service at " + address + ": " + reason;
    return connected;
}

} // namespace

void installInterruptHandler()
{
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

Runtime::Runtime() = default;

void Runtime::setStallTimeout(uint32 seconds)
{
    stallTimeoutSeconds = seconds;
}

Runtime::~Runtime()
{
    if (gadget_)
        gadget_->close();
    gadget_.reset();
    plugin_.unload();
    if (IAlertService* alerts = GetAlertService())
        alerts->setPresenter(nullptr);
    if (ISystemShell* shell = GetSystemShell())
        shell->setUrlOpener(nullptr);
    ConfigurationProvider::uninstall();
    if (sandbox_)
        sandbox_->stop();
}

int Runtime::waitFailure() const
{
    if (gInterrupted.load(std::memory_order_relaxed))
        return kInterrupted;
    std::fprintf(stderr, "sorvel: the service did not finish answering within %u s. Try again in a moment.\n",
                 kTimeoutMs / 1000);
    return kServiceFailed;
}

bool Runtime::configure(std::string& error)
{
    Settings settings;
    if (!Settings::load(settings, error))
        return false;
    limits_ = settings.preflight;
    if (!settings.hasServer())
    {
        // No service configured: the embedded emulator stands in, with its demo account.
        sandbox_ = std::make_unique<SorvelSandbox::Sandbox>();
        SorvelSandbox::Sandbox::Options options;
        std::string failure;
        if (sandbox_->start(options, failure) <= 0)
        {
            error = "cannot start the embedded sandbox: " + failure;
            return false;
        }
        settings.serverUrl = sandbox_->baseUrl();
        settings.loginUrl = sandbox_->loginUrl();
        settings.partnerId = sandbox_->partnerId();
        settings.partnerKey = sandbox_->partnerKey();
        std::fprintf(stderr, "sorvel: no service configured; using the embedded sandbox at %s (demo account)\n",
                     settings.serverUrl.c_str());
    }
    else if (!canConnect(settings.serverUrl, error))
    {
        unreachable_ = true;
        return false;
    }
    return ConfigurationProvider::install(settings, error);
}

int Runtime::startModules()
{
    if (GetRunLoop()->attachToCurrentThread() != kResultOk || RegisterWebServiceClasses() != kResultOk ||
        RegisterAudioFileClass() != kResultOk)
    {
        std::fprintf(stderr, "sorvel: the host's modules could not be started\n");
        return kServiceFailed;
    }
    return kDone;
}

int Runtime::loadPlugin()
{
    const std::string pluginPath = PluginLibrary::defaultPath();
    if (pluginPath.empty())
    {
        std::string folders;
        for (const std::string& folder : PluginLibrary::searchFolders())
            folders += "\n  " + folder;
        std::fprintf(stderr, "sorvel: no plug-in sorvel.so found; looked in:%s\nInstall it in one of them, or name it "
                             "in SORVEL_PLUGIN.\n",
                     folders.c_str());
        return kConfiguration;
    }
    if (std::string error; !plugin_.load(pluginPath, error))
    {
        std::fprintf(stderr, "sorvel: %s\n", error.c_str());
        return kServiceFailed;
    }
    return kDone;
}

int Runtime::startOffline()
{
    if (int code = startModules(); code != kDone)
        return code;
    Settings settings;
    // Nothing is sent, so a service configured only in part does not matter here.
    if (std::string error; !Settings::read(settings, error))
    {
        std::fprintf(stderr, "sorvel: %s\n", error.c_str());
        return kConfiguration;
    }
    limits_ = settings.preflight;
    return loadPlugin();
}

int Runtime::start()
{
    if (int code = startModules(); code != kDone)
        return code;
    if (stallTimeoutSeconds)
        GetWebService()->setTimeouts(0, stallTimeoutSeconds * 1000);
    std::string error;
    if (!configure(error))
    {
        std::fprintf(stderr, "sorvel: %s\n", error.c_str());
        return unreachable_ ? kServiceFailed : kConfiguration;
    }
    alerts_ = makeRef<AlertCollector>();
    GetAlertService()->setPresenter(alerts_);
    pages_ = makeRef<OpenedPages>();
    GetSystemShell()->setUrlOpener(pages_);

    if (int code = loadPlugin(); code != kDone)
        return code;
    auto* component = static_cast<IComponent*>(plugin_.create("Gadget", IComponent::kIID));
    if (!component)
    {
        std::fprintf(stderr, "sorvel: the plug-in offers no gadget\n");
        return kServiceFailed;
    }
    context_ = makeRef<HostContext>();
    gadget_ = makeRef<Gadget>();
    gadget_->open(component, static_cast<IHostContextActivation*>(context_.get()));
    component->release(); // the gadget holds it
    return kDone;
}

Ref<Engine::IPublisher> Runtime::createPublisher()
{
    auto* publisher = static_cast<Engine::IPublisher*>(plugin_.create("Publisher", Engine::IPublisher::kIID));
    if (!publisher)
        std::fprintf(stderr, "sorvel: the plug-in offers no publishing target\n");
    return Ref<Engine::IPublisher>::adopt(publisher);
}

bool Runtime::productsListed() const
{
    return !gadget_->entries("titlesList").empty();
}

int Runtime::productsNotListed()
{
    std::string reason = takeServiceFailure();
    if (reason.empty())
        reason = "the service's answer held no list of products";
    std::fprintf(stderr, "sorvel: the account's products could not be listed (%s). Try again in a moment.\n",
                 reason.c_str());
    return kServiceFailed;
}

std::string Runtime::takeServiceFailure()
{
    char text[512];
    Web::IWebService* service = GetWebService();
    return service && service->takeLastFailure(text, sizeof text) > 0 ? std::string(text) : std::string();
}

int Runtime::signIn(const LoginOptions& options)
{
    Gadget& gadget = *gadget_;
    if (!gadget.settle(kTimeoutMs, &gInterrupted))
        return waitFailure();
    if (gadget.phase() == Gadget::kSignedIn && (options.user.empty() || gadget.text("Credentials.username") == options.user))
        return kDone;

    std::string user = options.user.empty() ? gadget.text("Credentials.username") : options.user;
    bool remember = options.remember;
    std::string password;
    if (options.passwordFromStdin)
    {
        if (!readPasswordFromStdin(password))
        {
            std::fprintf(stderr, "sorvel: no password on standard input\n");
            return kUsage;
        }
    }
    else if (!options.user.empty() || gadget.text("Credentials.password").empty())
    {
        if (user.empty() && sandbox_)
        {
            const auto demo = sandbox_->demoLogin();
            user = demo.username;
            password = demo.password;
        }
        else if (!hasTerminal())
        {
            std::fprintf(stderr, "sorvel: not signed in: give --user NAME and the password on standard input "
                                 "(--password-stdin), or run `sorvel signin` once with --remember\n");
            return kUsage;
        }
        else
        {
            // The theme's login dialog, on the terminal.
            TerminalIO terminal;
            auto dialog = makeRef<TerminalCredentialPrompt>(terminal);
            dialog->setSuggestedUserName(user);
            Security::CredentialPromptRequest request;
            request.description = String("Sign in to your Sorvel account.");
            request.flags = Security::CredentialPromptRequest::kAlwaysShow |
                            (remember ? Security::CredentialPromptRequest::kSave : 0u);
            if (!dialog->prompt(request))
            {
                std::fprintf(stderr, "sorvel: sign-in cancelled\n");
                return gInterrupted.load(std::memory_order_relaxed) ? kInterrupted : kUsage;
            }
            user = request.userName.toUtf8();
            password = request.password.toUtf8();
            remember = (request.flags & Security::CredentialPromptRequest::kSave) != 0;
        }
    }
    else
        password = gadget.text("Credentials.password");

    gadget.setText("Credentials.username", user);
    gadget.setText("Credentials.password", password);
    if (remember)
        gadget.setNumber("Credentials.saveChecked", 1);
    takeServiceFailure(); // what failed before this sign-in is not its reason
    alerts_->hold();
    gadget.press("signIn");
    const bool settled = gadget.settle(kTimeoutMs, &gInterrupted);
    // The plug-in reports any failed sign-in as a refused login; one whose request got no answer
    // (or a server error) says nothing about the password, and is told as what it is.
    if (settled && gadget.phase() != Gadget::kSignedIn && !alerts_->contains(kSessionExpired))
        if (const std::string failure = takeServiceFailure(); !failure.empty())
        {
            alerts_->printHeld(kLoginFailed);
            std::fprintf(stderr, "sorvel: cannot sign in: the service did not answer (%s); the login was not "
                                 "checked. Try again in a moment.\n",
                         failure.c_str());
            return kServiceFailed;
        }
    alerts_->printHeld();
    if (!settled)
        return waitFailure();
    // The products are asked for right after the sign-in; a session refused there ends it too.
    if (alerts_->contains(kSessionExpired))
        return kSignInRefused;
    if (gadget.phase() == Gadget::kSignedIn)
        return kDone;
    return alerts_->contains(kLoginFailed) ? kSignInRefused : kServiceFailed;
}

} // namespace Host

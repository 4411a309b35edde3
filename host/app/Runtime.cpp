#include "host/app/Runtime.h"
#include "host/app/Complaint.h"

#include "framework/hostsupport/EventWait.h"
#include "framework/interfaces/IComponent.h"
#include "framework/interfaces/TextKeys.h"
#include "framework/services/AudioServices.h"
#include "framework/services/GuiServices.h"
#include "framework/services/ICredential.h"
#include "framework/services/ICredentialManager.h"
#include "framework/services/NetServices.h"
#include "framework/services/SecurityServices.h"
#include "framework/services/SystemServices.h"
#include "host/config/ConfigurationProvider.h"
#include "host/config/LanguageFile.h"
#include "host/terminal/PasswordInput.h"
#include "host/terminal/TerminalCredentialPrompt.h"
#include "sandbox/Sandbox.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <curl/curl.h>
#include <filesystem>
#include <unistd.h>

namespace Host {

using namespace KVX;

std::atomic<bool> gInterrupted{false};
std::atomic<bool> gTerminated{false};

namespace {

uint32 stallTimeoutSeconds = 0;
std::atomic<bool> terminateFinishesWork{false};
/// The signal that interrupted the command first (0: none yet).
std::atomic<int> interruptingSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "set from a signal handler");

void onInterrupt(int signal)
{
    if (signal == SIGTERM)
    {
        gTerminated.store(true, std::memory_order_relaxed);
        if (terminateFinishesWork.load(std::memory_order_relaxed))
            return;
    }
    int none = 0;
    interruptingSignal.compare_exchange_strong(none, signal, std::memory_order_relaxed);
    gInterrupted.store(true, std::memory_order_relaxed);
}

using Engine::TextKeys::kLoginFailed;
using Engine::TextKeys::kSessionExpired;

/// As long as the network module gives a request to connect.
constexpr long kConnectLimitMs = 15000;

/// Whether a connection to the server of `address` can be opened as the requests will open it:
/// through the proxy the environment names for it (`https_proxy`, `http_proxy`, `all_proxy`, not
/// for hosts in `no_proxy`), within the time a request is given to connect or `--timeout` when
/// that is shorter. A sentence in `error` when not. The plug-in would only report a failed
/// sign-in, which would read as a refused login.
bool canConnect(const std::string& address, std::string& error)
{
    CURL* probe = curl_easy_init();
    if (!probe)
    {
        error = "cannot reach the service at " + address + ": no connection could be set up";
        return false;
    }
    char reason[CURL_ERROR_SIZE] = "";
    const long limitMs = std::min<long>(kConnectLimitMs, Runtime::stallTimeout() * 1000L);
    curl_easy_setopt(probe, CURLOPT_URL, address.c_str());
    curl_easy_setopt(probe, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(probe, CURLOPT_CONNECT_ONLY, 1L);
    curl_easy_setopt(probe, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(probe, CURLOPT_CONNECTTIMEOUT_MS, limitMs);
    curl_easy_setopt(probe, CURLOPT_ERRORBUFFER, reason);
    // Only whether the server can be reached: its certificate is checked by every request, which
    // says what is wrong with it.
    curl_easy_setopt(probe, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(probe, CURLOPT_SSL_VERIFYHOST, 0L);
    const CURLcode code = curl_easy_perform(probe);
    curl_easy_cleanup(probe);
    if (code == CURLE_OK)
        return true;
    error = "cannot reach the service at " + address + ": " + (reason[0] ? reason : curl_easy_strerror(code));
    return false;
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

int exitCodeOf(int code)
{
    if (code != kInterrupted)
        return code;
    return interruptingSignal.load(std::memory_order_relaxed) == SIGTERM ? kTerminated : kInterrupted;
}

const char* interruptReason()
{
    return exitCodeOf(kInterrupted) == kTerminated ? "stopped by SIGTERM" : "cancelled with Ctrl-C";
}

void finishWorkOnTerminate()
{
    terminateFinishesWork.store(true, std::memory_order_relaxed);
}

Runtime::Runtime() = default;

void Runtime::setStallTimeout(uint32 seconds)
{
    stallTimeoutSeconds = seconds;
}

uint32 Runtime::stallTimeout()
{
    return stallTimeoutSeconds ? stallTimeoutSeconds : kDefaultStallTimeoutSeconds;
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
    if (answers_)
        GetWebService()->setCallObserver(nullptr);
    ConfigurationProvider::uninstall();
    if (sandbox_)
        sandbox_->stop();
}

uint32 Runtime::waitLimitMs()
{
    return std::max<uint32>(60000, 3 * stallTimeout() * 1000);
}

int Runtime::waitFailure() const
{
    if (gInterrupted.load(std::memory_order_relaxed))
        return kInterrupted;
    complain("the service did not finish answering within %u s. Try again in a moment.\n", waitLimitMs() / 1000);
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
        complain("no service configured; using the embedded sandbox at %s (demo account)\n",
                     settings.serverUrl.c_str());
    }
    else if (!canConnect(settings.serverUrl, error))
    {
        unreachable_ = true;
        return false;
    }
    serviceUrl_ = settings.serverUrl;
    return ConfigurationProvider::install(settings, error);
}

int Runtime::findPlugin()
{
    pluginPath_ = PluginLibrary::defaultPath();
    if (pluginPath_.empty())
    {
        std::string folders;
        for (const std::string& folder : PluginLibrary::searchFolders())
            folders += "\n  " + folder;
        complain("no plug-in sorvel.so found; looked in:%s\nInstall it in one of them, or name it "
                             "in SORVEL_PLUGIN.\n",
                     folders.c_str());
        return kConfiguration;
    }
    if (std::error_code failure; !std::filesystem::is_regular_file(pluginPath_, failure))
    {
        complain("the plug-in %s (SORVEL_PLUGIN) is not a file\n", pluginPath_.c_str());
        return kConfiguration;
    }
    return kDone;
}

int Runtime::loadPlugin()
{
    // A library that is no plug-in, or a plug-in that refused to start, is an installation that
    // cannot be used, as a plug-in that is not there.
    if (std::string error; !plugin_.load(pluginPath_, error))
    {
        complain("%s\n", error.c_str());
        return kConfiguration;
    }
    return kDone;
}

int Runtime::startModules()
{
    // What can be found out without starting anything is checked first: where the plug-in is and
    // the language its texts are shown in.
    if (int code = findPlugin(); code != kDone)
        return code;
    if (std::string error; !LanguageFile::load(error))
    {
        complain("%s\n", error.c_str());
        return kConfiguration;
    }
    if (GetRunLoop()->attachToCurrentThread() != kResultOk || RegisterWebServiceClasses() != kResultOk ||
        RegisterAudioFileClass() != kResultOk)
    {
        complain("the host's modules could not be started\n");
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
        complain("%s\n", error.c_str());
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
        complain("%s\n", error.c_str());
        return unreachable_ ? kServiceFailed : kConfiguration;
    }
    alerts_ = makeRef<AlertCollector>();
    GetAlertService()->setPresenter(alerts_);
    answers_ = makeRef<ServiceAnswers>();
    GetWebService()->setCallObserver(answers_);
    pages_ = makeRef<OpenedPages>();
    GetSystemShell()->setUrlOpener(pages_);

    if (int code = loadPlugin(); code != kDone)
        return code;
    auto* component = static_cast<IComponent*>(plugin_.create("Gadget", IComponent::kIID));
    if (!component)
    {
        complain("the plug-in offers no gadget\n");
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
        complain("the plug-in offers no publishing target\n");
    return Ref<Engine::IPublisher>::adopt(publisher);
}

bool Runtime::productsListed() const
{
    return !gadget_->entries("titlesList").empty();
}

bool Runtime::listProductsAgain()
{
    const unsigned before = answers_->catalogue().generation;
    if (!gadget_->chooseMenuCommand("titlesList", "Application", "Request Titles"))
        return false;
    return gadget_->settle(waitLimitMs(), &gInterrupted) && answers_->catalogue().generation != before;
}

int Runtime::productsNotListed()
{
    std::string reason = takeServiceFailure();
    if (reason.empty())
        reason = "the service's answer held no list of products";
    complain("the account's products could not be listed (%s). Try again in a moment.\n",
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
    takeServiceFailure(); // what failed before this command is not its reason
    const auto started = std::chrono::steady_clock::now();
    if (!gadget.settle(waitLimitMs(), &gInterrupted))
        return waitFailure();
    // The gadget's start (a silent sign-in with the stored login) waited a whole time-out for an
    // answer that did not come: the service is not answering, and a sign-in would only wait as
    // long again. A quick failure (a dropped connection) is worth the sign-in that follows.
    if (gadget.phase() != Gadget::kSignedIn &&
        std::chrono::steady_clock::now() - started >= std::chrono::seconds(stallTimeout()))
        if (const std::string failure = takeServiceFailure(); !failure.empty())
        {
            complain("cannot sign in: the service did not answer (%s). Try again in a moment.", failure.c_str());
            return kServiceFailed;
        }
    if (gadget.phase() == Gadget::kSignedIn && (options.user.empty() || gadget.text("Credentials.username") == options.user))
        return kDone;
    // The silent sign-in took the stored login of another account than the one asked for: that
    // session is ended first, or the plug-in would take it for the sign-in asked for (and the
    // files would go to the other account). The stored login stays in the keyring.
    if (gadget.phase() == Gadget::kSignedIn)
    {
        gadget.press("signOut");
        if (!gadget.settle(waitLimitMs(), &gInterrupted))
            return waitFailure();
        if (gadget.phase() != Gadget::kSignedOut)
        {
            complain("cannot sign in as %s: the session of the stored login did not end", options.user.c_str());
            return kServiceFailed;
        }
    }

    std::string user = options.user.empty() ? gadget.text("Credentials.username") : options.user;
    bool remember = options.remember;
    std::string password;
    if (options.passwordFromStdin && user.empty())
    {
        complain("--password-stdin needs --user NAME: there is no stored login to go with the password");
        return kUsage;
    }
    if (options.passwordFromStdin && !options.password.empty())
        password = options.password;
    else if (options.passwordFromStdin)
    {
        if (!readPasswordFromStdin(password))
        {
            complain("no password on standard input\n");
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
            complain("not signed in: give --user NAME and the password on standard input "
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
                complain("sign-in cancelled\n");
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
    // Kept in the keyring only when asked for: a stored login ticks the plug-in's "remember" box,
    // and another login typed in without --remember must not take its place there.
    gadget.setNumber("Credentials.saveChecked", remember ? 1 : 0);
    takeServiceFailure(); // what failed before this sign-in is not its reason
    alerts_->hold();
    gadget.press("signIn");
    const bool settled = gadget.settle(waitLimitMs(), &gInterrupted);
    // The plug-in reports any failed sign-in as a refused login; one whose request got no answer
    // (or a server error) says nothing about the password, and is told as what it is.
    if (settled && gadget.phase() != Gadget::kSignedIn && !alerts_->contains(kSessionExpired))
        if (const std::string failure = takeServiceFailure(); !failure.empty())
        {
            alerts_->printHeld(kLoginFailed);
            complain("cannot sign in: the service did not answer (%s); the login was not "
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
    {
        if (remember && storedUser() != user)
        {
            rememberFailed_ = true;
            complain("signed in, but the login could not be kept in the keyring (is a Secret Service such as "
                     "gnome-keyring running and unlocked?); give the password again next time");
        }
        return kDone;
    }
    if (alerts_->contains(kLoginFailed))
        return kSignInRefused;
    complain("cannot sign in: the service's answer did not complete the sign-in");
    return kServiceFailed;
}

std::string Runtime::storedUser()
{
    ICredentialManager* store = GetCredentialManager();
    ICredential* found = nullptr;
    if (!store || store->lookup(kCredentialTarget, &found) != kResultOk || !found)
        return {};
    const Ref<ICredential> credential = Ref<ICredential>::adopt(found);
    const char* kept = credential->getUserName();
    return kept ? kept : "";
}

} // namespace Host

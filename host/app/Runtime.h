#pragma once

#include "framework/core/Ref.h"
#include "framework/interfaces/IPublisher.h"
#include "host/app/Gadget.h"
#include "host/app/HostObjects.h"
#include "host/app/PluginLibrary.h"
#include "host/app/ServiceAnswers.h"
#include "host/preflight/PreflightLimits.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace SorvelSandbox {
class Sandbox;
}

namespace Host {

/// Exit codes of the program.
enum ExitCode : int
{
    kDone = 0,
    kServiceFailed = 1,   ///< the service, the network or an upload failed, or the output could not be written
    kUsage = 2,           ///< bad arguments or unreadable input
    kSignInRefused = 3,   ///< the login was refused or the session expired
    kConfiguration = 4,   ///< the configuration cannot be used
    kPreflightFailed = 5, ///< the pre-flight report found an error (or, when strict, a warning)
    kInterrupted = 130,   ///< cancelled with Ctrl-C
    kTerminated = 143,    ///< stopped by SIGTERM
};

/// Set by SIGINT, and by SIGTERM unless a command finishes its work on SIGTERM; long waits end
/// when it turns true.
extern std::atomic<bool> gInterrupted;
/// Set by SIGTERM.
extern std::atomic<bool> gTerminated;
void installInterruptHandler();
/// The exit code a command that was interrupted ends with (the commands themselves return
/// kInterrupted for either signal): kTerminated when SIGTERM ended it, else kInterrupted. Any other
/// code is returned as it is.
int exitCodeOf(int code);
/// What ended an interrupted command, in words: "cancelled with Ctrl-C" or "stopped by SIGTERM".
const char* interruptReason();
/// From now on SIGTERM only sets gTerminated, so that the work under way finishes before the
/// command ends (the hot folder's running batch); Ctrl-C still interrupts.
void finishWorkOnTerminate();

/// What the user asked for about signing in.
struct LoginOptions
{
    std::string user;           ///< --user; empty: the stored or embedded login
    bool passwordFromStdin = false;
    std::string password;       ///< the password already read from standard input, for a second sign-in
    bool remember = false;      ///< store the login in the keyring after it succeeded
};

/// The host around one command: the host's services started as a workstation starts them, the
/// service's address (configured, or the embedded sandbox), the plug-in loaded and its gadget
/// opened. Everything runs on this thread, which is the user-interface thread.
class Runtime
{
public:
    /// How long the host waits for the gadget to be done with one step (the sign-in and the
    /// figures and products that follow it, a reload of the products, the end of a batch): a
    /// minute, or three requests' stall time-outs when --timeout makes that longer.
    static KVX::uint32 waitLimitMs();

    Runtime();
    ~Runtime();

    /// How long a request may go without any data moving before it fails (the network module's
    /// stall time-out); 0 keeps the module's default. Applies to runtimes started afterwards.
    static void setStallTimeout(KVX::uint32 seconds);
    /// The stall time-out in force, in seconds.
    static KVX::uint32 stallTimeout();
    /// The network module's own stall time-out, which --timeout replaces.
    static constexpr KVX::uint32 kDefaultStallTimeoutSeconds = 30;

    /// Starts everything up to an opened gadget. On failure returns the exit code, having said
    /// why on standard error.
    int start();
    /// Starts the host's modules and loads the plug-in, and nothing of the service: enough to ask
    /// the publishing target for its format. Exit code as for start.
    int startOffline();
    /// Where the pre-flight report warns, as configured (read by start and startOffline).
    const PreflightLimits& preflightLimits() const { return limits_; }
    /// Signs in unless the silent sign-in did: the typed or prompted login, the stored one, or on
    /// the embedded sandbox its demo login. kDone, kSignInRefused, kUsage or kServiceFailed.
    int signIn(const LoginOptions& options);

    /// Whether the account's products were read after the sign-in. The gadget's product list
    /// always ends in the entry that proposes a new product once a list arrived, and stays empty
    /// when the service's answer could not be read.
    bool productsListed() const;
    /// Reads the account's products again, as the product list's "Refresh" entry does in the
    /// gadget's form, and waits for the answer: true when the service answered with the list,
    /// false when it did not answer, refused, or Ctrl-C ended the wait.
    bool listProductsAgain();
    /// Says on standard error that the products could not be listed; returns kServiceFailed.
    static int productsNotListed();
    /// The last request since the previous call that got no usable answer from the service (no
    /// answer, or an HTTP status of 500 or more), as a sentence; empty when every one was answered.
    static std::string takeServiceFailure();

    /// The plug-in's publishing target, or nothing after saying on standard error that there is none.
    KVX::Ref<Engine::IPublisher> createPublisher();

    Gadget& gadget() { return *gadget_; }
    PluginLibrary& plugin() { return plugin_; }
    AlertCollector& alerts() { return *alerts_; }
    OpenedPages& pages() { return *pages_; }
    /// The reasons the service gave for what it refused.
    ServiceAnswers& answers() { return *answers_; }
    HostContext& context() { return *context_; }
    bool usesEmbeddedSandbox() const { return sandbox_ != nullptr; }
    /// The service's API address in use (configured, or the embedded sandbox's).
    const std::string& serviceUrl() const { return serviceUrl_; }
    /// Whether a sign-in asked to remember the login and the keyring did not keep it.
    bool rememberFailed() const { return rememberFailed_; }
    /// The user name of the login kept in the keyring; empty when there is none (or no keyring).
    static std::string storedUser();
    /// The host name under which the plug-in keeps the user's login in the keyring.
    static constexpr const char* kCredentialTarget = "sorvel.com";
    /// What stopped a wait: kInterrupted after Ctrl-C, else kServiceFailed.
    int waitFailure() const;

private:
    bool configure(std::string& error);
    int findPlugin();
    int startModules();
    int loadPlugin();

    std::unique_ptr<SorvelSandbox::Sandbox> sandbox_;
    bool unreachable_ = false; ///< the configured server did not answer
    bool rememberFailed_ = false;
    PreflightLimits limits_;
    std::string pluginPath_;
    std::string serviceUrl_;
    PluginLibrary plugin_;
    KVX::Ref<Gadget> gadget_;
    KVX::Ref<HostContext> context_;
    KVX::Ref<AlertCollector> alerts_;
    KVX::Ref<OpenedPages> pages_;
    KVX::Ref<ServiceAnswers> answers_;
};

} // namespace Host

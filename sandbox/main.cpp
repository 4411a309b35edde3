// sorvel-sandbox: runs the local emulator of the Sorvel web service until it is interrupted.

#include "Sandbox.h"

#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>

namespace
{

constexpr int kExitStartFailed = 1;
constexpr int kExitUsage = 2;

const char* const kUsage = R"(Usage: sorvel-sandbox [options]

Runs a local emulator of the Sorvel web service (JSON API, upload target, web login page) until
interrupted with Ctrl+C or SIGTERM. At start it prints the API base URL, the login URL, the partner
id and key, and the demo login.

Options:
  --port N          port to listen on (default 8480; 0 picks a free port)
  --bind ADDRESS    address to listen on (default 127.0.0.1; keep it local, see README.md)
  --seed FILE       accounts and catalogue from this JSON file (default: a built-in demo account)
  --data DIR        keep the catalogue and the uploaded files in DIR across restarts
  --tls-cert FILE   serve HTTPS with this PEM certificate (needs --tls-key)
  --tls-key FILE    the PEM private key of the certificate
  --slow-upload MS  answer every file upload MS milliseconds late (to watch progress, try cancelling)
  --drop-connections N
                    a failing link: reset every Nth connection at its first request, which takes
                    no effect (a file post is cut at half its body)
  --requests-per-connection N
                    close a connection after N requests (default 1000), so that clients open new
                    ones more often
  --quiet           print no line per request
  --help            show this text

SIGUSR1 makes every token handed out so far answer 403, as an expired sign-in does (the sandbox
says "Sessions expired." and goes on).

Exit status: 0 after an interrupt, 1 when the sandbox cannot start, 2 for bad arguments.
)";

int usageError(const std::string& message)
{
    std::fprintf(stderr, "sorvel-sandbox: %s (see --help)\n", message.c_str());
    return kExitUsage;
}

bool parsePort(const std::string& text, int& port)
{
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    port = std::atoi(text.c_str());
    return port <= 65535;
}

} // namespace

int main(int argc, char** argv)
{
    SorvelSandbox::Sandbox::Options options;
    options.port = 8480;
    bool quiet = false;
    int uploadDelayMs = 0;

    for (int i = 1; i < argc; ++i)
    {
        std::string argument = argv[i];
        if (argument == "--help" || argument == "-h")
        {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (argument == "--quiet")
        {
            quiet = true;
            continue;
        }
        // Options with a value take it as the next argument or after "=".
        std::string value;
        bool hasValue = false;
        if (size_t equals = argument.find('='); argument.rfind("--", 0) == 0 && equals != std::string::npos)
        {
            value = argument.substr(equals + 1);
            argument.resize(equals);
            hasValue = true;
        }
        const bool takesValue = argument == "--port" || argument == "--bind" || argument == "--seed" ||
                                argument == "--data" || argument == "--tls-cert" || argument == "--tls-key" ||
                                argument == "--slow-upload" || argument == "--drop-connections" ||
                                argument == "--requests-per-connection";
        if (!takesValue)
            return usageError("unknown argument \"" + argument + "\"");
        if (!hasValue)
        {
            if (i + 1 >= argc)
                return usageError(argument + " needs a value");
            value = argv[++i];
        }
        if (value.empty())
            return usageError(argument + " needs a non-empty value");
        if (argument == "--port")
        {
            if (!parsePort(value, options.port))
                return usageError("--port takes a number from 0 to 65535, not \"" + value + "\"");
        }
        else if (argument == "--slow-upload")
        {
            if (value.size() > 7 || value.find_first_not_of("0123456789") != std::string::npos || std::atoi(value.c_str()) < 1)
                return usageError("--slow-upload takes milliseconds from 1 to 9999999, not \"" + value + "\"");
            uploadDelayMs = std::atoi(value.c_str());
        }
        else if (argument == "--drop-connections" || argument == "--requests-per-connection")
        {
            if (value.size() > 6 || value.find_first_not_of("0123456789") != std::string::npos ||
                std::atoi(value.c_str()) < 1)
                return usageError(argument + " takes a number from 1 to 999999, not \"" + value + "\"");
            if (argument == "--drop-connections")
                options.dropEveryNthConnection = static_cast<unsigned>(std::atoi(value.c_str()));
            else
                options.requestsPerConnection = static_cast<size_t>(std::atoi(value.c_str()));
        }
        else if (argument == "--bind")
            options.bindAddress = value;
        else if (argument == "--seed")
            options.seedFile = value;
        else if (argument == "--data")
            options.dataDir = value;
        else if (argument == "--tls-cert")
            options.tlsCertFile = value;
        else
            options.tlsKeyFile = value;
    }
    if (options.tlsCertFile.empty() != options.tlsKeyFile.empty())
        return usageError("--tls-cert and --tls-key go together");

    // The server threads inherit this mask, so the signals reach the sigwait below.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    std::mutex printing;
    if (!quiet)
        options.onRequest = [&printing](const SorvelSandbox::LoggedRequest& entry) {
            // The query is left out: it carries tokens and password digests.
            const std::string path = entry.target.substr(0, entry.target.find('?'));
            std::string line = entry.method + " " + path + " -> ";
            line += entry.httpStatus == 0 ? std::string("no reply") : "HTTP " + std::to_string(entry.httpStatus);
            if (entry.statusCode != 0)
                line += ", status_code " + std::to_string(entry.statusCode);
            if (!entry.error.empty())
                line += ": " + entry.error;
            std::lock_guard lock(printing);
            std::printf("%s\n", line.c_str());
            std::fflush(stdout);
        };

    SorvelSandbox::Sandbox sandbox;
    std::string error;
    if (sandbox.start(options, error) < 0)
    {
        std::fprintf(stderr, "sorvel-sandbox: %s\n", error.c_str());
        return kExitStartFailed;
    }
    if (uploadDelayMs > 0)
        sandbox.injectFault(SorvelSandbox::Endpoint::Upload,
                            SorvelSandbox::Fault::delayed(std::chrono::milliseconds(uploadDelayMs)), 1, UINT_MAX);
    const SorvelSandbox::Sandbox::Login login = sandbox.demoLogin();
    std::printf("Sorvel sandbox listening on %s\n", options.bindAddress.c_str());
    std::printf("  API base URL: %s\n", sandbox.baseUrl().c_str());
    std::printf("  Login URL:    %s\n", sandbox.loginUrl().c_str());
    std::printf("  Partner id:   %s\n", sandbox.partnerId().c_str());
    std::printf("  Partner key:  %s\n", sandbox.partnerKey().c_str());
    std::printf("  Demo login:   %s / %s (account %lld)\n", login.username.c_str(), login.password.c_str(),
                static_cast<long long>(login.accountId));
    std::printf("  Data:         %s\n",
                options.dataDir.empty() ? "kept in a temporary folder until exit" : options.dataDir.c_str());
    if (options.dropEveryNthConnection > 0)
        std::printf("  Failing link: every connection numbered a multiple of %u is reset\n",
                    options.dropEveryNthConnection);
    std::printf("Press Ctrl+C to stop.\n");
    std::fflush(stdout);

    int received = 0;
    // SIGUSR1 ends every sign-in, so that a client's handling of an expired one can be watched.
    while (sigwait(&stopSignals, &received) == 0 && received == SIGUSR1)
    {
        sandbox.expireSessions();
        std::printf("Sessions expired.\n");
        std::fflush(stdout);
    }
    std::printf("Stopping on %s.\n", received == SIGINT ? "SIGINT" : "SIGTERM");
    std::fflush(stdout);
    sandbox.stop();
    return 0;
}

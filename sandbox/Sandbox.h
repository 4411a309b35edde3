#pragma once

#include "Catalogue.h"
#include "Endpoint.h"
#include "Fault.h"
#include "FaultPlan.h"
#include "RequestLog.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace SorvelSandbox
{

// A local emulator of the Sorvel web service: the JSON API under "/api/", the one-time upload
// target under "/upload/" and the signed web login page at "/login", over HTTP or HTTPS. Tests
// start it in-process on port 0; the program sorvel-sandbox runs it on its own.
//
// Threads: start, stop and the destructor belong to one owning thread. The other operations may be
// called from any thread while it runs; requests are served on a pool of server threads.
class Sandbox
{
public:
    struct Options
    {
        // Only 127.0.0.1 by default: the HTTP library must never face an open network.
        std::string bindAddress = "127.0.0.1";
        int port = 0; // 0 picks a free port
        // Accounts and catalogue in JSON; empty: the built-in demo account.
        std::string seedFile;
        // Keeps the catalogue (catalogue.json) and the uploaded files (files/) across restarts. A
        // catalogue found there wins over the seed file. Empty: a temporary folder, removed at stop.
        std::string dataDir;
        // Both or neither: PEM certificate and private key for HTTPS.
        std::string tlsCertFile;
        std::string tlsKeyFile;
        std::string partnerId = "sorvel-sandbox";
        std::string partnerKey = "sandbox-partner-key";
        std::chrono::seconds timestampTolerance{15 * 60};
        std::chrono::seconds tokenLifetime{24 * 3600};
        std::chrono::seconds uploadUrlLifetime{3600};
        // Server threads. A keep-alive connection holds one for as long as it stays open, so allow
        // for every client that a test runs at the same time, plus one.
        size_t threads = 8;
        // How long an idle keep-alive connection is kept open.
        std::chrono::seconds keepAliveTimeout{5};
        // Uploaded files are received, parsed and counted but not stored on disk or hashed (for
        // benchmarks of the client). They are listed with the digest "discarded".
        bool discardUploads = false;
        // A link that fails: every nth connection (counted from 1 in the order accepted; 0: none)
        // is reset at its first request, which takes no effect (a file post is cut at half its
        // body). A client that keeps its connections open meets it only when it opens a new one.
        unsigned dropEveryNthConnection = 0;
        // How many requests one connection serves before the sandbox closes it after the reply
        // (at least 1). Fewer make a keep-alive client open connections more often.
        size_t requestsPerConnection = 1000;
        // Called on a server thread after each request has been logged.
        std::function<void(const LoggedRequest&)> onRequest;
    };

    struct Login
    {
        std::string username;
        std::string password;
        int64_t accountId = 0;
    };

    Sandbox();
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    // Loads the catalogue, binds and starts serving. Returns the bound port, or -1 with a message in
    // `error` (a seed file that does not load, a port in use, a certificate that cannot be read).
    int start(const Options& options, std::string& error);
    // Stops serving: closes the listening socket and every open connection, and waits for the
    // handlers to return. Does nothing when not running.
    void stop();
    bool isRunning() const;

    // The following describe the running sandbox; they are empty (or -1) when it is not running.
    int port() const;
    std::string baseUrl() const;  // for example "http://127.0.0.1:43121/api/"
    std::string loginUrl() const; // for example "http://127.0.0.1:43121/login"
    std::string partnerId() const;
    std::string partnerKey() const;
    // The first account of the catalogue: the demo account unless a seed file says otherwise.
    Login demoLogin() const;
    std::vector<AccountRecord> accounts() const;
    std::vector<StoredFile> storedFiles() const;
    // Makes every token handed out so far answer 403, as if it had expired.
    void expireSessions();
    bool expireToken(const std::string& token);

    // The log and the faults outlive a stop, so a test can read what arrived after stopping.
    RequestLog& requestLog() { return log; }
    // See FaultPlan::arm.
    void injectFault(Endpoint endpoint, const Fault& fault, unsigned nth = 1, unsigned times = 1);
    void clearFaults();
    // Ends every request held now by a HoldRequest or HoldReply fault: each one's connection is
    // reset without an answer. Requests held later are held as usual.
    void releaseHeld();

private:
    struct Running;

    RequestLog log;
    FaultPlan faults;
    std::unique_ptr<Running> running;
};

} // namespace SorvelSandbox

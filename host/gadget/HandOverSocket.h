#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Host {

/// Where `sorvel add` hands files to the gadget this user has open: a unix socket in a folder of
/// the user's runtime folder ($XDG_RUNTIME_DIR/sorvel, else /tmp/sorvel-<uid>) that only the
/// user may enter (0700, checked), the socket itself 0600, and the peer's user checked on both
/// sides of each connection. The gadget that holds the lock file beside it owns the socket; a
/// socket left by a gadget that died holds no lock, and the next gadget replaces it.
///
/// One request per connection, as one line of JSON each way: the files (absolute paths), the
/// product and the metadata fields; the answer says how many files were taken, and where the
/// page is, or why nothing was taken.
class HandOverSocket
{
public:
    struct Request
    {
        std::vector<std::string> files;
        std::string product;
        std::map<std::string, std::vector<std::string>> fields;
    };
    struct Answer
    {
        std::string error; ///< empty when the files were taken
        int taken = 0;
        std::string address; ///< the page's address
    };
    /// Takes a request on the user-interface thread.
    using Handler = std::function<Answer(const Request&)>;

    /// Starts listening, or nothing with a sentence in `note`: another gadget of this user owns
    /// the socket, or the folder cannot be used. `handler` runs on the user-interface thread.
    static std::unique_ptr<HandOverSocket> open(Handler handler, std::string& note);
    /// Stops listening and removes the socket. User-interface thread.
    ~HandOverSocket();
    HandOverSocket(const HandOverSocket&) = delete;
    HandOverSocket& operator=(const HandOverSocket&) = delete;

    enum class Delivery
    {
        Taken,    ///< the gadget answered (`answer.error` says whether it took the files)
        NoGadget, ///< no gadget of this user listens (none, or one that died)
        Failed,   ///< something else went wrong; `error` says what
    };
    /// Hands `request` to the gadget this user has open. Any thread; waits for the answer.
    static Delivery send(const Request& request, Answer& answer, std::string& error);

    /// The folder of the socket and the lock, made if missing; empty with a sentence in `error`
    /// when it cannot be used (not the user's own, or others may enter it).
    static std::filesystem::path folder(std::string& error);

private:
    HandOverSocket(Handler handler) : handler_(std::move(handler)), owner_(KVX::makeRef<KVX::Object>()) {}
    void serve();
    void answer(int connection);

    Handler handler_;
    KVX::Ref<KVX::Object> owner_; ///< names the requests posted to the run loop
    std::filesystem::path socketPath_;
    int lockFd_ = -1;
    int listenFd_ = -1;
    int stopFd_ = -1;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable answered_;
    bool stopping_ = false;
};

} // namespace Host

#pragma once

#include "framework/core/Ref.h"
#include "framework/interfaces/IThemeManager.h"
#include "host/gadget/GadgetPage.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

namespace Host {

class GadgetSession;

/// Serves the gadget's page to the user's browser: on 127.0.0.1 only, every address under a
/// secret made for this run ("http://127.0.0.1:<port>/<secret>/"), requests whose Host or Origin
/// name another site refused. The page, its script, styles and images are answered from memory;
/// what reads or changes the gadget runs on the user-interface thread, which this server's
/// threads wait for; the page hears of changes through one event stream per page.
class GadgetServer
{
public:
    /// `session` and `theme` belong to the user-interface thread and must outlive stop().
    /// Files dropped on the page are stored in `dropFolder`.
    GadgetServer(GadgetSession& session, const GadgetPage& page, KVX::ITheme& theme, std::filesystem::path dropFolder);
    ~GadgetServer();

    /// Listens on a free port of 127.0.0.1; false with a sentence in `error` when it cannot.
    bool start(std::string& error);
    /// The page's address, with the secret.
    std::string address() const;
    /// Sends events (name, JSON data) to every open page. Any thread.
    void broadcast(const std::vector<std::pair<std::string, std::string>>& events);
    /// Ends the event streams and stops listening, running the user-interface loop until the
    /// requests under way have had their answer. User-interface thread.
    void stop();

private:
    struct Stream
    {
        struct Event
        {
            bool whole; ///< carries the whole state: a later one makes it needless
            std::string text;
        };
        std::deque<Event> queue;
    };
    struct Job;
    /// The fields of a form-encoded request body.
    using Form = std::multimap<std::string, std::string>;

    void route();
    /// Answers POST `path` by running `act` on the user-interface thread with the posted form.
    void action(const std::string& path, std::function<std::string(GadgetSession&, const Form&)> act);
    /// Whether a request may be answered at all (secret, Host, Origin); answers it if not.
    bool admit(const httplib::Request& request, httplib::Response& response) const;
    /// Runs `work` on the user-interface thread and waits for its answer: "" for done, or why
    /// not. False when the server is stopping.
    bool onUserInterface(std::function<std::string()> work, std::string& answer);
    void answer(httplib::Response& response, bool ran, const std::string& refusal) const;
    std::string storeDroppedFile(const std::string& name, const std::function<bool(std::function<bool(const char*, size_t)>)>& read,
                                 std::string& error);

    GadgetSession& session_;
    std::string html_;
    std::string themeCss_;
    std::map<std::string, std::string> images_; ///< PNG bytes by image name
    std::filesystem::path dropFolder_;
    std::unique_ptr<httplib::Server> server_;
    std::thread listener_;
    std::atomic<bool> listening_{false};
    std::atomic<bool> stopping_{false};
    std::string secret_;
    int port_ = 0;
    KVX::Ref<KVX::IUnknown> jobOwner_; ///< names this server's posted work, so stop() can drop it

    mutable std::mutex streamsMutex_;
    std::condition_variable streamsChanged_;
    std::vector<std::shared_ptr<Stream>> streams_;
    /// An activation that came while no page listened, for the first page that opens.
    std::string pendingActivation_;

    std::mutex filesMutex_;
    std::map<std::string, std::filesystem::path> droppedFiles_; ///< by the id handed to the page
    unsigned droppedCount_ = 0;
};

} // namespace Host

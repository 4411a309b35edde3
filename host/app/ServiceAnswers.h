#pragma once

#include "framework/core/Object.h"
#include "framework/data/Attributes.h"
#include "framework/services/ICallObserver.h"

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace Host {

/// Listens to the service's answers to the plug-in's calls and keeps the reason of each refusal:
/// an answer whose envelope's "status_code" is not 200, with the message its "data" gives. The
/// plug-in shows only that something failed ("Upload failed!"); the host adds why. Only the
/// request's method and path are kept: its query may carry the session's token.
///
/// It also keeps what the publish ledger needs and the plug-in does not hand over: the account's
/// products with their tracks' ids and names (the reply to the product list), and, while a batch
/// runs, the id of the product it created, the ids of the tracks it created (in order) and each
/// confirmed upload (a completion report the service answered with 200). Upload calls are
/// answered on the upload worker's thread: the upload watcher is called there, under a lock.
class ServiceAnswers : public KVX::Object, public KVX::Web::ICallObserver
{
public:
    struct Refusal
    {
        std::string request; ///< "POST tracks"
        int statusCode = 0;  ///< the envelope's status code
        std::string message; ///< the service's reason, or empty when it gave none
    };

    /// A track of a product as the service listed it.
    struct ListedTrack
    {
        std::string id;
        std::string name;
    };
    struct Product
    {
        std::string id;
        std::string name;
        std::vector<ListedTrack> tracks;
    };
    /// The last product list the service answered, with the account it was asked for.
    struct Catalogue
    {
        bool listed = false;
        unsigned generation = 0; ///< how many product lists the service has answered so far
        std::string account;
        std::vector<Product> products;
        /// The first product named `name` (as the gadget picks it), or nothing.
        const Product* find(const std::string& name) const;
    };

    /// What a running batch did, as the service answered it.
    struct UploadWatch
    {
        /// A product created: its id.
        std::function<void(const std::string& productId)> productCreated;
        /// A track created: its id (in the order of the batch's new tracks).
        std::function<void(const std::string& trackId)> trackCreated;
        /// The completion report of the track `trackId` answered with 200: the file is on the service.
        std::function<void(const std::string& trackId)> uploadConfirmed;
    };

    void onCallAnswered(const KVX::Web::AnsweredCall& call) override;

    Catalogue catalogue();
    /// Whether the service answered the account's figures (the dashboard's) with 200.
    bool figuresAnswered();
    /// Calls `watch` for what the service answers from now on; an empty watch ends it.
    void watchUploads(UploadWatch watch);

    /// The refusals since the previous call, oldest first.
    std::vector<Refusal> takeRefusals();
    /// A refusal as a sentence: "the service refused POST tracks: <reason>".
    static std::string describe(const Refusal& refusal);

    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override;
    KVX::uint32 retain() override { return Object::retain(); }
    KVX::uint32 release() override { return Object::release(); }

private:
    /// What an answer of 200 tells the ledger.
    void noteAnswer(const KVX::Web::AnsweredCall& call, const KVX::Attributes& envelope);

    std::mutex mutex_;
    std::vector<Refusal> refusals_;
    Catalogue catalogue_;
    bool figuresAnswered_ = false;
    std::mutex watchMutex_; ///< held while the watcher runs, so that it never runs twice at once
    UploadWatch watch_;
};

} // namespace Host

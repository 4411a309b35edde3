#pragma once

#include "Arguments.h"
#include "Catalogue.h"
#include "UploadForm.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace SorvelSandbox
{

class UploadFile;

// The service's side of the protocol, without the HTTP around it: sign-in and its sessions, the
// catalogue requests, the one-time upload URLs and the web login. Every operation either returns
// its result or throws a Refusal; a refused request changes nothing. All operations may be called
// from any thread.
class Service
{
public:
    struct Settings
    {
        std::string partnerId;
        std::string partnerKey;
        std::chrono::seconds timestampTolerance{15 * 60};
        std::chrono::seconds tokenLifetime{24 * 3600};
        std::chrono::seconds uploadUrlLifetime{3600};
        std::filesystem::path uploadFolder;  // where accepted files are stored
        std::filesystem::path cataloguePath; // where the catalogue is saved after each change; empty: nowhere
    };

    Service(Settings settings, Catalogue catalogue);

    // The JSON API. Each returns the reply's "data" member as JSON text.
    std::string signIn(const Arguments& arguments);
    std::string activity(std::string_view accountSegment, const Arguments& arguments);
    std::string anonymousActivity(const Arguments& arguments, std::string_view signUpLink);
    std::string titles(const Arguments& arguments);
    std::string createTitle(const Arguments& arguments);
    std::string createTrack(const Arguments& arguments);
    // `uploadUrlBase` is the absolute URL to which the upload's id is appended.
    std::string uploadToken(std::string_view trackSegment, const Arguments& arguments, std::string_view uploadUrlBase);
    std::string uploadStatus(std::string_view trackSegment, const Arguments& arguments);

    // The upload target. A claim reserves an open upload URL for one request; the claim ends with
    // completeUpload (the URL is used up) or releaseUpload (it stays open for another try).
    struct UploadClaim
    {
        std::string slotId;
        int64_t accountId = 0;
        int64_t trackId = 0;
        std::vector<UploadForm::Field> fields;
    };
    // Refusals carry HTTP statuses: 404 unknown URL, 410 used up, 409 in use, 403 expired.
    UploadClaim claimUpload(std::string_view slotId);
    void releaseUpload(std::string_view slotId);
    // A fresh upload id and the path its file is to be stored under.
    std::filesystem::path newUploadPath(std::string& uploadId) const;
    // Records a committed file against the claimed track and uses the URL up.
    StoredFile completeUpload(const UploadClaim& claim, const std::string& uploadId, const UploadFile& file,
                              const std::string& fileName);

    // The signed web login. Refusals carry HTTP statuses (400, 403, 404).
    struct WebLogin
    {
        AccountRecord account;
        std::optional<TitleRecord> title;
    };
    WebLogin webLogin(const Arguments& arguments);

    // Saves the catalogue where it is kept, as every change does; false with a message on failure.
    bool saveCatalogue(std::string& error) const;

    std::vector<AccountRecord> accounts() const;
    // Stored files with their absolute paths.
    std::vector<StoredFile> storedFiles() const;
    // Makes every token handed out so far answer 403 from now on.
    void expireSessions();
    bool expireToken(std::string_view token);

private:
    struct Session
    {
        int64_t accountId;
        std::string timestamp;
        std::chrono::system_clock::time_point expires;
    };

    enum class SlotState
    {
        Open,
        InUse,
        Used
    };

    struct UploadSlot
    {
        int64_t accountId;
        int64_t trackId;
        std::vector<UploadForm::Field> fields;
        std::chrono::system_clock::time_point expires;
        SlotState state = SlotState::Open;
    };

    // Checks the signature, the timestamp and the password digest of a sign-in or a web login, and
    // returns the account's id. Refusals carry status 400 or 401.
    int64_t checkCredentials(const std::string& partnerId, const std::string& signature, const std::string& username,
                             const std::string& digest, const std::string& timestamp);
    void checkSignature(const std::string& partnerId, const std::string& signature) const;
    // Checks the four authorization arguments of a signed request; returns the signed-in account.
    AccountRecord& authorize(const Arguments& arguments);
    // Saves the catalogue when it is kept on disk; throws a Refusal (500) when it cannot, so that the
    // caller can leave its change unapplied.
    void save(const Catalogue& next) const;

    Settings settings;
    mutable std::mutex mutex;
    Catalogue catalogue;
    std::map<std::string, Session, std::less<>> sessions;
    std::map<std::string, UploadSlot, std::less<>> slots;
};

} // namespace SorvelSandbox

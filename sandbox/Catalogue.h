#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace SorvelSandbox
{

// One track of a product, with the fields the service reports for it.
struct TrackRecord
{
    int64_t id = 0;
    std::string name;
    std::string isrc;
    int trackNumber = 0;
    int year = 0;
    double duration = 0.0;
    std::string genre;
    std::string comment;
    std::string arranger;
    std::string composer;
    std::string songwriter;
    // 100 once the client has reported a received file as complete, else 0.
    int uploadStatus = 0;
    // The most recent file accepted by the upload target for this track; empty before any.
    std::string uploadId;
};

// One product (release) of an account.
struct TitleRecord
{
    int64_t id = 0;
    std::string name;
    std::string artistName;
    std::string upc;
    std::vector<TrackRecord> tracks;
};

// A store account: its sign-in, the figures the activity request reports, and its products.
// The password is kept in clear because the service must recompute the client's digest from it.
struct AccountRecord
{
    int64_t id = 0;
    std::string username;
    std::string password;
    std::string name;
    int64_t totalFans = 0;
    double totalSales = 0.0;
    std::string currency;
    std::string startDate;
    std::string endDate;
    int64_t activePromos = 0;
    std::string userMessage;
    std::string actionIconId;
    std::string actionLink;
    std::string actionText;
    std::vector<TitleRecord> titles;
};

// A file the upload target accepted. `path` is relative to the folder that holds the uploads.
struct StoredFile
{
    std::string uploadId;
    int64_t accountId = 0;
    int64_t trackId = 0;
    std::string fileName;
    std::string path;
    uint64_t size = 0;
    std::string sha256;
};

// The accounts, their products and tracks, and the record of stored uploads. It is plain data: the
// sandbox guards it with its own lock. The same JSON form serves as seed file and as the saved state
// of a data folder.
class Catalogue
{
public:
    // Reads the JSON form. On failure it returns nothing and sets `error` to a message that names
    // the offending member, for example "accounts[0].titles[1].year: expected an integer".
    static std::optional<Catalogue> fromJson(std::string_view json, std::string& error);
    // The built-in demo account with a few products, used when no seed file is given.
    static Catalogue demo();

    std::string toJson() const;

    AccountRecord* findAccount(int64_t id);
    const AccountRecord* findAccount(int64_t id) const;
    AccountRecord* findUser(std::string_view username);
    TitleRecord* findTitle(AccountRecord& account, int64_t id);
    TrackRecord* findTrack(AccountRecord& account, int64_t id);
    const StoredFile* findUpload(std::string_view uploadId) const;

    TitleRecord& addTitle(AccountRecord& account, TitleRecord title);
    // Appends the track to the product and numbers it after the product's last track.
    TrackRecord& addTrack(TitleRecord& title, TrackRecord track);

    const std::vector<AccountRecord>& accounts() const { return accountList; }
    const std::vector<StoredFile>& uploads() const { return uploadList; }
    void addUpload(StoredFile file) { uploadList.push_back(std::move(file)); }

private:
    void assignMissingIds();

    std::vector<AccountRecord> accountList;
    std::vector<StoredFile> uploadList;
    int64_t nextTitleId = 5001;
    int64_t nextTrackId = 9001;
};

} // namespace SorvelSandbox

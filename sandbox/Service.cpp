#include "Service.h"

#include "TextCompare.h"

#include "Digest.h"
#include "TrackJson.h"
#include "JsonText.h"
#include "Refusal.h"
#include "Timestamp.h"
#include "UploadFile.h"

#include <openssl/rand.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>

namespace SorvelSandbox
{

namespace
{

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;
using Clock = std::chrono::system_clock;

template <typename Fill> std::string writeJson(Fill&& fill)
{
    rapidjson::StringBuffer buffer;
    Writer out(buffer);
    fill(out);
    return std::string(buffer.GetString(), buffer.GetSize());
}

std::string randomHex(size_t bytes)
{
    std::string raw(bytes, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(raw.data()), static_cast<int>(bytes)) != 1)
        throw Refusal{500, "the service could not draw random bytes"};
    static constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned char c : raw)
    {
        hex.push_back(digits[c >> 4]);
        hex.push_back(digits[c & 0x0f]);
    }
    return hex;
}

// A hint for the commonest client mistake with digests: the right digits in the wrong case.
std::string caseHint(std::string_view received, std::string_view expected)
{
    return received != expected && equalsIgnoringCase(received, expected) ? " (it must be lower-case hexadecimal)" : "";
}

void writeActivity(Writer& out, const AccountRecord& account)
{
    out.StartObject();
    member(out, "account_id", account.id);
    member(out, "name", account.name);
    member(out, "total_fans", account.totalFans);
    member(out, "total_sales", account.totalSales);
    member(out, "currency", account.currency);
    member(out, "start_date", account.startDate);
    member(out, "end_date", account.endDate);
    member(out, "active_promos", account.activePromos);
    // The service spells this one member with a capital letter.
    member(out, "total_Products", static_cast<int64_t>(account.titles.size()));
    member(out, "user_message", account.userMessage);
    member(out, "action_icon_id", account.actionIconId);
    member(out, "action_link", account.actionLink);
    member(out, "action_text", account.actionText);
    out.EndObject();
}

void writeTitle(Writer& out, const TitleRecord& title)
{
    out.StartObject();
    member(out, "id", title.id);
    member(out, "name", title.name);
    member(out, "artist_name", title.artistName);
    member(out, "upc", title.upc);
    out.Key("tracks");
    out.StartArray();
    for (const TrackRecord& track : title.tracks)
    {
        out.StartObject();
        writeTrackMembers(out, track);
        out.EndObject();
    }
    out.EndArray();
    out.EndObject();
}

std::string idData(int64_t id)
{
    return writeJson([&](Writer& out) {
        out.StartObject();
        member(out, "id", id);
        out.EndObject();
    });
}

// Finds the account's track named by a path segment, or refuses with 404.
TrackRecord& trackFromSegment(Catalogue& catalogue, AccountRecord& account, std::string_view segment)
{
    std::optional<int64_t> id = parseId(segment);
    TrackRecord* track = id ? catalogue.findTrack(account, *id) : nullptr;
    if (track == nullptr)
        throw Refusal{404, "the account has no track " + std::string(segment)};
    return *track;
}

} // namespace

Service::Service(Settings settings, Catalogue catalogue) : settings(std::move(settings)), catalogue(std::move(catalogue))
{
}

void Service::checkSignature(const std::string& partnerId, const std::string& signature) const
{
    if (partnerId != settings.partnerId)
        throw Refusal{401, "unknown partner_id"};
    const std::string expected = md5Hex(settings.partnerId + settings.partnerKey);
    if (signature != expected)
        throw Refusal{401, "the signature is not the MD5 of the partner id and key" + caseHint(signature, expected)};
}

int64_t Service::checkCredentials(const std::string& partnerId, const std::string& signature,
                                  const std::string& username, const std::string& digest, const std::string& timestamp)
{
    checkSignature(partnerId, signature);
    std::optional<std::time_t> sent = parseClientTimestamp(timestamp);
    if (!sent)
        throw Refusal{400, "the timestamp is not of the form YYYY-MM-DDTHH:MM:SS"};
    const auto skew = std::chrono::seconds(std::abs(Clock::to_time_t(Clock::now()) - *sent));
    if (skew > settings.timestampTolerance)
        throw Refusal{401, "the timestamp is " + std::to_string(skew.count()) +
                               " seconds away from the service's clock (UTC); at most " +
                               std::to_string(settings.timestampTolerance.count()) + " are accepted"};
    std::lock_guard lock(mutex);
    const AccountRecord* account = catalogue.findUser(username);
    // An unknown user and a wrong digest get the same answer, as a real service would give.
    const std::string expected = account ? sha1Hex(account->password + timestamp + settings.partnerKey) : "";
    if (account == nullptr || digest != expected)
        throw Refusal{401, "unknown username or wrong password digest" + caseHint(digest, expected)};
    return account->id;
}

std::string Service::signIn(const Arguments& arguments)
{
    arguments.allowOnly({"partner_id", "username", "timestamp", "password", "signature"});
    const int64_t accountId =
        checkCredentials(arguments.text("partner_id"), arguments.text("signature"), arguments.text("username"),
                         arguments.text("password"), arguments.text("timestamp"));
    const auto now = Clock::now();
    const std::string token = randomHex(16);
    Session session{accountId, makeServerTimestamp(Clock::to_time_t(now), randomHex(4)),
                    now + settings.tokenLifetime};
    std::string data = writeJson([&](Writer& out) {
        out.StartObject();
        member(out, "token", token);
        member(out, "timestamp", session.timestamp);
        member(out, "account_id", accountId);
        out.EndObject();
    });
    std::lock_guard lock(mutex);
    sessions.emplace(token, std::move(session));
    return data;
}

AccountRecord& Service::authorize(const Arguments& arguments)
{
    const std::string token = arguments.text("token");
    const std::string timestamp = arguments.text("timestamp");
    const std::string accountId = arguments.text("account_id");
    if (arguments.text("partner_id") != settings.partnerId)
        throw Refusal{403, "unknown partner_id"};
    auto found = sessions.find(token);
    if (found == sessions.end())
        throw Refusal{403, "unknown token"};
    const Session& session = found->second;
    if (Clock::now() >= session.expires)
        throw Refusal{403, "the token has expired"};
    if (timestamp != session.timestamp)
        throw Refusal{403, "the timestamp is not the one handed out with the token"};
    if (accountId != std::to_string(session.accountId))
        throw Refusal{403, "the account_id does not belong to the token"};
    AccountRecord* account = catalogue.findAccount(session.accountId);
    if (account == nullptr)
        throw Refusal{403, "the token's account no longer exists"};
    return *account;
}

std::string Service::activity(std::string_view accountSegment, const Arguments& arguments)
{
    std::lock_guard lock(mutex);
    // Callers may add parameters of their own; only the authorization is checked.
    AccountRecord& account = authorize(arguments);
    if (accountSegment != std::to_string(account.id))
        throw Refusal{403, "the path names another account than account_id"};
    return writeJson([&](Writer& out) { writeActivity(out, account); });
}

std::string Service::anonymousActivity(const Arguments& arguments, std::string_view signUpLink)
{
    if (arguments.has("token") || arguments.has("timestamp"))
        throw Refusal{400, "the activity request without an account carries no token or timestamp"};
    arguments.requireScalars();
    checkSignature(arguments.text("partner_id"), arguments.text("signature"));
    AccountRecord nobody;
    nobody.userMessage = "Sign in to see your fans, sales and promotions.";
    nobody.actionIconId = "music";
    nobody.actionLink = std::string(signUpLink);
    nobody.actionText = "Sign in or create an account";
    return writeJson([&](Writer& out) { writeActivity(out, nobody); });
}

std::string Service::titles(const Arguments& arguments)
{
    arguments.allowOnly({"token", "timestamp", "account_id", "partner_id", "view"});
    std::lock_guard lock(mutex);
    AccountRecord& account = authorize(arguments);
    if (arguments.text("view") != "detail")
        throw Refusal{400, "the parameter \"view\" must be \"detail\""};
    return writeJson([&](Writer& out) {
        out.StartArray();
        for (const TitleRecord& title : account.titles)
            writeTitle(out, title);
        out.EndArray();
    });
}

std::string Service::createTitle(const Arguments& arguments)
{
    arguments.allowOnly({"name", "artist_name", "upc", "token", "timestamp", "account_id", "partner_id"});
    TitleRecord title;
    title.name = arguments.text("name");
    title.artistName = arguments.text("artist_name");
    title.upc = arguments.text("upc");

    std::lock_guard lock(mutex);
    const int64_t accountId = authorize(arguments).id;
    Catalogue next = catalogue;
    const int64_t id = next.addTitle(*next.findAccount(accountId), std::move(title)).id;
    save(next);
    catalogue = std::move(next);
    return idData(id);
}

std::string Service::createTrack(const Arguments& arguments)
{
    arguments.allowOnly({"name", "isrc", "year", "genre", "comment", "arranger", "composer", "songwriter", "title_id",
                         "token", "timestamp", "account_id", "partner_id"});
    TrackRecord track;
    track.name = arguments.text("name");
    track.isrc = arguments.text("isrc");
    if (std::optional<int64_t> year = arguments.integer("year"))
    {
        if (*year < 1 || *year > 9999)
            throw Refusal{400, "the member \"year\" must lie between 1 and 9999 (an unknown year is left out)"};
        track.year = static_cast<int>(*year);
    }
    track.genre = arguments.text("genre");
    track.comment = arguments.text("comment");
    track.arranger = arguments.text("arranger");
    track.composer = arguments.text("composer");
    track.songwriter = arguments.text("songwriter");
    const std::string titleText = arguments.text("title_id");

    std::lock_guard lock(mutex);
    const int64_t accountId = authorize(arguments).id;
    Catalogue next = catalogue;
    AccountRecord& account = *next.findAccount(accountId);
    std::optional<int64_t> titleId = parseId(titleText);
    TitleRecord* title = titleId ? next.findTitle(account, *titleId) : nullptr;
    if (title == nullptr)
        throw Refusal{404, "the account has no title \"" + titleText + "\""};
    const int64_t id = next.addTrack(*title, std::move(track)).id;
    save(next);
    catalogue = std::move(next);
    return idData(id);
}

std::string Service::uploadToken(std::string_view trackSegment, const Arguments& arguments,
                                 std::string_view uploadUrlBase)
{
    arguments.allowOnly({"token", "timestamp", "account_id", "partner_id"});
    std::lock_guard lock(mutex);
    AccountRecord& account = authorize(arguments);
    const TrackRecord& track = trackFromSegment(catalogue, account, trackSegment);

    const std::string slotId = randomHex(16);
    const auto expires = Clock::now() + settings.uploadUrlLifetime;
    const int64_t expiresSeconds = Clock::to_time_t(expires);
    const std::string key = "tracks/" + std::to_string(track.id) + "/" + slotId;
    // The fields come back in the body as text; "track_id" and "expires" are handed out as numbers,
    // so the client must turn numbers into decimal text.
    UploadSlot slot{account.id, track.id,
                    {{"key", key}, {"track_id", std::to_string(track.id)}, {"expires", std::to_string(expiresSeconds)}},
                    expires};
    std::string data = writeJson([&](Writer& out) {
        out.StartObject();
        member(out, "url", std::string(uploadUrlBase) + slotId);
        out.Key("post_data");
        out.StartObject();
        member(out, "key", key);
        member(out, "track_id", track.id);
        member(out, "expires", expiresSeconds);
        out.EndObject();
        out.EndObject();
    });
    // Upload URLs past their lifetime are forgotten when new ones are handed out.
    const auto now = Clock::now();
    std::erase_if(slots, [&](const auto& entry) { return entry.second.state != SlotState::InUse && now >= entry.second.expires; });
    slots.emplace(slotId, std::move(slot));
    return data;
}

std::string Service::uploadStatus(std::string_view trackSegment, const Arguments& arguments)
{
    arguments.allowOnly({"upload_status", "token", "timestamp", "account_id", "partner_id"});
    std::optional<int64_t> status = arguments.integer("upload_status");
    if (!status)
        throw Refusal{400, "the member \"upload_status\" is missing"};
    if (*status != 100)
        throw Refusal{400, "the member \"upload_status\" must be 100"};

    std::lock_guard lock(mutex);
    const int64_t accountId = authorize(arguments).id;
    Catalogue next = catalogue;
    TrackRecord& track = trackFromSegment(next, *next.findAccount(accountId), trackSegment);
    if (track.uploadId.empty())
        throw Refusal{409, "no file has been received for track " + std::to_string(track.id)};
    track.uploadStatus = 100;
    const int64_t id = track.id;
    save(next);
    catalogue = std::move(next);
    return writeJson([&](Writer& out) {
        out.StartObject();
        member(out, "id", id);
        member(out, "upload_status", 100);
        out.EndObject();
    });
}

Service::UploadClaim Service::claimUpload(std::string_view slotId)
{
    std::lock_guard lock(mutex);
    auto found = slots.find(slotId);
    if (found == slots.end())
        throw Refusal{404, "unknown upload URL"};
    UploadSlot& slot = found->second;
    if (slot.state == SlotState::Used)
        throw Refusal{410, "this upload URL has been used already; ask for a new upload token"};
    if (slot.state == SlotState::InUse)
        throw Refusal{409, "another upload to this URL is in progress"};
    if (Clock::now() >= slot.expires)
        throw Refusal{403, "this upload URL has expired"};
    slot.state = SlotState::InUse;
    return UploadClaim{std::string(slotId), slot.accountId, slot.trackId, slot.fields};
}

void Service::releaseUpload(std::string_view slotId)
{
    std::lock_guard lock(mutex);
    auto found = slots.find(slotId);
    if (found != slots.end() && found->second.state == SlotState::InUse)
        found->second.state = SlotState::Open;
}

std::filesystem::path Service::newUploadPath(std::string& uploadId) const
{
    uploadId = randomHex(16);
    return settings.uploadFolder / (uploadId + ".bin");
}

StoredFile Service::completeUpload(const UploadClaim& claim, const std::string& uploadId, const UploadFile& file,
                                   const std::string& fileName)
{
    StoredFile stored{uploadId, claim.accountId, claim.trackId, fileName, uploadId + ".bin", file.size(), file.sha256()};
    std::lock_guard lock(mutex);
    Catalogue next = catalogue;
    AccountRecord* account = next.findAccount(claim.accountId);
    TrackRecord* track = account ? next.findTrack(*account, claim.trackId) : nullptr;
    if (track == nullptr)
        throw Refusal{410, "the track of this upload URL no longer exists"};
    track->uploadId = uploadId;
    // A new file waits for its completion report, also when it replaces an earlier one.
    track->uploadStatus = 0;
    if (const double duration = file.durationSeconds(); duration > 0.0)
        track->duration = duration;
    next.addUpload(stored);
    save(next);
    catalogue = std::move(next);
    slots.at(claim.slotId).state = SlotState::Used;
    stored.path = (settings.uploadFolder / stored.path).string();
    return stored;
}

Service::WebLogin Service::webLogin(const Arguments& arguments)
{
    arguments.allowOnly({"partner_id", "signature", "username", "password", "timestamp", "open_title"});
    int64_t accountId = 0;
    try
    {
        accountId = checkCredentials(arguments.text("partner_id"), arguments.text("signature"),
                                     arguments.text("username"), arguments.text("password"),
                                     arguments.text("timestamp"));
    }
    catch (Refusal& refusal)
    {
        // A page answers 403 where the API answers 401, which asks for an HTTP authentication scheme.
        if (refusal.status == 401)
            refusal.status = 403;
        throw;
    }
    std::lock_guard lock(mutex);
    WebLogin result{*catalogue.findAccount(accountId), std::nullopt};
    if (arguments.has("open_title"))
    {
        const std::string wanted = arguments.text("open_title");
        std::optional<int64_t> titleId = parseId(wanted);
        const TitleRecord* title = titleId ? catalogue.findTitle(*catalogue.findAccount(accountId), *titleId) : nullptr;
        if (title == nullptr)
            throw Refusal{404, "the account has no product \"" + wanted + "\""};
        result.title = *title;
    }
    return result;
}

std::vector<AccountRecord> Service::accounts() const
{
    std::lock_guard lock(mutex);
    return catalogue.accounts();
}

std::vector<StoredFile> Service::storedFiles() const
{
    std::lock_guard lock(mutex);
    std::vector<StoredFile> files = catalogue.uploads();
    for (StoredFile& file : files)
        file.path = (settings.uploadFolder / file.path).string();
    return files;
}

void Service::expireSessions()
{
    std::lock_guard lock(mutex);
    const auto now = Clock::now();
    for (auto& entry : sessions)
        entry.second.expires = now;
}

bool Service::expireToken(std::string_view token)
{
    std::lock_guard lock(mutex);
    auto found = sessions.find(token);
    if (found == sessions.end())
        return false;
    found->second.expires = Clock::now();
    return true;
}

bool Service::saveCatalogue(std::string& error) const
{
    std::lock_guard lock(mutex);
    try
    {
        save(catalogue);
        return true;
    }
    catch (const Refusal& refusal)
    {
        error = refusal.message + " (" + settings.cataloguePath.string() + ")";
        return false;
    }
}

void Service::save(const Catalogue& next) const
{
    if (settings.cataloguePath.empty())
        return;
    // Write a new file and rename it over the old one, so that a failure leaves the old catalogue.
    std::filesystem::path temporary = settings.cataloguePath;
    temporary += ".new";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << next.toJson();
        out.close();
        if (!out)
            throw Refusal{500, "the service could not save its catalogue"};
    }
    std::error_code failure;
    std::filesystem::rename(temporary, settings.cataloguePath, failure);
    if (failure)
        throw Refusal{500, "the service could not save its catalogue: " + failure.message()};
}

} // namespace SorvelSandbox

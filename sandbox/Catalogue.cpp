#include "Catalogue.h"

#include "JsonText.h"
#include "TrackJson.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <set>

namespace SorvelSandbox
{

namespace
{

struct CatalogueError
{
    std::string message;
};

// Reads the members of one JSON object by name and refuses members it was not asked for, so that a
// misspelt key in a seed file is reported instead of silently ignored.
class ObjectReader
{
public:
    ObjectReader(const rapidjson::Value& value, std::string path) : object(value), path(std::move(path))
    {
        if (!object.IsObject())
            fail(this->path.empty() ? "the top level" : this->path, "expected an object");
        std::set<std::string> names;
        for (auto& member : object.GetObject())
            if (!names.insert(member.name.GetString()).second)
                fail(this->path, std::string("member \"") + member.name.GetString() + "\" appears twice");
    }

    std::string string(const char* name, bool required = false)
    {
        const rapidjson::Value* value = find(name, required);
        if (value == nullptr)
            return {};
        if (!value->IsString())
            fail(where(name), "expected a string");
        return std::string(value->GetString(), value->GetStringLength());
    }

    int64_t integer(const char* name, int64_t lowest, int64_t highest, bool required = false)
    {
        const rapidjson::Value* value = find(name, required);
        if (value == nullptr)
            return 0;
        if (!value->IsInt64())
            fail(where(name), "expected an integer");
        int64_t number = value->GetInt64();
        if (number < lowest || number > highest)
            fail(where(name), "expected a number from " + std::to_string(lowest) + " to " + std::to_string(highest));
        return number;
    }

    double number(const char* name)
    {
        const rapidjson::Value* value = find(name, false);
        if (value == nullptr)
            return 0.0;
        if (!value->IsNumber() || value->GetDouble() < 0.0)
            fail(where(name), "expected a number not below 0");
        return value->GetDouble();
    }

    const rapidjson::Value* array(const char* name)
    {
        const rapidjson::Value* value = find(name, false);
        if (value != nullptr && !value->IsArray())
            fail(where(name), "expected an array");
        return value;
    }

    // Refuses every member that no read above asked for.
    void finish() const
    {
        for (auto& member : object.GetObject())
            if (!used.count(member.name.GetString()))
                fail(where(member.name.GetString()), "unknown member");
    }

    std::string where(const std::string& name) const { return path.empty() ? name : path + "." + name; }

    [[noreturn]] static void fail(const std::string& where, const std::string& message)
    {
        throw CatalogueError{where + ": " + message};
    }

private:
    const rapidjson::Value* find(const char* name, bool required)
    {
        used.insert(name);
        auto member = object.FindMember(name);
        if (member == object.MemberEnd())
        {
            if (required)
                fail(where(name), "missing");
            return nullptr;
        }
        return &member->value;
    }

    const rapidjson::Value& object;
    std::string path;
    std::set<std::string> used;
};

std::string indexed(const std::string& path, const char* name, size_t index)
{
    return (path.empty() ? std::string() : path + ".") + name + "[" + std::to_string(index) + "]";
}

bool isLowerHex(std::string_view text, size_t length)
{
    return text.size() == length &&
           std::all_of(text.begin(), text.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

TrackRecord readTrack(const rapidjson::Value& value, const std::string& path)
{
    ObjectReader reader(value, path);
    TrackRecord track;
    track.id = reader.integer("id", 1, INT64_MAX);
    track.name = reader.string("name");
    track.isrc = reader.string("isrc");
    track.trackNumber = static_cast<int>(reader.integer("track_number", 0, 9999));
    track.year = static_cast<int>(reader.integer("year", 0, 9999));
    track.duration = reader.number("duration");
    track.genre = reader.string("genre");
    track.comment = reader.string("comment");
    track.arranger = reader.string("arranger");
    track.composer = reader.string("composer");
    track.songwriter = reader.string("songwriter");
    track.uploadStatus = static_cast<int>(reader.integer("upload_status", 0, 100));
    if (track.uploadStatus != 0 && track.uploadStatus != 100)
        ObjectReader::fail(reader.where("upload_status"), "expected 0 or 100");
    track.uploadId = reader.string("upload_id");
    reader.finish();
    return track;
}

TitleRecord readTitle(const rapidjson::Value& value, const std::string& path)
{
    ObjectReader reader(value, path);
    TitleRecord title;
    title.id = reader.integer("id", 1, INT64_MAX);
    title.name = reader.string("name");
    title.artistName = reader.string("artist_name");
    title.upc = reader.string("upc");
    if (const rapidjson::Value* tracks = reader.array("tracks"))
        for (rapidjson::SizeType i = 0; i < tracks->Size(); ++i)
            title.tracks.push_back(readTrack((*tracks)[i], indexed(path, "tracks", i)));
    reader.finish();
    return title;
}

AccountRecord readAccount(const rapidjson::Value& value, const std::string& path)
{
    ObjectReader reader(value, path);
    AccountRecord account;
    account.id = reader.integer("id", 1, INT64_MAX, true);
    account.username = reader.string("username", true);
    account.password = reader.string("password", true);
    if (account.username.empty() || account.password.empty())
        ObjectReader::fail(path, "username and password must not be empty");
    account.name = reader.string("name");
    account.totalFans = reader.integer("total_fans", 0, INT64_MAX);
    account.totalSales = reader.number("total_sales");
    account.currency = reader.string("currency");
    account.startDate = reader.string("start_date");
    account.endDate = reader.string("end_date");
    account.activePromos = reader.integer("active_promos", 0, INT64_MAX);
    account.userMessage = reader.string("user_message");
    account.actionIconId = reader.string("action_icon_id");
    account.actionLink = reader.string("action_link");
    account.actionText = reader.string("action_text");
    if (const rapidjson::Value* titles = reader.array("titles"))
        for (rapidjson::SizeType i = 0; i < titles->Size(); ++i)
            account.titles.push_back(readTitle((*titles)[i], indexed(path, "titles", i)));
    reader.finish();
    return account;
}

StoredFile readUpload(const rapidjson::Value& value, const std::string& path)
{
    ObjectReader reader(value, path);
    StoredFile file;
    file.uploadId = reader.string("upload_id", true);
    file.accountId = reader.integer("account_id", 1, INT64_MAX, true);
    file.trackId = reader.integer("track_id", 1, INT64_MAX, true);
    file.fileName = reader.string("file_name", true);
    file.path = reader.string("path", true);
    file.size = static_cast<uint64_t>(reader.integer("size", 0, INT64_MAX, true));
    file.sha256 = reader.string("sha256", true);
    reader.finish();
    if (!isLowerHex(file.uploadId, 32))
        ObjectReader::fail(reader.where("upload_id"), "expected 32 lower-case hexadecimal digits");
    if (!isLowerHex(file.sha256, 64))
        ObjectReader::fail(reader.where("sha256"), "expected 64 lower-case hexadecimal digits");
    // Stored paths stay inside the uploads folder.
    if (file.path.empty() || file.path.front() == '/' || file.path.find("..") != std::string::npos)
        ObjectReader::fail(reader.where("path"), "expected a relative path inside the uploads folder");
    return file;
}

template <typename Writer> void writeTrack(Writer& out, const TrackRecord& track)
{
    out.StartObject();
    writeTrackMembers(out, track);
    member(out, "upload_id", track.uploadId);
    out.EndObject();
}

} // namespace

std::optional<Catalogue> Catalogue::fromJson(std::string_view json, std::string& error)
{
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(json.data(), json.size());
    if (document.HasParseError())
    {
        error = "not valid JSON at byte " + std::to_string(document.GetErrorOffset()) + ": " +
                rapidjson::GetParseError_En(document.GetParseError());
        return std::nullopt;
    }
    try
    {
        Catalogue catalogue;
        ObjectReader top(document, "");
        if (const rapidjson::Value* accounts = top.array("accounts"))
            for (rapidjson::SizeType i = 0; i < accounts->Size(); ++i)
                catalogue.accountList.push_back(readAccount((*accounts)[i], indexed("", "accounts", i)));
        if (const rapidjson::Value* uploads = top.array("uploads"))
            for (rapidjson::SizeType i = 0; i < uploads->Size(); ++i)
                catalogue.uploadList.push_back(readUpload((*uploads)[i], indexed("", "uploads", i)));
        top.finish();
        if (catalogue.accountList.empty())
            ObjectReader::fail("accounts", "at least one account is needed");

        std::set<int64_t> accountIds, titleIds, trackIds;
        std::set<std::string> usernames;
        for (const AccountRecord& account : catalogue.accountList)
        {
            if (!accountIds.insert(account.id).second)
                ObjectReader::fail("accounts", "account id " + std::to_string(account.id) + " appears twice");
            if (!usernames.insert(account.username).second)
                ObjectReader::fail("accounts", "username \"" + account.username + "\" appears twice");
            for (const TitleRecord& title : account.titles)
            {
                if (title.id != 0 && !titleIds.insert(title.id).second)
                    ObjectReader::fail("accounts", "title id " + std::to_string(title.id) + " appears twice");
                for (const TrackRecord& track : title.tracks)
                    if (track.id != 0 && !trackIds.insert(track.id).second)
                        ObjectReader::fail("accounts", "track id " + std::to_string(track.id) + " appears twice");
            }
        }
        for (const StoredFile& file : catalogue.uploadList)
        {
            AccountRecord* account = catalogue.findAccount(file.accountId);
            if (account == nullptr || catalogue.findTrack(*account, file.trackId) == nullptr)
                ObjectReader::fail("uploads", "upload " + file.uploadId + " names an unknown account or track");
        }
        for (const AccountRecord& account : catalogue.accountList)
            for (const TitleRecord& title : account.titles)
                for (const TrackRecord& track : title.tracks)
                    if (!track.uploadId.empty() && catalogue.findUpload(track.uploadId) == nullptr)
                        ObjectReader::fail("accounts", "track " + std::to_string(track.id) + " names the unknown upload " +
                                                           track.uploadId);
        catalogue.assignMissingIds();
        return catalogue;
    }
    catch (const CatalogueError& failure)
    {
        error = failure.message;
        return std::nullopt;
    }
}

Catalogue Catalogue::demo()
{
    Catalogue catalogue;
    AccountRecord account;
    account.id = 1001;
    account.username = "demo";
    account.password = "sandbox-demo";
    account.name = "Demo Artist";
    account.totalFans = 12345;
    account.totalSales = 57.5;
    account.currency = "USD";
    account.startDate = "2014-03-07";
    account.endDate = "2014-04-06";
    account.activePromos = 2;
    account.userMessage = "Welcome to the Sorvel sandbox.";
    account.actionIconId = "star";
    account.actionLink = "https://sorvel.example/promote";
    account.actionText = "Promote your latest release";

    TitleRecord first;
    first.name = "Night Drive";
    first.artistName = "Demo Artist";
    first.upc = "0123456789012";
    auto track = [](std::string name, std::string isrc, int year, double duration, std::string genre)
    {
        TrackRecord record;
        record.name = std::move(name);
        record.isrc = std::move(isrc);
        record.year = year;
        record.duration = duration;
        record.genre = std::move(genre);
        record.composer = "Demo Artist";
        record.uploadStatus = 100;
        return record;
    };
    TitleRecord second;
    second.name = "Field Recordings";
    second.artistName = "Demo Artist";
    second.upc = "0123456789029";
    TitleRecord empty;
    empty.name = "Work in Progress";
    empty.artistName = "Demo Artist";

    TitleRecord& night = catalogue.addTitle(account, std::move(first));
    catalogue.addTrack(night, track("Headlights", "QZDEM1400001", 2014, 215.0, "Electronic"));
    catalogue.addTrack(night, track("Tunnel", "QZDEM1400002", 2014, 187.5, "Electronic"));
    TitleRecord& field = catalogue.addTitle(account, std::move(second));
    catalogue.addTrack(field, track("Rain on Tin", "QZDEM1500001", 2015, 301.25, "Ambient"));
    catalogue.addTitle(account, std::move(empty));
    catalogue.accountList.push_back(std::move(account));
    return catalogue;
}

std::string Catalogue::toJson() const
{
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> out(buffer);
    out.SetIndent(' ', 2);
    out.StartObject();
    out.Key("accounts");
    out.StartArray();
    for (const AccountRecord& account : accountList)
    {
        out.StartObject();
        member(out, "id", account.id);
        member(out, "username", account.username);
        member(out, "password", account.password);
        member(out, "name", account.name);
        member(out, "total_fans", account.totalFans);
        member(out, "total_sales", account.totalSales);
        member(out, "currency", account.currency);
        member(out, "start_date", account.startDate);
        member(out, "end_date", account.endDate);
        member(out, "active_promos", account.activePromos);
        member(out, "user_message", account.userMessage);
        member(out, "action_icon_id", account.actionIconId);
        member(out, "action_link", account.actionLink);
        member(out, "action_text", account.actionText);
        out.Key("titles");
        out.StartArray();
        for (const TitleRecord& title : account.titles)
        {
            out.StartObject();
            member(out, "id", title.id);
            member(out, "name", title.name);
            member(out, "artist_name", title.artistName);
            member(out, "upc", title.upc);
            out.Key("tracks");
            out.StartArray();
            for (const TrackRecord& track : title.tracks)
                writeTrack(out, track);
            out.EndArray();
            out.EndObject();
        }
        out.EndArray();
        out.EndObject();
    }
    out.EndArray();
    out.Key("uploads");
    out.StartArray();
    for (const StoredFile& file : uploadList)
    {
        out.StartObject();
        member(out, "upload_id", file.uploadId);
        member(out, "account_id", file.accountId);
        member(out, "track_id", file.trackId);
        member(out, "file_name", file.fileName);
        member(out, "path", file.path);
        member(out, "size", file.size);
        member(out, "sha256", file.sha256);
        out.EndObject();
    }
    out.EndArray();
    out.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

AccountRecord* Catalogue::findAccount(int64_t id)
{
    auto found = std::find_if(accountList.begin(), accountList.end(), [id](auto& a) { return a.id == id; });
    return found == accountList.end() ? nullptr : &*found;
}

const AccountRecord* Catalogue::findAccount(int64_t id) const
{
    return const_cast<Catalogue*>(this)->findAccount(id);
}

AccountRecord* Catalogue::findUser(std::string_view username)
{
    auto found = std::find_if(accountList.begin(), accountList.end(),
                              [username](auto& a) { return a.username == username; });
    return found == accountList.end() ? nullptr : &*found;
}

TitleRecord* Catalogue::findTitle(AccountRecord& account, int64_t id)
{
    auto found = std::find_if(account.titles.begin(), account.titles.end(), [id](auto& t) { return t.id == id; });
    return found == account.titles.end() ? nullptr : &*found;
}

TrackRecord* Catalogue::findTrack(AccountRecord& account, int64_t id)
{
    for (TitleRecord& title : account.titles)
        for (TrackRecord& track : title.tracks)
            if (track.id == id)
                return &track;
    return nullptr;
}

const StoredFile* Catalogue::findUpload(std::string_view uploadId) const
{
    auto found = std::find_if(uploadList.begin(), uploadList.end(),
                              [uploadId](auto& f) { return f.uploadId == uploadId; });
    return found == uploadList.end() ? nullptr : &*found;
}

TitleRecord& Catalogue::addTitle(AccountRecord& account, TitleRecord title)
{
    title.id = nextTitleId++;
    account.titles.push_back(std::move(title));
    return account.titles.back();
}

TrackRecord& Catalogue::addTrack(TitleRecord& title, TrackRecord track)
{
    track.id = nextTrackId++;
    track.trackNumber = title.tracks.empty() ? 1 : title.tracks.back().trackNumber + 1;
    title.tracks.push_back(std::move(track));
    return title.tracks.back();
}

void Catalogue::assignMissingIds()
{
    for (const AccountRecord& account : accountList)
        for (const TitleRecord& title : account.titles)
        {
            nextTitleId = std::max(nextTitleId, title.id + 1);
            for (const TrackRecord& track : title.tracks)
                nextTrackId = std::max(nextTrackId, track.id + 1);
        }
    for (AccountRecord& account : accountList)
        for (TitleRecord& title : account.titles)
        {
            if (title.id == 0)
                title.id = nextTitleId++;
            for (size_t i = 0; i < title.tracks.size(); ++i)
            {
                if (title.tracks[i].id == 0)
                    title.tracks[i].id = nextTrackId++;
                if (title.tracks[i].trackNumber == 0)
                    title.tracks[i].trackNumber = static_cast<int>(i + 1);
            }
        }
}

} // namespace SorvelSandbox

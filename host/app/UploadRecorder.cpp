#include "host/app/UploadRecorder.h"

#include "host/app/Complaint.h"
#include "host/ledger/Sha256.h"

namespace Host {

using namespace KVX;

std::string metadataDigest(const Attributes& metadata, const std::string& trackName)
{
    std::map<std::string, std::string> fields;
    for (const Attributes::Member& member : metadata)
    {
        const std::string key(member.name.view());
        if (key == "Media:Album")
            continue;
        if (member.value.isString() && !member.value.asString().toUtf8().empty())
            fields[key] = member.value.asString().toUtf8();
        else if (member.value.isInt())
            fields[key] = std::to_string(member.value.asInt());
    }
    fields["Media:Title"] = trackName;
    return sha256OfMetadata(fields);
}

bool digestsOf(const std::filesystem::path& source, const Attributes& metadata, const std::string& trackName,
               PublishLedger::Digests& digests, std::string& error)
{
    if (!sha256OfFile(source, digests.content, error))
        return false;
    digests.metadata = metadataDigest(metadata, trackName);
    return true;
}

UploadRecorder::~UploadRecorder() { stop(); }

void UploadRecorder::start(const Target& target, std::vector<Entry> entries,
                           const std::vector<ServiceAnswers::ListedTrack>& listed)
{
    stop();
    {
        std::lock_guard lock(mutex_);
        target_ = target;
        entries_ = std::move(entries);
        replaced_.clear();
        added_.clear();
        createdTracks_.clear();
        failed_ = false;
        recorded_ = 0;
        for (size_t index = 0; index < entries_.size(); ++index)
        {
            const Entry& entry = entries_[index];
            if (entry.pairedTrack.empty())
                added_.push_back(index);
            else if (!target_.productId.empty())
                for (const ServiceAnswers::ListedTrack& track : listed)
                    if (track.name == entry.pairedTrack)
                    {
                        replaced_.emplace(track.id, index);
                        break;
                    }
        }
    }
    ServiceAnswers::UploadWatch watch;
    watch.productCreated = [this](const std::string& id) {
        std::lock_guard lock(mutex_);
        target_.productId = id;
    };
    watch.trackCreated = [this](const std::string& id) {
        std::lock_guard lock(mutex_);
        createdTracks_.push_back(id);
    };
    watch.uploadConfirmed = [this](const std::string& id) { confirmed(id); };
    answers_.watchUploads(std::move(watch));
}

void UploadRecorder::stop() { answers_.watchUploads({}); }

bool UploadRecorder::failed() const
{
    std::lock_guard lock(mutex_);
    return failed_;
}

std::string UploadRecorder::productId() const
{
    std::lock_guard lock(mutex_);
    return target_.productId;
}

size_t UploadRecorder::recorded() const
{
    std::lock_guard lock(mutex_);
    return recorded_;
}

void UploadRecorder::confirmed(const std::string& trackId)
{
    std::lock_guard lock(mutex_);
    if (!ledger_ || failed_)
        return;
    size_t index = entries_.size();
    if (const auto replaced = replaced_.find(trackId); replaced != replaced_.end())
        index = replaced->second;
    else
        for (size_t k = 0; k < createdTracks_.size() && k < added_.size(); ++k)
            if (createdTracks_[k] == trackId)
                index = added_[k];
    if (index >= entries_.size())
        return; // not a track of this batch's mapping: nothing is recorded rather than a guess
    if (target_.productName.empty())
        return; // a product without a name cannot be found again by it: the next run sends the file
    const Entry& entry = entries_[index];
    PublishLedger::Record record;
    record.service = target_.service;
    record.account = target_.account;
    record.productId = target_.productId;
    record.productName = target_.productName;
    record.trackId = trackId;
    record.trackName = entry.trackName;
    record.source = entry.source.string();
    record.digests = entry.digests;
    record.format = entry.format;
    std::string error;
    if (!ledger_->record(record, error))
    {
        failed_ = true;
        complain("%s", error.c_str());
        return;
    }
    ++recorded_;
}

} // namespace Host

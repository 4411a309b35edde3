#include "host/app/LiveHandOver.h"

#include "host/app/CellReader.h"
#include "host/app/Complaint.h"
#include "host/app/HostObjects.h"
#include "host/app/Preflight.h"
#include "host/app/Runtime.h"
#include "host/app/TrackRows.h"
#include "host/gadget/GadgetSession.h"
#include "host/ledger/Sha256.h"

#include "framework/data/AttributeArray.h"
#include "framework/data/Url.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace Host {

using namespace KVX;
namespace fs = std::filesystem;

namespace {

/// The column of the track table whose drawing names a new row's file (its title, as typed).
constexpr int32 kTitleColumn = 1;
/// Wide enough that no title is shortened.
constexpr int32 kUnshortened = 100000;

/// The inspector's fields of a new row, with the metadata key each one is handed over as.
const std::pair<const char*, const char*> kInspectorFields[] = {
    {"TrackInfo.isrc", "Media:ISRC"},         {"TrackInfo.year", "Media:Year"},
    {"TrackInfo.genre", "Media:Genre"},       {"TrackInfo.comment", "Media:Comment"},
    {"TrackInfo.arranger", "Media:Arranger"}, {"TrackInfo.composer", "Media:Composer"},
    {"TrackInfo.songwriter", "Media:Songwriter"},
};

/// `sources` with the given values of `fields` (one for all, or one per file) and the product.
void applyGiven(std::vector<SourceFile>& sources, const std::map<std::string, std::vector<std::string>>& fields,
                const std::string& product)
{
    for (size_t i = 0; i < sources.size(); ++i)
    {
        for (const auto& [key, values] : fields)
            if (values.size() == 1 || values.size() == sources.size())
                sources[i].metadata.set(key, String(values.size() == 1 ? values[0] : values[i]));
        if (!product.empty())
            sources[i].metadata.set("Media:Album", String(product));
    }
}

} // namespace

LiveHandOver::LiveHandOver(Runtime& runtime, Engine::IPublisher& publisher, GadgetSession& session, unsigned jobs)
    : runtime_(runtime), publisher_(&publisher), session_(session), jobs_(jobs)
{
}

LiveHandOver::~LiveHandOver()
{
    std::error_code ignored;
    for (const fs::path& folder : folders_)
        fs::remove_all(folder, ignored);
}

void LiveHandOver::adopt(RenderedBatch batch, std::map<std::string, Ref<Attributes>> reports)
{
    if (batch.folder.empty())
        return;
    folders_.insert(batch.folder);
    for (RenderedBatch::File& file : batch.files)
        known_[file.output.string()] = {file.source, batch.folder, file.metadata, {}};
    reports_ = std::move(reports);
}

bool LiveHandOver::gadgetTakesFiles() const
{
    Gadget& gadget = runtime_.gadget();
    return !gadget.isUploading() && !gadget.isBusy();
}

void LiveHandOver::enqueue(Request request)
{
    applyGiven(request.sources, request.fields, request.product);
    const bool later = !gadgetTakesFiles();
    for (SourceFile& source : request.sources)
    {
        std::erase_if(waiting_, [&](const Waiting& waiting) { return waiting.source.path == source.path; });
        if (later)
            std::printf("Waiting for the upload to end: %s\n", source.path.c_str());
        waiting_.push_back({std::move(source), request.product});
    }
    flushOutput(stdout);
}

std::string LiveHandOver::productShown() const
{
    Gadget& gadget = runtime_.gadget();
    if (gadget.number("replaceMode") == 1)
    {
        const std::vector<std::string> products = gadget.entries("titlesList");
        const int64 chosen = gadget.number("titlesList");
        if (chosen >= 0 && chosen + 1 < static_cast<int64>(products.size())) // the last entry proposes a new one
            return products[static_cast<size_t>(chosen)];
    }
    return gadget.text("newProductName");
}

std::vector<LiveHandOver::Row> LiveHandOver::readTable()
{
    std::vector<Row> rows;
    IItemModel* model = runtime_.gadget().trackList();
    if (!model)
        return rows;
    const Ref<IViewStyle> style = CellReader::trackListStyle();
    const std::string list = session_.listKey("trackList");
    const std::vector<int> selected = session_.selectedRows(list);
    bool selectionMoved = false;
    for (int32 index = 0; index < model->countRows(); ++index)
    {
        const TrackRow values = TrackRow::read(*model, index);
        if (!values.hasFile())
            continue; // a track of the product without a file
        Row row;
        row.file = values.file;
        // A file beside a track of the product goes by that track's name, which pairs it again.
        row.title = values.hasTrack ? values.trackName
                                    : CellReader::read(*model, index, kTitleColumn, kUnshortened, style).text;
        row.isNew = !values.hasTrack && values.state == Engine::kRowWaiting;
        // What the user typed into the inspector lives only in the row: it is read as the
        // inspector shows it, with the row selected alone.
        if (row.isNew && !list.empty())
        {
            session_.selectRows(list, {index});
            selectionMoved = true;
            for (const auto& [field, key] : kInspectorFields)
                row.edits.set(key, String(runtime_.gadget().text(field)));
        }
        rows.push_back(std::move(row));
    }
    if (selectionMoved)
        session_.selectRows(list, selected);
    return rows;
}

void LiveHandOver::forgetUnlisted(const std::set<std::string>& listed)
{
    const auto leftOut = [&](const std::string& path) {
        return std::any_of(leftOut_.begin(), leftOut_.end(), [&](const LeftOut& left) { return left.path == path; });
    };
    std::erase_if(known_, [&](const auto& entry) { return !listed.count(entry.first) && !leftOut(entry.first); });
    std::erase_if(reports_, [&](const auto& entry) { return !known_.count(entry.first); });
    std::set<fs::path> used;
    for (const auto& [path, known] : known_)
        used.insert(known.folder);
    std::error_code ignored;
    for (auto folder = folders_.begin(); folder != folders_.end();)
        if (!used.count(*folder))
        {
            fs::remove_all(*folder, ignored);
            folder = folders_.erase(folder);
        }
        else
            ++folder;
}

std::vector<LiveHandOver::Item> LiveHandOver::tableItems()
{
    std::vector<Item> items;
    for (Row& row : readTable())
    {
        const auto known = known_.find(row.file);
        Item item{row.file, known == known_.end() ? Attributes() : known->second.metadata, false, {}, {}};
        if (!row.title.empty())
            item.metadata.set("Media:Title", String(row.title));
        for (const auto& member : row.edits)
            item.metadata.set(member.name, member.value);
        items.push_back(std::move(item));
    }
    return items;
}

bool LiveHandOver::handOver(const std::vector<Item>& items, const std::string& product)
{
    auto container = makeRef<PublishedItemContainer>();
    std::vector<Attributes> handed;
    for (const Item& item : items)
    {
        handed.push_back(item.metadata);
        if (!product.empty())
            handed.back().set("Media:Album", String(product));
        container->add(makeRef<PublishedItem>(Url::fromNativePath(String(item.path)).toDisplayString().toUtf8(),
                                              Attributes(handed.back())));
    }
    if (publisher_->publish(container) != kResultOk)
    {
        complain("the publishing target did not take the files");
        return false;
    }
    std::set<std::string> listed;
    for (size_t i = 0; i < items.size(); ++i)
    {
        const Item& item = items[i];
        listed.insert(item.path);
        if (item.fresh)
            known_[item.path] = {item.source, item.folder, handed[i], {}};
        else if (const auto known = known_.find(item.path); known != known_.end())
            known->second.metadata = handed[i];
    }
    forgetUnlisted(listed);
    return true;
}

void LiveHandOver::useLedger(PublishLedger& ledger, bool force)
{
    ledger_ = &ledger;
    force_ = force;
    recorder_ = std::make_unique<UploadRecorder>(&ledger, runtime_.answers());
}

bool LiveHandOver::digestsOf(Known& known, const Attributes& metadata, const std::string& trackName,
                             PublishLedger::Digests& digests)
{
    // The source is read once: a new export of it comes as a new rendering with a digest of its own.
    if (std::string error; known.contentDigest.empty() && !sha256OfFile(known.source, known.contentDigest, error))
    {
        complain("%s", error.c_str());
        return false;
    }
    digests.content = known.contentDigest;
    digests.metadata = metadataDigest(metadata, trackName);
    return true;
}

void LiveHandOver::leaveOutUnchanged()
{
    Gadget& gadget = runtime_.gadget();
    IItemModel* model = gadget.trackList();
    if (!ledger_ || !model || !waiting_.empty() || !gadgetTakesFiles())
        return;
    const ServiceAnswers::Catalogue catalogue = runtime_.answers().catalogue();
    if (!catalogue.listed)
        return; // not signed in yet: no product to judge against
    const std::string productName = productShown();
    const ServiceAnswers::Product* product = gadget.number("replaceMode") == 1 ? catalogue.find(productName) : nullptr;
    const std::string productId = product ? product->id : "";
    const std::vector<TrackRow> rows = TrackRow::readAll(*model);

    // Only a change of the table, of the product or of its tracks is looked at again.
    std::string look = productId + "\t" + productName + "\n";
    for (const TrackRow& row : rows)
        look += std::to_string(row.state) + "\t" + row.trackName + "\t" + row.file + "\n";
    if (product)
        for (const ServiceAnswers::ListedTrack& track : product->tracks)
            look += track.id + "\t" + track.name + "\n";
    if (look == lastLook_)
        return;
    lastLook_ = look;

    // Files left out as unchanged on another product go back to the table, to be judged again.
    std::vector<std::string> handedBack;
    std::erase_if(leftOut_, [&](const LeftOut& left) {
        if (left.productId == productId || !known_.count(left.path))
            return false;
        handedBack.push_back(left.path);
        return true;
    });

    // Files about to replace a track of the product that the ledger finds unchanged are left out.
    std::set<std::string> leaving;
    if (product && !force_)
    {
        std::vector<PublishLedger::ListedTrack> listed;
        for (const ServiceAnswers::ListedTrack& track : product->tracks)
            listed.push_back({track.id, track.name});
        for (const TrackRow& row : rows)
        {
            const auto known = known_.find(row.file);
            if (!row.hasTrack || row.state != Engine::kRowWaiting || known == known_.end())
                continue;
            // A paired row is handed over under its track's name, with the metadata it came with.
            PublishLedger::Digests digests;
            PublishLedger::Decision decision;
            std::string error;
            if (!digestsOf(known->second, known->second.metadata, row.trackName, digests))
                continue;
            if (!ledger_->decide({runtime_.serviceUrl(), catalogue.account, productId, row.trackName}, digests, listed,
                                 decision, error))
            {
                complain("%s", error.c_str());
                ledger_ = nullptr; // said once; the gadget goes on without leaving files out
                recorder_.reset();
                return;
            }
            if (decision.verdict != PublishLedger::Verdict::Unchanged)
                continue;
            leftOut_.push_back({row.file, productId, row.trackName, decision.last.publishedAt});
            leaving.insert(row.file);
            std::printf("Unchanged since its last upload, not sent: %s\n", known->second.source.c_str());
        }
    }

    // The rows of the tracks whose files were left out say so.
    std::map<std::string, Ref<Attributes>> notes;
    for (const LeftOut& left : leftOut_)
    {
        if (left.productId != productId)
            continue;
        char when[32] = "";
        const time_t seconds = static_cast<time_t>(left.publishedAt);
        if (tm local{}; localtime_r(&seconds, &local))
            std::strftime(when, sizeof when, "%Y-%m-%d %H:%M", &local);
        const auto known = known_.find(left.path);
        const std::string file = known == known_.end() ? left.path : known->second.source.filename().string();
        auto finding = makeRef<Attributes>();
        finding->set("severity", String("info"));
        finding->set("text", String(file + " is unchanged since its upload of " + when + ": not sent again"));
        auto findings = makeRef<AttributeArray>();
        findings->append(Variant(static_cast<Object*>(finding.get())));
        auto note = makeRef<Attributes>();
        note->set("check", String("unchanged"));
        note->set("heading", String("Publish ledger"));
        note->set("findings", Variant(static_cast<Object*>(findings.get())));
        notes[left.trackName] = note;
    }
    session_.setTrackNotes(std::move(notes));
    if (handedBack.empty() && leaving.empty())
        return;
    std::vector<Item> items = tableItems();
    std::erase_if(items, [&](const Item& item) { return leaving.count(item.path) > 0; });
    for (const std::string& path : handedBack)
        items.push_back({path, known_.at(path).metadata, false, {}, {}});
    // A new product chosen while the name shown is still a listed product's: files handed over
    // under that name would make the gadget choose the listed product again, against the user's
    // choice. They go without a product's name, which leaves the name for the user to type.
    const bool namedAsListed = !product && catalogue.find(productName);
    if (namedAsListed)
        for (Item& item : items)
            item.metadata.remove("Media:Album");
    handOver(items, namedAsListed ? std::string() : productName);
    flushOutput(stdout);
}

void LiveHandOver::beforePress()
{
    Gadget& gadget = runtime_.gadget();
    IItemModel* model = gadget.trackList();
    if (!recorder_ || !model || gadget.isUploading())
        return;
    const ServiceAnswers::Catalogue catalogue = runtime_.answers().catalogue();
    const std::string productName = productShown();
    const ServiceAnswers::Product* product = gadget.number("replaceMode") == 1 ? catalogue.find(productName) : nullptr;
    const Ref<IViewStyle> style = CellReader::trackListStyle();
    std::vector<UploadRecorder::Entry> entries;
    for (int32 index = 0; index < model->countRows(); ++index)
    {
        const TrackRow row = TrackRow::read(*model, index);
        const auto known = known_.find(row.file);
        if (!row.hasFile() || row.state != Engine::kRowWaiting || known == known_.end())
            continue;
        UploadRecorder::Entry entry;
        entry.source = known->second.source;
        entry.trackName = row.hasTrack ? row.trackName : CellReader::read(*model, index, kTitleColumn, kUnshortened, style).text;
        entry.pairedTrack = row.hasTrack ? row.trackName : "";
        entry.format = describeRendered(row.file);
        if (!digestsOf(known->second, known->second.metadata, entry.trackName, entry.digests))
            continue;
        entries.push_back(std::move(entry));
    }
    recorder_->start({runtime_.serviceUrl(), catalogue.account, productName, product ? product->id : ""},
                     std::move(entries), product ? product->tracks : std::vector<ServiceAnswers::ListedTrack>());
}

int LiveHandOver::handOverWaiting()
{
    if (waiting_.empty() || !gadgetTakesFiles())
        return kDone;
    std::vector<Waiting> taking;
    taking.swap(waiting_);
    std::vector<SourceFile> sources;
    std::string product;
    for (Waiting& waiting : taking)
    {
        sources.push_back(std::move(waiting.source));
        if (!waiting.product.empty())
            product = waiting.product;
    }

    // Rendered side by side; should one file fail, the others are rendered alone, so that one
    // bad export does not hold back the rest.
    std::vector<RenderedBatch> batches(1);
    int code = renderBatch(*publisher_, sources, {}, {}, false, jobs_, batches[0]);
    if (code == kInterrupted)
        return code;
    if (code != kDone)
    {
        batches.clear();
        for (const SourceFile& source : sources)
        {
            RenderedBatch alone;
            code = renderBatch(*publisher_, {source}, {}, {}, false, jobs_, alone);
            if (code == kInterrupted)
                return code;
            if (code == kDone)
                batches.push_back(std::move(alone));
        }
    }
    struct Fresh
    {
        const RenderedBatch::File* file;
        fs::path folder;
        bool placed = false;
    };
    std::vector<Fresh> fresh;
    for (const RenderedBatch& batch : batches)
    {
        folders_.insert(batch.folder);
        for (const RenderedBatch::File& file : batch.files)
            fresh.push_back({&file, batch.folder});
    }
    if (fresh.empty())
        return kDone;

    // The table as it is now, each of its files handed over again, a new export of one of them
    // in its place; the new files after them.
    std::vector<Item> items;
    for (Item& item : tableItems())
    {
        const auto known = known_.find(item.path);
        const auto again = known == known_.end() ? fresh.end()
                                                 : std::find_if(fresh.begin(), fresh.end(), [&](const Fresh& one) {
                                                       return one.file->source == known->second.source;
                                                   });
        if (again == fresh.end())
        {
            items.push_back(std::move(item));
            continue;
        }
        if (!again->placed)
            items.push_back({again->file->output.string(), again->file->metadata, true, again->file->source, again->folder});
        again->placed = true;
    }
    for (Fresh& one : fresh)
    {
        // A new export of a file left out as unchanged is judged again as the new file it is.
        std::erase_if(leftOut_, [&](const LeftOut& left) {
            const auto known = known_.find(left.path);
            return known != known_.end() && known->second.source == one.file->source;
        });
        if (!one.placed)
            items.push_back({one.file->output.string(), one.file->metadata, true, one.file->source, one.folder});
    }

    if (product.empty())
        product = productShown();
    if (!handOver(items, product))
        return kDone;
    // The new files' reports, for the badges of their rows.
    for (const RenderedBatch& batch : batches)
    {
        const PreflightReport report = preflightOfBatch(batch, runtime_.preflightLimits());
        for (size_t i = 0; i < batch.files.size() && i < report.rows.size(); ++i)
            reports_[batch.files[i].output.string()] = preflightDocument(batch.files[i], report.rows[i]);
    }
    session_.setFileReports(reports_);
    for (const Fresh& one : fresh)
        std::printf("Listed %s\n", one.file->source.c_str());
    flushOutput(stdout);
    return kDone;
}

} // namespace Host

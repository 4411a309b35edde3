#include "host/app/LiveHandOver.h"

#include "host/app/CellReader.h"
#include "host/app/Complaint.h"
#include "host/app/HostObjects.h"
#include "host/app/Preflight.h"
#include "host/app/Runtime.h"
#include "host/app/TrackRows.h"
#include "host/gadget/GadgetSession.h"

#include "framework/data/Url.h"

#include <cstdio>

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
        known_[file.output.string()] = {file.source, batch.folder, file.metadata};
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
    std::fflush(stdout);
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
    std::erase_if(known_, [&](const auto& entry) { return !listed.count(entry.first); });
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
    struct Item
    {
        std::string path;
        Attributes metadata;
        const Fresh* from = nullptr;
    };
    std::vector<Item> items;
    for (Row& row : readTable())
    {
        const auto known = known_.find(row.file);
        const auto again = known == known_.end() ? fresh.end()
                                                 : std::find_if(fresh.begin(), fresh.end(), [&](const Fresh& one) {
                                                       return one.file->source == known->second.source;
                                                   });
        if (again != fresh.end())
        {
            if (!again->placed)
                items.push_back({again->file->output.string(), again->file->metadata, &*again});
            again->placed = true;
            continue;
        }
        Item item{row.file, known == known_.end() ? Attributes() : known->second.metadata};
        if (!row.title.empty())
            item.metadata.set("Media:Title", String(row.title));
        for (const auto& member : row.edits)
            item.metadata.set(member.name, member.value);
        items.push_back(std::move(item));
    }
    for (Fresh& one : fresh)
        if (!one.placed)
            items.push_back({one.file->output.string(), one.file->metadata, &one});

    if (product.empty())
        product = productShown();
    auto container = makeRef<PublishedItemContainer>();
    for (Item& item : items)
    {
        if (!product.empty())
            item.metadata.set("Media:Album", String(product));
        container->add(makeRef<PublishedItem>(Url::fromNativePath(String(item.path)).toDisplayString().toUtf8(),
                                              Attributes(item.metadata)));
    }
    if (publisher_->publish(container) != kResultOk)
    {
        complain("the publishing target did not take the files");
        return kDone;
    }

    std::set<std::string> listed;
    for (const Item& item : items)
    {
        listed.insert(item.path);
        if (item.from)
            known_[item.path] = {item.from->file->source, item.from->folder, item.metadata};
        else if (const auto known = known_.find(item.path); known != known_.end())
            known->second.metadata = item.metadata;
    }
    // The new files' reports, for the badges of their rows.
    for (const RenderedBatch& batch : batches)
    {
        const PreflightReport report = preflightOfBatch(batch, runtime_.preflightLimits());
        for (size_t i = 0; i < batch.files.size() && i < report.rows.size(); ++i)
            reports_[batch.files[i].output.string()] = preflightDocument(batch.files[i], report.rows[i]);
    }
    forgetUnlisted(listed);
    session_.setFileReports(reports_);
    for (const Fresh& one : fresh)
        std::printf("Listed %s\n", one.file->source.c_str());
    std::fflush(stdout);
    return kDone;
}

} // namespace Host

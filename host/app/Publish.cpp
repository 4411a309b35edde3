#include "host/app/CellReader.h"
#include "host/app/Commands.h"
#include "host/app/Complaint.h"
#include "host/app/JsonOutput.h"
#include "host/app/Preflight.h"
#include "host/app/Rendering.h"
#include "host/app/SourceFile.h"
#include "host/app/TrackRows.h"
#include "host/app/UploadRecorder.h"
#include "host/config/LanguageFile.h"
#include "host/config/Settings.h"
#include "host/ledger/PublishLedger.h"
#include "host/terminal/PasswordInput.h"
#include "host/terminal/TextWidth.h"

#include "framework/hostsupport/EventWait.h"
#include "framework/interfaces/IPublisher.h"
#include "framework/interfaces/TextKeys.h"

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <unistd.h>

namespace Host {

using namespace KVX;
namespace fs = std::filesystem;

namespace {

/// One row of the track table: the values the host acts on and the words the gadget shows.
struct RowView
{
    TrackRow values;
    std::string title;  ///< as the "Track" cell shows it
    std::string file;   ///< as the "File" cell shows it (shortened to fit)
    std::string status; ///< as the "State" cell shows it (perhaps translated)
    double fill = 0;
    uint32 color = 0; ///< of the status bar, 0xRRGGBBAA
    bool unchanged = false; ///< a file of the batch the ledger left out: on the service as it is

    const char* stateName() const { return unchanged ? "unchanged" : values.stateName(); }
};

/// Whether `out` is a terminal that understands colours and cursor movement.
bool richTerminal(FILE* out)
{
    const char* term = std::getenv("TERM");
    return ::isatty(fileno(out)) && term && *term && std::string(term) != "dumb";
}

bool colorsOn(FILE* out)
{
    return richTerminal(out) && !std::getenv("NO_COLOR");
}

/// `text` in the colour `rgba` (24-bit terminal colours) when `on`.
std::string colored(const std::string& text, uint32 rgba, bool on)
{
    if (!on || !rgba)
        return text;
    char start[32];
    std::snprintf(start, sizeof start, "\x1b[38;2;%u;%u;%um", unsigned(rgba >> 24), unsigned(rgba >> 16 & 0xFF),
                  unsigned(rgba >> 8 & 0xFF));
    return start + text + "\x1b[0m";
}

class TrackTable
{
public:
    explicit TrackTable(IItemModel& model)
        : model_(model), style_(CellReader::trackListStyle()), titleColumn_(TrackRow::columnOf(model, "remote_track")),
          fileColumn_(TrackRow::columnOf(model, "local_track")), statusColumn_(TrackRow::columnOf(model, "status"))
    {
    }

    std::vector<RowView> rows() const
    {
        std::vector<RowView> result;
        for (int32 row = 0; row < model_.countRows(); ++row)
        {
            RowView view;
            view.values = TrackRow::read(model_, row);
            view.title = CellReader::read(model_, row, titleColumn_, 200, style_).text;
            view.file = CellReader::read(model_, row, fileColumn_, 300, style_).text;
            const CellReader::Cell status = CellReader::read(model_, row, statusColumn_, 200, style_);
            view.status = status.text;
            view.fill = status.fill;
            view.color = status.fillColor;
            result.push_back(view);
        }
        return result;
    }

    /// The table with the pre-flight verdict of each listed file (`checks`, by its path).
    static void print(const std::vector<RowView>& rows, const std::map<std::string, std::string>& checks, FILE* out)
    {
        // Columns are measured in what a terminal shows, not in bytes: "Überfahrt" is nine
        // columns wide, a CJK title twice its letters.
        size_t titleWidth = 5, fileWidth = 4, stateWidth = 5;
        for (const RowView& row : rows)
        {
            titleWidth = std::max(titleWidth, displayWidth(row.title));
            fileWidth = std::max(fileWidth, displayWidth(row.file));
            stateWidth = std::max(stateWidth, displayWidth(row.status));
        }
        const bool on = colorsOn(out);
        std::fprintf(out, "%s  %s  %s  %s\n", padToWidth("Track", titleWidth).c_str(),
                     padToWidth("File", fileWidth).c_str(), padToWidth("State", stateWidth).c_str(), "Check");
        for (const RowView& row : rows)
        {
            const auto check = checks.find(row.values.file);
            // Padded before it is coloured: the colour's escapes take no columns.
            std::fprintf(out, "%s  %s  %s  %s\n", padToWidth(row.title, titleWidth).c_str(),
                         padToWidth(row.file, fileWidth).c_str(),
                         colored(padToWidth(row.status, stateWidth), row.color, on).c_str(),
                         check == checks.end() ? "" : check->second.c_str());
        }
    }

private:
    IItemModel& model_;
    Ref<IViewStyle> style_;
    int32 titleColumn_, fileColumn_, statusColumn_;
};

/// Progress of the rows being uploaded: a bar per row, redrawn in place on a terminal that can
/// move its cursor, or a line per row at every tenth on anything else.
class UploadProgress
{
public:
    explicit UploadProgress(bool enabled) : enabled_(enabled), terminal_(richTerminal(stderr)), colors_(colorsOn(stderr))
    {
    }

    void show(const std::vector<RowView>& rows)
    {
        if (!enabled_)
            return;
        if (last_.size() != rows.size())
            last_.assign(rows.size(), -1);
        if (terminal_)
        {
            if (drawn_)
                std::fprintf(stderr, "\x1b[%zuA", drawn_);
            for (const RowView& row : rows)
            {
                const int width = 30;
                const int filled = static_cast<int>(row.fill * width + 0.5);
                const bool uploading = row.values.state == Engine::kRowUploading;
                const bool complete = row.values.state == Engine::kRowUploaded;
                std::string bar(static_cast<size_t>(uploading ? filled : complete ? width : 0), '#');
                bar.resize(width, uploading ? '-' : ' ');
                std::fprintf(stderr, "\x1b[2K%s [%s] %s\n", fitToWidth(row.title, 24).c_str(), bar.c_str(),
                             colored(row.status, row.color, colors_).c_str());
            }
            drawn_ = rows.size();
        }
        else
            for (size_t i = 0; i < rows.size(); ++i)
            {
                const bool uploading = rows[i].values.state == Engine::kRowUploading;
                const int tenth = uploading ? static_cast<int>(rows[i].fill * 10) : -2;
                if (uploading && tenth != last_[i])
                    std::fprintf(stderr, "%s: %s\n", rows[i].title.c_str(), rows[i].status.c_str());
                last_[i] = tenth;
            }
        std::fflush(stderr);
    }

private:
    bool enabled_;
    bool terminal_;
    bool colors_;
    size_t drawn_ = 0;
    std::vector<int> last_;
};

/// Seconds spent in each step of one publish, for the JSON report and the benchmark.
struct StepTimes
{
    using Clock = std::chrono::steady_clock;
    Clock::time_point start = Clock::now();
    double signIn = 0, render = 0, upload = 0;

    /// Seconds since the last call (or the start).
    double lap()
    {
        const Clock::time_point now = Clock::now();
        const double seconds = std::chrono::duration<double>(now - start).count();
        start = now;
        return seconds;
    }
};

/// Removes the folder of the rendered files when the publish ends, unless they were kept for
/// another try.
class RenderedFolderGuard
{
public:
    explicit RenderedFolderGuard(const RenderedBatch& batch) : batch_(batch) {}
    ~RenderedFolderGuard()
    {
        if (!keep_)
            batch_.removeFolder();
    }
    RenderedFolderGuard(const RenderedFolderGuard&) = delete;
    RenderedFolderGuard& operator=(const RenderedFolderGuard&) = delete;

    void keep() { keep_ = true; }

private:
    const RenderedBatch& batch_;
    bool keep_ = false;
};

/// The flag of a "Media:" key ("Media:Year" gives "--year").
std::string flagOf(const std::string& key)
{
    std::string flag = "--" + key.substr(key.find(':') + 1);
    for (char& letter : flag)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    return flag;
}

/// One publish: the steps after sign-in, sharing what each step learns.
class PublishRun
{
public:
    /// `ledger`, when given, holds the claim of the product and learns each confirmed upload.
    PublishRun(const PublishOptions& options, Runtime& runtime, const std::vector<SourceFile>& sources,
               PublishLedger* ledger = nullptr)
        : options_(options), runtime_(runtime), gadget_(runtime.gadget()), sources_(sources), ledger_(ledger)
    {
    }

    int run(StepTimes& times);
    /// The retries before this run, for the JSON report; with `mayRetry` a failure of the network
    /// or the service prints no JSON document, since another run follows.
    void setRetries(unsigned retries, bool mayRetry)
    {
        retries_ = retries;
        mayRetry_ = mayRetry;
    }
    /// Whether the run failed for a reason of the network or the service (no answer, HTTP 5xx).
    bool transientFailure() const { return transient_; }
    /// The source that could not be rendered or read, when one ended the run (kUsage).
    const std::filesystem::path& unusable() const { return batch_.unusable; }

private:
    int render();
    int judgeFiles();
    int printPlan();
    /// The rows of the table, with the files the ledger left out shown as unchanged.
    std::vector<RowView> rows() const;
    void watchUploads();
    void listTable();
    void noteUnsentFields();
    int preflightGate();
    int upload();
    int outcome();

    /// Rows that hold a file of this batch, in table order.
    std::vector<const RowView*> batchRows(const std::vector<RowView>& rows) const;
    void setPreflight(JsonOutput& json, JsonOutput::Value& track, const std::string& file) const;
    JsonOutput::Value tracksJson(JsonOutput& json, const std::vector<RowView>& rows) const;
    void printJson(const char* result, int code, const std::string& reason, const std::string& productId,
                   const std::string& page, const std::vector<RowView>& rows);

    const PublishOptions& options_;
    Runtime& runtime_;
    Gadget& gadget_;
    const std::vector<SourceFile>& sources_;
    StepTimes* times_ = nullptr;
    RenderedBatch batch_;
    std::unique_ptr<RenderedFolderGuard> folderGuard_;
    std::unique_ptr<TrackTable> table_;
    std::string product_;
    bool newProduct_ = false;
    PreflightReport preflight_;
    std::map<std::string, size_t> fileIndex_; ///< batch file by its rendered path
    std::map<std::string, std::vector<std::string>> unsentFields_; ///< flags that stay behind, by file
    std::vector<RowView> finished_;
    bool cancelled_ = false;
    std::vector<ServiceAnswers::Refusal> refusals_;

    PublishLedger* ledger_;
    unsigned retries_ = 0;
    bool mayRetry_ = false;
    bool transient_ = false;
    std::string account_;
    std::string productName_;              ///< as the gadget picks it: the first album of the batch
    std::string productId_;                ///< of the product listed under that name, or created
    std::vector<PublishLedger::Digests> digests_; ///< per batch file
    std::vector<PublishLedger::Verdict> verdicts_;
    std::vector<bool> leftOut_;            ///< per batch file: unchanged, not handed over
    size_t handedOver_ = 0;
    std::unique_ptr<UploadRecorder> recorder_; ///< while the batch runs and after
    bool ledgerFailed_ = false;
};

int PublishRun::run(StepTimes& times)
{
    times_ = &times;
    if (int code = render(); code != kDone)
        return code;
    times.render = times.lap();
    listTable();
    if (int code = preflightGate(); code != kDone)
        return code;
    if (options_.dryRun)
        return printPlan();
    if (int code = upload(); code != kDone)
        return code;
    times.upload = times.lap();
    return outcome();
}

int PublishRun::render()
{
    const Ref<Engine::IPublisher> publisher = runtime_.createPublisher();
    if (!publisher)
        return kServiceFailed;
    if (int code = renderBatch(*publisher, sources_, options_.fields, options_.product, options_.json, options_.jobs,
                               batch_);
        code != kDone)
        return code;
    folderGuard_ = std::make_unique<RenderedFolderGuard>(batch_);
    for (size_t i = 0; i < batch_.files.size(); ++i)
        fileIndex_[batch_.files[i].output.string()] = i;
    if (int code = judgeFiles(); code != kDone)
        return code;
    // Files the ledger found unchanged are not handed over: the plug-in never sees them, and
    // when none is left it is handed nothing and nothing is sent.
    if (handedOver_ > 0)
        if (int code = handOver(*publisher, batch_, leftOut_); code != kDone)
            return code;
    if (options_.newProduct)
        gadget_.setNumber("replaceMode", 0, true); // a new product, even when one has this name
    IItemModel* model = gadget_.trackList();
    if (!model)
    {
        complain("the gadget has no track table");
        return kServiceFailed;
    }
    table_ = std::make_unique<TrackTable>(*model);
    product_ = handedOver_ ? gadget_.text("newProductName") : productName_;
    newProduct_ = handedOver_ ? gadget_.number("replaceMode") == 0 : productId_.empty();
    return kDone;
}

int PublishRun::judgeFiles()
{
    const size_t count = batch_.files.size();
    leftOut_.assign(count, false);
    verdicts_.assign(count, PublishLedger::Verdict::New);
    digests_.assign(count, {});
    handedOver_ = count;
    // The product the gadget will pick: the first album of the batch, found by its name.
    for (const RenderedBatch::File& file : batch_.files)
        if (productName_.empty())
            productName_ = file.metadata.getString("Media:Album").toUtf8();
    const ServiceAnswers::Catalogue catalogue = runtime_.answers().catalogue();
    account_ = catalogue.account;
    const ServiceAnswers::Product* product = options_.newProduct ? nullptr : catalogue.find(productName_);
    if (product)
        productId_ = product->id;
    if (!ledger_)
        return kDone;
    std::vector<PublishLedger::ListedTrack> listed;
    if (product)
        for (const ServiceAnswers::ListedTrack& track : product->tracks)
            listed.push_back({track.id, track.name});
    for (size_t i = 0; i < count; ++i)
    {
        const RenderedBatch::File& file = batch_.files[i];
        std::string error;
        if (!digestsOf(file.source, file.metadata, file.trackName(), digests_[i], error))
        {
            batch_.unusable = file.source;
            complain("%s", error.c_str());
            return kUsage;
        }
        if (!product)
            continue; // a product still to be created holds nothing yet
        PublishLedger::Decision decision;
        if (!ledger_->decide({runtime_.serviceUrl(), account_, productId_, file.trackName()}, digests_[i], listed,
                             decision, error))
        {
            complain("%s", error.c_str());
            return kConfiguration;
        }
        verdicts_[i] = decision.verdict;
        if (decision.verdict == PublishLedger::Verdict::Unchanged && !options_.force)
        {
            leftOut_[i] = true;
            --handedOver_;
        }
    }
    return kDone;
}

std::vector<RowView> PublishRun::rows() const
{
    std::vector<RowView> result = handedOver_ ? table_->rows() : std::vector<RowView>();
    for (size_t i = 0; i < leftOut_.size(); ++i)
    {
        if (!leftOut_[i])
            continue;
        const RenderedBatch::File& file = batch_.files[i];
        // The product's row of the track the file would replace, else a row of its own.
        RowView* row = nullptr;
        for (RowView& candidate : result)
            if (!row && !candidate.unchanged && !candidate.values.hasFile() && candidate.values.hasTrack &&
                candidate.values.trackName == file.trackName())
                row = &candidate;
        if (!row)
        {
            result.emplace_back();
            row = &result.back();
            row->title = file.trackName();
            row->values.hasTrack = true;
            row->values.trackName = file.trackName();
        }
        row->values.file = file.output.string();
        row->file = file.output.filename().string();
        row->status = "unchanged";
        row->unchanged = true;
        row->color = 0;
        row->fill = 0;
    }
    return result;
}

int PublishRun::printPlan()
{
    // What a real run would do, from the rows as the gadget laid them out.
    const std::vector<RowView> planned = rows();
    size_t add = 0, replace = 0, unchanged = 0;
    for (const RowView* row : batchRows(planned))
    {
        const std::string state = row->stateName();
        add += state == "add";
        replace += state == "replace";
        unchanged += state == "unchanged";
    }
    if (options_.json)
    {
        printJson("planned", kDone, "", productId_, "", planned);
        return kDone;
    }
    std::fprintf(stdout, "Plan (--dry-run, nothing sent): %s \"%s\"\n",
                 newProduct_ && handedOver_ ? "create the product" : "publish to the product",
                 printable(product_).c_str());
    for (const RowView* row : batchRows(planned))
        std::fprintf(stdout, "  %-9s %s\n", row->stateName(), printable(row->title).c_str());
    std::fprintf(stdout, "%zu to add, %zu to replace, %zu unchanged\n", add, replace, unchanged);
    return kDone;
}

void PublishRun::watchUploads()
{
    // The batch's entries follow the table's rows that hold a file: those paired with a track of
    // the product replace it, the others become new tracks in that order.
    const ServiceAnswers::Catalogue catalogue = runtime_.answers().catalogue();
    const ServiceAnswers::Product* product = productId_.empty() ? nullptr : catalogue.find(productName_);
    std::vector<UploadRecorder::Entry> entries;
    const std::vector<RowView> table = table_->rows();
    for (const RowView* row : batchRows(table))
    {
        if (row->values.state == Engine::kRowUnsupportedFormat)
            continue;
        const size_t index = fileIndex_.at(row->values.file);
        const RenderedBatch::File& file = batch_.files[index];
        entries.push_back({file.source, file.trackName(), row->values.hasTrack ? row->values.trackName : "",
                           digests_[index], describeRendered(file.output)});
    }
    UploadRecorder::Target target{runtime_.serviceUrl(), account_, productName_.empty() ? product_ : productName_,
                                  productId_};
    recorder_ = std::make_unique<UploadRecorder>(ledger_, runtime_.answers());
    recorder_->start(target, std::move(entries), product ? product->tracks : std::vector<ServiceAnswers::ListedTrack>());
}

std::vector<const RowView*> PublishRun::batchRows(const std::vector<RowView>& rows) const
{
    std::vector<const RowView*> result;
    for (const RowView& row : rows)
        if (fileIndex_.count(row.values.file))
            result.push_back(&row);
    return result;
}

void PublishRun::listTable()
{
    preflight_ = preflightOfTable(gadget_, batch_, runtime_.preflightLimits());
    noteUnsentFields();
    if (options_.json)
        return;
    std::map<std::string, std::string> checks;
    for (const auto& [path, index] : fileIndex_)
        checks[path] = PreflightReport::name(preflight_.rows[index].severity);
    std::fprintf(stdout, "Product: %s%s\n", printable(product_).c_str(), newProduct_ ? " (new)" : "");
    TrackTable::print(rows(), checks, stdout);
    std::fprintf(stdout, "\nPre-flight report\n");
    printPreflight(batch_, preflight_, stdout);
    std::fprintf(stdout, "\n");
    flushOutput(stdout);
}

void PublishRun::noteUnsentFields()
{
    // A file that replaces a track of the product goes up as that track's new audio; the service
    // keeps the track's details, so what was given for it besides the title does not reach it.
    for (const RowView& row : rows())
    {
        const auto index = fileIndex_.find(row.values.file);
        if (index == fileIndex_.end() || !row.values.hasTrack || row.unchanged)
            continue;
        std::vector<std::string> flags;
        for (const auto& [key, values] : options_.fields)
            if (key != "Media:Title" && !values.empty())
                flags.push_back(flagOf(key));
        if (flags.empty())
            continue;
        std::string list;
        for (const std::string& flag : flags)
            list += (list.empty() ? "" : ", ") + flag;
        std::fprintf(stderr,
                     "sorvel: \"%s\" replaces a track of the product, whose details the service keeps: %s do%s not "
                     "reach it\n",
                     row.values.trackName.c_str(), list.c_str(), flags.size() == 1 ? "es" : "");
        unsentFields_[row.values.file] = flags;
    }
}

int PublishRun::preflightGate()
{
    if (!options_.strict || preflight_.worst() == PreflightReport::Severity::Ok)
        return kDone;
    size_t errors = 0, warnings = 0;
    for (const PreflightReport::Row& row : preflight_.rows)
        for (const PreflightReport::Finding& finding : row.findings)
        {
            errors += finding.severity == PreflightReport::Severity::Error;
            warnings += finding.severity == PreflightReport::Severity::Warning;
        }
    folderGuard_->keep();
    complain("the pre-flight report found %zu error(s) and %zu warning(s); nothing was uploaded (--strict). Rendered "
             "files kept in %s",
             errors, warnings, batch_.folder.c_str());
    if (options_.json)
        printJson("refused", kPreflightFailed, lastComplaint(), "", "", rows());
    return kPreflightFailed;
}

int PublishRun::upload()
{
    // The form's "Upload" button; the rows report their progress as they are drawn.
    UploadProgress progress(options_.progress && !options_.json);
    if (handedOver_ == 0)
    {
        finished_ = rows(); // every file unchanged: nothing to send
        return kDone;
    }
    runtime_.answers().takeRefusals(); // what was refused before the upload is not its reason
    watchUploads();
    gadget_.press("upload");
    if (!gadget_.isUploading())
    {
        recorder_->stop();
        complain("nothing to upload: no row holds a file in the format the service takes");
        if (options_.json)
            printJson("failed", kServiceFailed, lastComplaint(), "", "", rows());
        return kServiceFailed;
    }
    if (options_.progress && !options_.json)
    {
        const size_t files = batchRows(table_->rows()).size();
        std::fprintf(stderr, "Uploading %zu file%s to \"%s\"\n", files, files == 1 ? "" : "s", product_.c_str());
        std::fflush(stderr);
    }
    while (gadget_.isUploading())
    {
        if (gInterrupted.load(std::memory_order_relaxed) && !cancelled_)
        {
            gadget_.press("cancel");
            cancelled_ = true;
        }
        finished_ = rows();
        progress.show(finished_);
        EventWait::until([&] { return !gadget_.isUploading(); }, 100);
    }
    // What the rows show when the batch has ended, before the product's tracks are reloaded.
    finished_ = rows();
    progress.show(finished_);
    refusals_ = runtime_.answers().takeRefusals();
    recorder_->stop(); // the worker has ended: nothing more is confirmed
    productId_ = recorder_->productId();
    ledgerFailed_ = recorder_->failed();
    gadget_.settle(Runtime::waitLimitMs());
    return kDone;
}

int PublishRun::outcome()
{
    using namespace Engine::TextKeys;
    const std::vector<const RowView*> rows = batchRows(finished_);
    size_t uploaded = 0, unchanged = 0;
    for (const RowView* row : rows)
    {
        uploaded += !row->unchanged && row->values.state == Engine::kRowUploaded;
        unchanged += row->unchanged;
    }

    // Every file on the service is a success, whatever came after it: the reload of the products
    // that follows may still fail, or find the session expired, without undoing the upload.
    const char* result = "uploaded";
    int code = kDone;
    std::string reason;
    if (uploaded + unchanged == batch_.files.size() && !cancelled_ && !ledgerFailed_)
        code = kDone;
    else if (ledgerFailed_)
        result = "failed", code = kConfiguration, reason = "the publish ledger could not record an upload";
    else if (runtime_.alerts().contains(kSessionExpired))
        result = "session_expired", code = kSignInRefused, reason = LanguageFile::text(kSessionExpired);
    else if (runtime_.alerts().contains(kUploadFailed))
        result = "failed", code = kServiceFailed, reason = LanguageFile::text(kUploadFailed);
    else if (cancelled_)
        result = "cancelled", code = kInterrupted, reason = interruptReason();
    else if (runtime_.pages().pages().empty())
        result = "failed", code = kServiceFailed, reason = "the upload did not finish";

    if (code == kServiceFailed)
    {
        // Why: the service's own words for what it refused, or what kept it from answering.
        std::string why;
        for (const ServiceAnswers::Refusal& refusal : refusals_)
            if (refusal.statusCode != 403)
            {
                why = ServiceAnswers::describe(refusal);
                transient_ = refusal.statusCode >= 500;
            }
        if (why.empty())
            if (const std::string failure = Runtime::takeServiceFailure(); !failure.empty())
            {
                why = "the service did not answer (" + failure + "). Try again in a moment.";
                transient_ = true;
            }
        if (!why.empty())
        {
            complain("%s", why.c_str());
            reason += (reason.empty() ? "" : " ") + why;
        }
    }

    const std::string page = runtime_.pages().pages().empty() ? "" : runtime_.pages().pages().back();
    if (code != kDone)
        folderGuard_->keep();
    if (options_.json)
    {
        if (!(transient_ && mayRetry_)) // else the run that follows prints the document
            printJson(result, code, reason, runtime_.pages().lastProductId().empty() ? productId_ : runtime_.pages().lastProductId(),
                      page, finished_);
    }
    else if (unchanged == batch_.files.size())
        std::fprintf(stdout, "All %zu files are unchanged on \"%s\" since their last upload; nothing was sent\n",
                     unchanged, printable(product_).c_str());
    else
    {
        std::fprintf(stdout, "%zu of %zu tracks uploaded to \"%s\"", uploaded, batch_.files.size(),
                     printable(product_).c_str());
        if (unchanged)
            std::fprintf(stdout, " (%zu unchanged, not sent)", unchanged);
        std::fprintf(stdout, "\n");
        if (!page.empty())
            std::fprintf(stdout, "Product page: %s\n", printable(page).c_str());
        if (code != kDone)
            std::fprintf(stdout, "Rendered files kept in %s\n", batch_.folder.c_str());
    }
    return code;
}

void PublishRun::setPreflight(JsonOutput& json, JsonOutput::Value& track, const std::string& file) const
{
    const auto index = fileIndex_.find(file);
    if (index == fileIndex_.end() || index->second >= preflight_.rows.size())
        return;
    const RenderedBatch::File& rendered = batch_.files[index->second];
    json.set(track, "source", fs::absolute(rendered.source).lexically_normal().string());
    json.set(track, "preflight", preflightJson(json, rendered, preflight_.rows[index->second]));
}

JsonOutput::Value PublishRun::tracksJson(JsonOutput& json, const std::vector<RowView>& rows) const
{
    JsonOutput::Value tracks = json.array();
    for (const RowView& row : rows)
    {
        JsonOutput::Value track = json.object();
        json.set(track, "title", row.values.hasTrack ? row.values.trackName : row.title);
        json.set(track, "file", row.values.file);
        json.set(track, "state", row.stateName());
        json.set(track, "status", row.status);
        json.set(track, "in_batch", fileIndex_.count(row.values.file) > 0);
        setPreflight(json, track, row.values.file);
        if (const auto unsent = unsentFields_.find(row.values.file); unsent != unsentFields_.end())
        {
            JsonOutput::Value flags = json.array();
            for (const std::string& flag : unsent->second)
                json.append(flags, json.text(flag));
            json.set(track, "unsent_fields", std::move(flags));
        }
        json.append(tracks, std::move(track));
    }
    return tracks;
}

void PublishRun::printJson(const char* result, int code, const std::string& reason, const std::string& productId,
                           const std::string& page, const std::vector<RowView>& rows)
{
    JsonOutput json;
    json.set("result", result);
    json.set("exit_code", exitCodeOf(code));
    if (!reason.empty())
        json.set("error", reason);
    JsonOutput::Value product = json.object();
    json.set(product, "name", product_);
    json.set(product, "new", newProduct_);
    if (!productId.empty())
        json.set(product, "id", productId);
    if (!page.empty())
        json.set(product, "page", page);
    json.set("product", std::move(product));
    json.set("tracks", tracksJson(json, rows));
    size_t uploaded = 0, unchanged = 0;
    for (const RowView* row : batchRows(rows))
    {
        uploaded += !row->unchanged && row->values.state == Engine::kRowUploaded;
        unchanged += row->unchanged;
    }
    json.set("uploaded", uploaded);
    json.set("unchanged", unchanged);
    json.set("retries", static_cast<size_t>(retries_));
    json.set("files", batch_.files.size());
    JsonOutput::Value seconds = json.object();
    json.set(seconds, "sign_in", times_->signIn);
    json.set(seconds, "render", times_->render);
    json.set(seconds, "upload", times_->upload);
    json.set("seconds", std::move(seconds));
    if (code != kDone)
        json.set("rendered_folder", batch_.folder.string()); // kept for another try
    json.print();
}

} // namespace

int checkFieldValues(const std::map<std::string, std::vector<std::string>>& fields, const std::string* product)
{
    if (product && !product->empty() && product->find_first_not_of(" \t\r\n\v\f") == std::string::npos)
    {
        complain("--product must name the product; \"%s\" is blank", product->c_str());
        return kUsage;
    }
    if (const auto years = fields.find("Media:Year"); years != fields.end())
        for (const std::string& year : years->second)
        {
            char* end = nullptr;
            errno = 0;
            const long value = year.empty() ? 0 : std::strtol(year.c_str(), &end, 10);
            if (year.empty() || *end || errno || value < 1 || value > 9999)
            {
                complain("--year takes a year from 1 to 9999, not \"%s\"", year.c_str());
                return kUsage;
            }
        }
    return kDone;
}

int openSourceFiles(const std::vector<std::string>& files, const std::map<std::string, std::vector<std::string>>& fields,
                    std::vector<SourceFile>& sources)
{
    const size_t count = files.size();
    for (const auto& [key, values] : fields)
        if (values.size() != 1 && values.size() != count)
        {
            complain("%s was given %zu times for %zu files: give it once for all, or once per file",
                     flagOf(key).c_str(), values.size(), count);
            return kUsage;
        }
    sources.assign(count, SourceFile());
    for (size_t i = 0; i < count; ++i)
    {
        std::string error;
        if (!SourceFile::open(files[i], sources[i], error))
        {
            complain("%s", error.c_str());
            return kUsage;
        }
    }
    return kDone;
}

namespace {

/// The product the batch goes to, as the gadget will pick it: --product, else the first album of
/// the files (given on the command line or read from them).
std::string productNameOf(const PublishOptions& options, const std::vector<SourceFile>& sources)
{
    if (!options.product.empty())
        return options.product;
    const auto albums = options.fields.find("Media:Album");
    for (size_t i = 0; i < sources.size(); ++i)
    {
        std::string album;
        if (albums != options.fields.end() && !albums->second.empty())
            album = albums->second.size() == 1 ? albums->second[0] : albums->second[i];
        else
            album = sources[i].metadata.getString("Media:Album").toUtf8();
        if (!album.empty())
            return album;
    }
    return {};
}

/// How long a run waits for another run that publishes to the same product.
constexpr std::chrono::seconds kClaimWait{120};

/// The claim a run took, to give it up before the run ends (the hot folder, batch after batch).
struct ClaimedProduct
{
    std::string service; ///< empty: nothing was claimed
    std::string product;
    bool heldElsewhere = false; ///< another live run still held it when the wait ended
};

/// The account is not known before the sign-in: a claim covers the product's name on every
/// account of the service.
constexpr const char* kAnyAccount = "*";

/// Two runs that publish to one product take turns: the product is claimed in the ledger before
/// the run reads the product list, so that the list already shows what the run before it did.
/// The account is not known before the sign-in, so the claim covers the name on every account
/// of the service (runs to two accounts' products of one name merely wait for each other).
/// kDone, or kConfiguration after saying why (with `claimed.heldElsewhere` when another run
/// still holds the product).
int claimProduct(const PublishOptions& options, const std::vector<SourceFile>& sources, PublishLedger& ledger,
                 ClaimedProduct& claimed)
{
    const std::string product = productNameOf(options, sources);
    Settings settings;
    std::string error;
    // The embedded sandbox lives and dies with its run: nothing to share, nothing to claim.
    if (product.empty() || options.dryRun || !Settings::load(settings, error) || !settings.hasServer())
        return kDone;
    PublishLedger::Claim claim;
    if (!ledger.claimProduct(settings.serverUrl, kAnyAccount, product, std::chrono::milliseconds(0), claim, error))
    {
        complain("%s", error.c_str());
        return kConfiguration;
    }
    if (!claim.taken)
    {
        complain("another sorvel (process %lld) is publishing to \"%s\"; waiting up to %lld s for it to end",
                 static_cast<long long>(claim.heldBy), product.c_str(), static_cast<long long>(kClaimWait.count()));
        if (!ledger.claimProduct(settings.serverUrl, kAnyAccount, product, kClaimWait, claim, error))
        {
            complain("%s", error.c_str());
            return kConfiguration;
        }
    }
    if (!claim.taken)
    {
        complain("another sorvel (process %lld) is still publishing to \"%s\"; nothing was sent. Try again when it "
                 "has ended",
                 static_cast<long long>(claim.heldBy), product.c_str());
        claimed.heldElsewhere = true;
        return kConfiguration;
    }
    claimed.service = settings.serverUrl;
    claimed.product = product;
    return kDone;
}

/// One publish in a runtime of its own: sign-in and the run's steps. `transient` says whether a
/// failure was one of the network or the service.
int publishOnce(const PublishOptions& options, const std::vector<SourceFile>& sources, PublishLedger& ledger,
                unsigned retries, bool& transient)
{
    transient = false;
    StepTimes times;
    Runtime runtime;
    if (int code = runtime.start(); code != kDone)
    {
        transient = code == kServiceFailed;
        return code;
    }
    if (int code = runtime.signIn(options.login); code != kDone)
    {
        transient = code == kServiceFailed;
        return code;
    }
    times.signIn = times.lap();
    // Without the list, the product named by the user (or by the files' album) cannot be found,
    // and the upload would create a second product of that name.
    if (!runtime.productsListed() && !options.newProduct)
    {
        Runtime::productsNotListed();
        complain("nothing was created or uploaded; to create a new product all the same, give --new-product");
        transient = true;
        return kServiceFailed;
    }
    PublishRun run(options, runtime, sources, &ledger);
    run.setRetries(retries, retries < options.retries);
    const int code = run.run(times);
    transient = code == kServiceFailed && run.transientFailure();
    return code;
}

/// Waits before retry `retry` (from 0): 1 s, 2 s, 4 s ... at most 60 s, each up to a quarter
/// longer at random so that many clients do not come back at once. False when interrupted.
bool waitBeforeRetry(unsigned retry)
{
    const double base = std::min(60.0, static_cast<double>(1u << std::min(retry, 6u)));
    std::mt19937 random(std::random_device{}());
    const double seconds = std::min(60.0, base * std::uniform_real_distribution<double>(1.0, 1.25)(random));
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < until)
    {
        if (gInterrupted.load(std::memory_order_relaxed))
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

} // namespace

int publish(const PublishOptions& options)
{
    // Everything that can be checked is checked before anything is sent.
    if (int code = checkFieldValues(options.fields, &options.product); code != kDone)
        return code;
    std::vector<SourceFile> sources;
    if (int code = openSourceFiles(options.files, options.fields, sources); code != kDone)
        return code;
    // The ledger is opened before anything is sent: a ledger that cannot be used stops the run.
    std::string error;
    const std::unique_ptr<PublishLedger> ledger = PublishLedger::open(PublishLedger::defaultFile(), error);
    if (!ledger)
    {
        complain("%s", error.c_str());
        return kConfiguration;
    }
    ClaimedProduct claimed; // held until the process ends
    if (int code = claimProduct(options, sources, *ledger, claimed); code != kDone)
        return code;
    // A retry signs in again: the password given on standard input is read once, for every try.
    PublishOptions tries = options;
    if (options.login.passwordFromStdin && options.retries > 0 && !options.login.user.empty())
        if (!readPasswordFromStdin(tries.login.password))
        {
            complain("no password on standard input");
            return kUsage;
        }
    for (unsigned retry = 0;;)
    {
        bool transient = false;
        const int code = publishOnce(tries, sources, *ledger, retry, transient);
        if (code == kDone || !transient || retry >= options.retries || gInterrupted.load(std::memory_order_relaxed))
            return code;
        std::fprintf(stderr, "sorvel: retrying the publish (%u of %u) after a failure of the network or the service\n",
                     retry + 1, options.retries);
        if (!waitBeforeRetry(retry))
            return kInterrupted;
        ++retry;
    }
}

int publishBatch(const PublishOptions& options, Runtime& runtime, PublishLedger& ledger,
                 const std::vector<SourceFile>& sources, const BatchStart& start, std::filesystem::path& unusable)
{
    unusable.clear();
    ClaimedProduct claimed;
    if (int code = claimProduct(options, sources, ledger, claimed); code != kDone)
        return claimed.heldElsewhere ? kServiceFailed : code; // the files wait for the next batch
    int code = kDone;
    // Read after the claim: the list shows what another run to the product did before it. The
    // product this watch created in a batch that failed later is in it too, so that the next
    // batch adds to it rather than create another of its name.
    if (start.listProductsAgain && !runtime.listProductsAgain())
    {
        if (gInterrupted.load(std::memory_order_relaxed))
            code = kInterrupted;
        else if (runtime.gadget().phase() != Gadget::kSignedIn)
        {
            complain("%s", LanguageFile::text(Engine::TextKeys::kSessionExpired).c_str());
            code = kSignInRefused;
        }
        else
        {
            Runtime::productsNotListed();
            code = kServiceFailed;
        }
    }
    if (code == kDone)
    {
        StepTimes times;
        times.signIn = start.signInSeconds;
        PublishRun run(options, runtime, sources, &ledger);
        code = run.run(times);
        unusable = run.unusable();
    }
    std::string error;
    if (!claimed.product.empty() && !ledger.releaseProduct(claimed.service, kAnyAccount, claimed.product, error))
    {
        complain("%s", error.c_str());
        return kConfiguration;
    }
    return code;
}

} // namespace Host

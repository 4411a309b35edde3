#include "host/app/CellReader.h"
#include "host/app/Commands.h"
#include "host/app/Preflight.h"
#include "host/app/Rendering.h"
#include "host/app/SourceFile.h"
#include "host/terminal/TextWidth.h"

#include "framework/data/AttributeArray.h"
#include "framework/data/Json.h"
#include "framework/data/Url.h"
#include "framework/hostsupport/EventWait.h"
#include "framework/interfaces/IPublisher.h"
#include "framework/services/GuiServices.h"
#include "framework/services/IGraphicsHelper.h"

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <unistd.h>

namespace Host {

using namespace KVX;
namespace fs = std::filesystem;

namespace {

const char* const kUploadFailed = "Upload failed!";
const char* const kSessionExpired = "Session expired. Please login again.";

/// One row of the track table as the gadget draws it.
struct RowView
{
    std::string title;
    std::string file;
    std::string status;
    double fill = 0;
    uint32 color = 0; ///< of the status bar, 0xRRGGBBAA
    bool uploading = false;
    std::string path; ///< the file cell's tooltip: the whole path of a listed file
};

/// Whether `out` is a terminal that takes colours.
bool colorsOn(FILE* out)
{
    const char* term = std::getenv("TERM");
    return ::isatty(fileno(out)) && !std::getenv("NO_COLOR") && term && std::string(term) != "dumb";
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

/// The state keyword of a status text, for JSON.
std::string stateOf(const std::string& status)
{
    if (status.find("Upload Complete") != std::string::npos)
        return "uploaded";
    if (status.find("Upload Failed") != std::string::npos)
        return "failed";
    if (status.find("uploaded") != std::string::npos)
        return "uploading";
    if (status == "Invalid Format")
        return "invalid_format";
    if (status == "Uploaded")
        return "on_service";
    if (status.rfind("Replace", 0) == 0)
        return "replace";
    return "add";
}

class TrackTable
{
public:
    explicit TrackTable(IItemModel& model) : model_(model), style_(CellReader::trackListStyle()) {}

    std::vector<RowView> rows() const
    {
        std::vector<RowView> result;
        for (int32 row = 0; row < model_.countRows(); ++row)
        {
            RowView view;
            view.title = CellReader::read(model_, row, 1, 200, style_).text;
            view.file = CellReader::read(model_, row, 2, 300, style_).text;
            if (const char* tooltip = nullptr; model_.getTooltip(row, 2, tooltip) == kResultOk && tooltip)
                view.path = tooltip;
            const CellReader::Cell status = CellReader::read(model_, row, 3, 200, style_);
            view.status = status.text;
            view.fill = status.fill;
            view.color = status.fillColor;
            view.uploading = status.text.find('%') != std::string::npos;
            result.push_back(view);
        }
        return result;
    }

    /// The table with the pre-flight verdict of each listed file (`checks`, by its path).
    static void print(const std::vector<RowView>& rows, const std::map<std::string, std::string>& checks, FILE* out)
    {
        // Columns are measured in what a terminal shows, not in bytes: "Überfahrt" is nine
        // columns wide, a CJK title twice its letters.
        size_t titleWidth = 5, fileWidth = 4;
        for (const RowView& row : rows)
        {
            titleWidth = std::max(titleWidth, displayWidth(row.title));
            fileWidth = std::max(fileWidth, displayWidth(row.file));
        }
        const bool on = colorsOn(out);
        size_t stateWidth = 5;
        for (const RowView& row : rows)
            stateWidth = std::max(stateWidth, displayWidth(row.status));
        std::fprintf(out, "%s  %s  %s  %s\n", padToWidth("Track", titleWidth).c_str(),
                     padToWidth("File", fileWidth).c_str(), padToWidth("State", stateWidth).c_str(), "Check");
        for (const RowView& row : rows)
        {
            const auto check = checks.find(row.path);
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
};

/// Progress of the rows being uploaded: a bar per row, redrawn in place on a terminal, or a line
/// per row at every tenth on anything else.
class UploadProgress
{
public:
    explicit UploadProgress(bool enabled)
        : enabled_(enabled), terminal_(::isatty(STDERR_FILENO)), colors_(colorsOn(stderr))
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
                const bool complete = stateOf(row.status) == "uploaded";
                std::string bar(static_cast<size_t>(row.uploading ? filled : complete ? width : 0), '#');
                bar.resize(width, row.uploading ? '-' : ' ');
                std::fprintf(stderr, "\x1b[2K%s [%s] %s\n", fitToWidth(row.title, 24).c_str(), bar.c_str(),
                             colored(row.status, row.color, colors_).c_str());
            }
            drawn_ = rows.size();
        }
        else
            for (size_t i = 0; i < rows.size(); ++i)
            {
                const int tenth = rows[i].uploading ? static_cast<int>(rows[i].fill * 10) : -2;
                if (rows[i].uploading && tenth != last_[i])
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

Attributes resultDocument(const std::string& outcome, const std::string& product, const std::string& productId,
                          const std::string& page, const std::vector<RowView>& rows, const StepTimes& times,
                          const RenderedBatch& batch, const std::map<std::string, Ref<Attributes>>& preflight)
{
    Attributes document;
    document.set("result", String(outcome));
    auto productObject = makeRef<Attributes>();
    productObject->set("name", String(product));
    productObject->set("id", String(productId));
    productObject->set("page", String(page));
    document.set("product", Variant(static_cast<Object*>(productObject.get())));
    auto tracks = makeRef<AttributeArray>();
    for (const RowView& row : rows)
    {
        auto track = makeRef<Attributes>();
        track->set("title", String(row.title));
        track->set("file", String(row.file));
        for (const RenderedBatch::File& file : batch.files)
            if (file.output.string() == row.path)
                track->set("source", String(file.source.string()));
        track->set("status", String(row.status));
        track->set("state", String(stateOf(row.status)));
        if (const auto report = preflight.find(row.path); report != preflight.end())
            track->set("preflight", Variant(static_cast<Object*>(report->second.get())));
        tracks->append(Variant(static_cast<Object*>(track.get())));
    }
    document.set("tracks", Variant(static_cast<Object*>(tracks.get())));
    auto seconds = makeRef<Attributes>();
    seconds->set("sign_in", times.signIn);
    seconds->set("render", times.render);
    seconds->set("upload", times.upload);
    document.set("seconds", Variant(static_cast<Object*>(seconds.get())));
    return document;
}

} // namespace

int openSourceFiles(const std::vector<std::string>& files, const std::map<std::string, std::vector<std::string>>& fields,
                    std::vector<SourceFile>& sources)
{
    const size_t count = files.size();
    for (const auto& [key, values] : fields)
        if (values.size() != 1 && values.size() != count)
        {
            std::string flag = "--" + key.substr(key.find(':') + 1);
            for (char& letter : flag)
                letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
            std::fprintf(stderr, "sorvel: %s was given %zu times for %zu files: give it once for all, or once per file\n",
                         flag.c_str(), values.size(), count);
            return kUsage;
        }
    sources.assign(count, SourceFile());
    for (size_t i = 0; i < count; ++i)
    {
        std::string error;
        if (!SourceFile::open(files[i], sources[i], error))
        {
            std::fprintf(stderr, "sorvel: %s\n", error.c_str());
            return kUsage;
        }
    }
    return kDone;
}

int publish(const PublishOptions& options)
{
    // Everything that can be checked is checked before anything is sent.
    std::vector<SourceFile> sources;
    if (int code = openSourceFiles(options.files, options.fields, sources); code != kDone)
        return code;

    StepTimes times;
    Runtime runtime;
    if (int code = runtime.start(); code != kDone)
        return code;
    if (int code = runtime.signIn(options.login); code != kDone)
        return code;
    times.signIn = times.lap();
    Gadget& gadget = runtime.gadget();
    // Without the list, the product named by the user (or by the files' album) cannot be found,
    // and the upload would create a second product of that name.
    if (!runtime.productsListed() && !options.newProduct)
    {
        Runtime::productsNotListed();
        std::fprintf(stderr, "sorvel: nothing was created or uploaded; to create a new product all the same, give "
                             "--new-product\n");
        return kServiceFailed;
    }

    const Ref<Engine::IPublisher> publisher = runtime.createPublisher();
    if (!publisher)
        return kServiceFailed;

    RenderedBatch batch;
    if (int code = renderAndPublish(*publisher, sources, options.fields, options.product, options.json, options.jobs,
                                    batch);
        code != kDone)
        return code;
    times.render = times.lap();
    if (options.newProduct)
        gadget.setNumber("replaceMode", 0, true); // a new product, even when one has this name
    auto removeRendered = [&] { batch.removeFolder(); };

    IItemModel* model = gadget.trackList();
    if (!model)
    {
        removeRendered();
        std::fprintf(stderr, "sorvel: the gadget has no track table\n");
        return kServiceFailed;
    }
    TrackTable table(*model);
    const std::string product = gadget.text("newProductName");

    // The pre-flight report, by the rendered file's path as the table's rows name it.
    const PreflightReport preflight = preflightOfTable(gadget, batch, runtime.preflightLimits());
    std::map<std::string, std::string> checks;
    std::map<std::string, Ref<Attributes>> preflightDocuments;
    for (size_t i = 0; i < batch.files.size(); ++i)
    {
        const std::string path = batch.files[i].output.string();
        checks[path] = PreflightReport::name(preflight.rows[i].severity);
        preflightDocuments[path] = preflightDocument(batch.files[i], preflight.rows[i]);
    }
    if (!options.json)
    {
        std::fprintf(stdout, "Product: %s%s\n", product.c_str(), gadget.number("replaceMode") ? "" : " (new)");
        TrackTable::print(table.rows(), checks, stdout);
        std::fprintf(stdout, "\nPre-flight report\n");
        printPreflight(batch, preflight, stdout);
        std::fprintf(stdout, "\n");
        std::fflush(stdout);
    }
    if (options.strict && preflight.worst() != PreflightReport::Severity::Ok)
    {
        size_t errors = 0, warnings = 0;
        for (const PreflightReport::Row& row : preflight.rows)
            for (const PreflightReport::Finding& finding : row.findings)
            {
                errors += finding.severity == PreflightReport::Severity::Error;
                warnings += finding.severity == PreflightReport::Severity::Warning;
            }
        std::fprintf(stderr,
                     "sorvel: the pre-flight report found %zu error(s) and %zu warning(s); nothing was uploaded "
                     "(--strict). Rendered files kept in %s\n",
                     errors, warnings, batch.folder.c_str());
        if (options.json)
        {
            Attributes document = resultDocument("refused", product, "", "", table.rows(), times, batch,
                                                 preflightDocuments);
            document.set("rendered_folder", String(batch.folder.string()));
            std::fprintf(stdout, "%s\n", Json::toText(document).c_str());
        }
        return kPreflightFailed;
    }

    // Upload: the form's "Upload" button; the rows report their progress as they are drawn.
    std::vector<RowView> finished;
    UploadProgress progress(options.progress && !options.json);
    gadget.press("upload");
    if (!gadget.isUploading())
    {
        removeRendered();
        std::fprintf(stderr, "sorvel: nothing to upload: no row holds a file in the format the service takes\n");
        return kServiceFailed;
    }
    bool cancelled = false;
    while (gadget.isUploading())
    {
        if (gInterrupted.load(std::memory_order_relaxed) && !cancelled)
        {
            gadget.press("cancel");
            cancelled = true;
        }
        finished = table.rows();
        progress.show(finished);
        EventWait::until([&] { return !gadget.isUploading(); }, 100);
    }
    // What the rows show when the batch has ended, before the product's tracks are reloaded.
    finished = table.rows();
    progress.show(finished);
    gadget.settle(Runtime::kTimeoutMs);
    times.upload = times.lap();

    // Every file on the service is a success, whatever came after it: the reload of the products
    // that follows may still fail, or find the session expired, without undoing the upload.
    size_t uploadedRows = 0;
    for (const RowView& row : finished)
        uploadedRows += stateOf(row.status) == "uploaded";
    std::string outcome = "uploaded";
    int code = kDone;
    if (uploadedRows == sources.size() && !cancelled)
        code = kDone;
    else if (runtime.alerts().contains(kSessionExpired))
        outcome = "session_expired", code = kSignInRefused;
    else if (runtime.alerts().contains(kUploadFailed))
        outcome = "failed", code = kServiceFailed;
    else if (cancelled)
        outcome = "cancelled", code = kInterrupted;
    else if (runtime.pages().pages().empty())
        outcome = "failed", code = kServiceFailed;

    const std::string page = runtime.pages().pages().empty() ? "" : runtime.pages().pages().back();
    if (code == kDone)
        removeRendered();
    else if (const std::string failure = Runtime::takeServiceFailure(); !failure.empty() && code == kServiceFailed)
        std::fprintf(stderr, "sorvel: the service did not answer (%s). Try again in a moment.\n", failure.c_str());
    if (options.json)
    {
        Attributes document =
            resultDocument(outcome, product, runtime.pages().lastProductId(), page, finished, times, batch,
                           preflightDocuments);
        if (code != kDone)
            document.set("rendered_folder", String(batch.folder.string())); // kept for another try
        std::fprintf(stdout, "%s\n", Json::toText(document).c_str());
    }
    else
    {
        size_t done = 0;
        for (const RowView& row : finished)
            done += stateOf(row.status) == "uploaded";
        std::fprintf(stdout, "%zu of %zu tracks uploaded to \"%s\"\n", done, finished.size(), product.c_str());
        if (!page.empty())
            std::fprintf(stdout, "Product page: %s\n", page.c_str());
        if (code != kDone)
            std::fprintf(stdout, "Rendered files kept in %s\n", batch.folder.c_str());
    }
    return code;
}

} // namespace Host

#include "host/app/Preflight.h"

#include "host/app/TrackRows.h"
#include "host/terminal/TextWidth.h"

#include "framework/core/Object.h"
#include "framework/data/AttributeArray.h"
#include "framework/interfaces/IItemView.h"

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

namespace Host {

using namespace KVX;
namespace fs = std::filesystem;

namespace {

PreflightReport::Item itemOf(const RenderedBatch::File& file)
{
    PreflightReport::Item item;
    item.name = file.trackName();
    item.isrc = file.metadata.getString("Media:ISRC").toUtf8();
    item.barcode = file.metadata.getString("Media:EAN").toUtf8();
    item.figures = file.report.figures;
    return item;
}

/// A list view that selects one row at a time, so that the inspector shows that row alone.
class RowSelector : public Object, public IItemView
{
public:
    explicit RowSelector(IItemModel& model) : model_(&model) { model_->attachView(this); }
    void detach()
    {
        row_ = -1;
        model_->onSelectionChanged();
        model_->detachView(this);
    }

    int32 countSelectedRows() override { return row_ < 0 ? 0 : 1; }
    int32 getSelectedRow(int32 index) override { return index == 0 ? row_ : -1; }
    tresult selectRow(int32 row) override
    {
        if (row < 0 || row >= model_->countRows())
            return kInvalidArgument;
        row_ = row;
        model_->onSelectionChanged();
        return kResultOk;
    }
    tresult invalidate() override { return kResultOk; }
    tresult editCell(int32, int32) override { return kInvalidArgument; }

    KVX_FORWARD_UNKNOWN(Object)

private:
    IItemModel* model_;
    int32 row_ = -1;
};

tresult RowSelector::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IItemView)
    return Object::queryInterface(iid, object);
}

std::string number(const char* format, double value)
{
    if (!std::isfinite(value))
        return "-inf";
    char text[32];
    // Rounded first and added to +0, so that a level just under zero reads 0.0, not -0.0.
    std::snprintf(text, sizeof text, format, std::round(value * 10.0) / 10.0 + 0.0);
    return text;
}

void setFigure(Attributes& document, const char* name, double value)
{
    if (std::isfinite(value))
        document.set(name, value);
    else
        document.set(name, Variant()); // null: below anything the meter reads
}

} // namespace

PreflightReport preflightOfBatch(const RenderedBatch& batch, const PreflightLimits& limits)
{
    std::vector<PreflightReport::Item> items;
    for (const RenderedBatch::File& file : batch.files)
        items.push_back(itemOf(file));
    return PreflightReport::make(items, {}, limits);
}

PreflightReport preflightOfTable(Gadget& gadget, const RenderedBatch& batch, const PreflightLimits& limits)
{
    std::vector<PreflightReport::Item> items;
    for (const RenderedBatch::File& file : batch.files)
        items.push_back(itemOf(file));
    IItemModel* model = gadget.trackList();
    if (!model)
        return PreflightReport::make(items, {}, limits);

    std::vector<PreflightReport::ProductTrack> product;
    auto selector = makeRef<RowSelector>(*model);
    for (int32 row = 0; row < model->countRows(); ++row)
    {
        // Rows with a track are the product's tracks, those with a file as well pair one with it.
        const TrackRow values = TrackRow::read(*model, row);
        if (!values.hasTrack)
            continue;
        selector->selectRow(row);
        product.push_back({values.trackName, gadget.text("TrackInfo.isrc")});
        for (size_t i = 0; values.hasFile() && i < batch.files.size(); ++i)
            if (batch.files[i].output.string() == values.file)
                items[i].replaces = static_cast<int>(product.size() - 1);
    }
    selector->detach();
    return PreflightReport::make(items, product, limits);
}

void printPreflight(const RenderedBatch& batch, const PreflightReport& report, FILE* out)
{
    const char* const headers[] = {"Track", "Check", "Loudness", "Range", "True peak", "Peak", "Clipped", "Silence"};
    std::vector<std::vector<std::string>> lines;
    for (size_t i = 0; i < batch.files.size() && i < report.rows.size(); ++i)
    {
        const AudioFigures& audio = batch.files[i].report.figures;
        std::vector<std::string> line{batch.files[i].trackName(), PreflightReport::name(report.rows[i].severity)};
        if (audio.measured)
            line.insert(line.end(), {number("%.1f LUFS", audio.integratedLoudness), number("%.1f LU", audio.loudnessRange),
                                     number("%.1f dBTP", audio.truePeak), number("%.1f dBFS", audio.samplePeak),
                                     std::to_string(audio.clippedSamples),
                                     number("%.1f s", audio.leadingSilence) + " / " +
                                         number("%.1f s", audio.trailingSilence)});
        lines.push_back(std::move(line));
    }
    std::vector<size_t> widths;
    for (const char* header : headers)
        widths.push_back(displayWidth(header));
    for (const auto& line : lines)
        for (size_t column = 0; column < line.size(); ++column)
            widths[column] = std::max(widths[column], displayWidth(line[column]));
    auto print = [&](const std::vector<std::string>& cells) {
        std::string text;
        for (size_t column = 0; column < cells.size(); ++column)
            text += (column ? "  " : "") + (column + 1 < cells.size() ? padToWidth(cells[column], widths[column])
                                                                     : cells[column]);
        std::fprintf(out, "%s\n", text.c_str());
    };
    print(std::vector<std::string>(std::begin(headers), std::end(headers)));
    for (size_t i = 0; i < lines.size(); ++i)
    {
        print(lines[i]);
        for (const PreflightReport::Finding& finding : report.rows[i].findings)
            std::fprintf(out, "  %s: %s\n",
                         finding.severity == PreflightReport::Severity::Ok ? "note"
                                                                           : PreflightReport::name(finding.severity),
                         finding.text.c_str());
    }
}

Ref<Attributes> preflightDocument(const RenderedBatch::File& file, const PreflightReport::Row& row)
{
    auto document = makeRef<Attributes>();
    document->set("check", String(PreflightReport::name(row.severity)));
    const AudioFigures& audio = file.report.figures;
    if (audio.measured)
    {
        document->set("seconds", audio.seconds);
        setFigure(*document, "integrated_loudness_lufs", audio.integratedLoudness);
        document->set("loudness_range_lu", audio.loudnessRange);
        setFigure(*document, "true_peak_dbtp", audio.truePeak);
        setFigure(*document, "sample_peak_dbfs", audio.samplePeak);
        document->set("clipped_samples", static_cast<int64>(audio.clippedSamples));
        document->set("leading_silence_s", audio.leadingSilence);
        document->set("trailing_silence_s", audio.trailingSilence);
        document->set("silent", audio.silent);
        document->set("channels_identical", audio.channelsIdentical);
    }
    document->set("isrc", file.metadata.getString("Media:ISRC"));
    document->set("barcode", file.metadata.getString("Media:EAN"));
    auto findings = makeRef<AttributeArray>();
    for (const PreflightReport::Finding& finding : row.findings)
    {
        auto entry = makeRef<Attributes>();
        entry->set("severity", String(finding.severity == PreflightReport::Severity::Ok
                                          ? "note"
                                          : PreflightReport::name(finding.severity)));
        entry->set("code", String(finding.code));
        entry->set("text", String(finding.text));
        findings->append(Variant(static_cast<Object*>(entry.get())));
    }
    document->set("findings", Variant(static_cast<Object*>(findings.get())));
    return document;
}

JsonOutput::Value preflightJson(JsonOutput& json, const RenderedBatch::File& file, const PreflightReport::Row& row)
{
    JsonOutput::Value value = json.from(*preflightDocument(file, row));
    if (const AudioFigures& audio = file.report.figures; audio.measured)
    {
        json.set(value, "silent", audio.silent);
        json.set(value, "channels_identical", audio.channelsIdentical);
    }
    return value;
}

void checkDocument(JsonOutput& json, const RenderedBatch& batch, const PreflightReport& report)
{
    json.set("result", PreflightReport::name(report.worst()));
    JsonOutput::Value tracks = json.array();
    for (size_t i = 0; i < batch.files.size() && i < report.rows.size(); ++i)
    {
        JsonOutput::Value track = preflightJson(json, batch.files[i], report.rows[i]);
        json.set(track, "title", batch.files[i].trackName());
        json.set(track, "source", fs::absolute(batch.files[i].source).lexically_normal().string());
        json.append(tracks, std::move(track));
    }
    json.set("tracks", std::move(tracks));
}

} // namespace Host

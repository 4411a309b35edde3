#include "host/preflight/PreflightReport.h"

#include "host/preflight/CatalogueCodes.h"

#include <algorithm>
#include <cstdio>

namespace Host {

namespace {

using Severity = PreflightReport::Severity;

std::string figure(const char* format, double value)
{
    char text[48];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

void add(PreflightReport::Row& row, Severity severity, const char* code, std::string text)
{
    row.findings.push_back({severity, code, std::move(text)});
    row.severity = std::max(row.severity, severity);
}

void checkAudio(const AudioFigures& audio, const PreflightLimits& limits, PreflightReport::Row& row)
{
    if (!audio.measured)
        return;
    if (audio.silent)
    {
        add(row, Severity::Error, "silent", "the file is silent throughout");
        return;
    }
    if (audio.truePeak > limits.truePeakMax)
        add(row, Severity::Warning, "true_peak",
            "true peak " + figure("%.1f", audio.truePeak) + " dBTP is above " + figure("%.1f", limits.truePeakMax) +
                " dBTP: a lossy encoding of it may clip");
    if (audio.clippedSamples > limits.clippedSamplesMax)
        add(row, Severity::Warning, "clipped",
            std::to_string(audio.clippedSamples) + (audio.clippedSamples == 1 ? " sample is" : " samples are") +
                " at full scale (clipped)");
    if (audio.integratedLoudness > limits.loudnessMax)
        add(row, Severity::Warning, "loud",
            "integrated loudness " + figure("%.1f", audio.integratedLoudness) + " LUFS is above " +
                figure("%.0f", limits.loudnessMax) + " LUFS: streaming services will turn it down");
    else if (audio.integratedLoudness < limits.loudnessMin)
        add(row, Severity::Warning, "quiet",
            "integrated loudness " + figure("%.1f", audio.integratedLoudness) + " LUFS is below " +
                figure("%.0f", limits.loudnessMin) + " LUFS");
    if (audio.channelsIdentical)
        add(row, Severity::Ok, "channels_identical", "the two channels are identical: a mono mix in a stereo file");
    if (audio.leadingSilence > limits.leadingSilenceMax)
        add(row, Severity::Warning, "leading_silence",
            figure("%.1f", audio.leadingSilence) + " s of silence before the first sound (more than " +
                figure("%g", limits.leadingSilenceMax) + " s)");
}

} // namespace

PreflightReport PreflightReport::make(const std::vector<Item>& items, const std::vector<ProductTrack>& product,
                                      const PreflightLimits& limits)
{
    PreflightReport report;
    report.rows.resize(items.size());
    const std::string* firstBarcode = nullptr;
    for (std::size_t i = 0; i < items.size(); ++i)
    {
        const Item& item = items[i];
        Row& row = report.rows[i];

        if (!item.isrc.empty())
        {
            const std::string code = CatalogueCodes::normalizedIsrc(item.isrc);
            if (std::string problem = CatalogueCodes::isrcProblem(item.isrc); !problem.empty())
                add(row, Severity::Error, "isrc", problem);
            else
            {
                for (std::size_t other = 0; other < items.size(); ++other)
                    if (other != i && CatalogueCodes::normalizedIsrc(items[other].isrc) == code)
                    {
                        add(row, Severity::Error, "isrc_twice",
                            "ISRC " + code + " is also given to \"" + items[other].name + "\" in this batch");
                        break;
                    }
                for (std::size_t track = 0; track < product.size(); ++track)
                    if (static_cast<int>(track) != item.replaces &&
                        CatalogueCodes::normalizedIsrc(product[track].isrc) == code)
                    {
                        add(row, Severity::Error, "isrc_on_product",
                            "ISRC " + code + " is already on the product's track \"" + product[track].name +
                                "\", which this file does not replace");
                        break;
                    }
            }
        }

        if (!item.barcode.empty())
        {
            if (std::string problem = CatalogueCodes::barcodeProblem(item.barcode); !problem.empty())
                add(row, Severity::Error, "barcode", problem);
            if (!firstBarcode)
                firstBarcode = &item.barcode;
            else if (item.barcode != *firstBarcode)
                add(row, Severity::Warning, "barcode_differs",
                    "barcode " + item.barcode + " differs from the batch's first, " + *firstBarcode +
                        ", which the product takes");
        }

        checkAudio(item.figures, limits, row);
    }
    return report;
}

PreflightReport::Severity PreflightReport::worst() const
{
    Severity worst = Severity::Ok;
    for (const Row& row : rows)
        worst = std::max(worst, row.severity);
    return worst;
}

const char* PreflightReport::name(Severity severity)
{
    switch (severity)
    {
    case Severity::Warning:
        return "warning";
    case Severity::Error:
        return "error";
    default:
        return "ok";
    }
}

} // namespace Host

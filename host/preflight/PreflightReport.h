#pragma once

#include "host/preflight/PreflightLimits.h"
#include "host/render/AudioFigures.h"

#include <string>
#include <vector>

namespace Host {

/// The pre-flight report of a batch: what a store would reject (errors) or a listener would
/// notice (warnings) in each file before anything is uploaded, from the figures its render
/// measured and the catalogue codes it carries.
///
/// Errors: a malformed ISRC, an ISRC given twice in the batch, an ISRC that a track of the target
/// product already carries when the file does not replace that track, a malformed barcode, a
/// file that is silent throughout. Warnings: peaks, clipping, loudness and leading silence beyond
/// the limits, and a barcode that differs from the batch's first one (which the product takes).
/// Notes (findings that are no fault): a stereo file whose two channels are identical.
class PreflightReport
{
public:
    enum class Severity
    {
        Ok,
        Warning,
        Error,
    };

    struct Finding
    {
        Severity severity = Severity::Ok;
        std::string code; ///< what it is about, for programs: "isrc", "true_peak", ...
        std::string text; ///< a sentence for people
    };

    /// A track the target product already has.
    struct ProductTrack
    {
        std::string name;
        std::string isrc;
    };

    /// A file of the batch.
    struct Item
    {
        std::string name;
        std::string isrc;    ///< as the user typed it
        std::string barcode; ///< the product barcode its metadata names
        AudioFigures figures;
        int replaces = -1;   ///< the product track (index) this file replaces, or -1
    };

    struct Row
    {
        Severity severity = Severity::Ok;
        std::vector<Finding> findings;
    };

    static PreflightReport make(const std::vector<Item>& items, const std::vector<ProductTrack>& product,
                                const PreflightLimits& limits);

    std::vector<Row> rows; ///< one per item, in the items' order

    Severity worst() const;
    /// "ok", "warning" or "error".
    static const char* name(Severity severity);
};

} // namespace Host

// The pre-flight report's judgement of catalogue codes and measured figures.
#include "host/preflight/CatalogueCodes.h"
#include "host/preflight/PreflightReport.h"

#include <gtest/gtest.h>

using namespace Host;
using Severity = PreflightReport::Severity;

namespace {

/// The codes of the findings of one row, in order.
std::vector<std::string> codes(const PreflightReport::Row& row)
{
    std::vector<std::string> result;
    for (const auto& finding : row.findings)
        result.push_back(finding.code);
    return result;
}

AudioFigures soundFigures()
{
    AudioFigures figures;
    figures.measured = true;
    figures.seconds = 200;
    figures.integratedLoudness = -14.0;
    figures.loudnessRange = 6.0;
    figures.truePeak = -1.5;
    figures.samplePeak = -1.8;
    return figures;
}

PreflightReport::Item item(std::string name, std::string isrc = {}, std::string barcode = {})
{
    PreflightReport::Item result;
    result.name = std::move(name);
    result.isrc = std::move(isrc);
    result.barcode = std::move(barcode);
    result.figures = soundFigures();
    return result;
}

} // namespace

TEST(CatalogueCodes, RecordingCodesAreCheckedInTheirNormalForm)
{
    for (const char* valid : {"USRC17607839", "us-rc1-76-07839", "GB AYE 06 01498", "QZDEM1400001", "gb-aye-0601498"})
        EXPECT_EQ(CatalogueCodes::isrcProblem(valid), "") << valid;
    EXPECT_EQ(CatalogueCodes::normalizedIsrc("us-rc1 76-07839"), "USRC17607839");

    const std::pair<const char*, const char*> invalid[] = {
        {"US-RC1-76-0783", "has 11 characters"},   {"USRC176078391", "has 13 characters"},
        {"1SRC17607839", "two letters"},           {"USR_17607839", "registrant"},
        {"USRC1760783X", "must be digits"},        {"USRC1X607839", "must be digits"},
        {"", "has 0 characters"},                  {"US.RC1.76.07839", "has 15 characters"},
    };
    for (const auto& [code, reason] : invalid)
    {
        const std::string problem = CatalogueCodes::isrcProblem(code);
        EXPECT_NE(problem.find(reason), std::string::npos) << code << ": " << problem;
        EXPECT_NE(problem.find(std::string("\"") + code + "\""), std::string::npos) << "names the code as typed";
    }
}

TEST(CatalogueCodes, BarcodesNeedTwelveOrThirteenDigitsAndTheirCheckDigit)
{
    for (const char* valid : {"4006381333931", "036000291452", "0123456789012", "9780306406157", "012345678905"})
        EXPECT_EQ(CatalogueCodes::barcodeProblem(valid), "") << valid;
    EXPECT_NE(CatalogueCodes::barcodeProblem("4006381333932").find("check digit 2, but its digits need 1"),
              std::string::npos);
    EXPECT_NE(CatalogueCodes::barcodeProblem("036000291453").find("need 2"), std::string::npos);
    EXPECT_NE(CatalogueCodes::barcodeProblem("03600029145").find("11 characters"), std::string::npos);
    EXPECT_NE(CatalogueCodes::barcodeProblem("40063813339A1").find("digits only"), std::string::npos);
    EXPECT_NE(CatalogueCodes::barcodeProblem("4006-38133393").find("digits only"), std::string::npos);
}

TEST(PreflightReport, CodesAreCheckedAcrossTheBatchAndAgainstTheProduct)
{
    const std::vector<PreflightReport::ProductTrack> product{{"Headlights", "QZDEM1400001"}, {"Tunnel", "qz-dem-14-00002"}};
    std::vector<PreflightReport::Item> items{
        item("One", "USRC17607839"),
        item("Two", "us-rc1-76-07839"), // the same code, written differently
        item("Headlights", "QZ-DEM-14-00001"),
        item("Other", "QZDEM1400002"),
        item("Broken", "QZDEM14"),
        item("Clean", "GBAYE0601498"),
        item("No code"),
    };
    items[2].replaces = 0; // the new take of "Headlights" keeps its code
    const PreflightReport report = PreflightReport::make(items, product, {});
    ASSERT_EQ(report.rows.size(), items.size());
    EXPECT_EQ(codes(report.rows[0]), std::vector<std::string>{"isrc_twice"});
    EXPECT_NE(report.rows[0].findings[0].text.find("\"Two\""), std::string::npos);
    EXPECT_EQ(codes(report.rows[1]), std::vector<std::string>{"isrc_twice"});
    EXPECT_EQ(codes(report.rows[2]), std::vector<std::string>{});
    EXPECT_EQ(codes(report.rows[3]), std::vector<std::string>{"isrc_on_product"});
    EXPECT_NE(report.rows[3].findings[0].text.find("\"Tunnel\""), std::string::npos);
    EXPECT_EQ(codes(report.rows[4]), std::vector<std::string>{"isrc"});
    EXPECT_EQ(report.rows[5].severity, Severity::Ok);
    EXPECT_EQ(report.rows[6].severity, Severity::Ok);
    EXPECT_EQ(report.worst(), Severity::Error);

    // A replacement that takes another track's code is no replacement of that track.
    items = {item("Headlights", "QZDEM1400002")};
    items[0].replaces = 0;
    EXPECT_EQ(codes(PreflightReport::make(items, product, {}).rows[0]), std::vector<std::string>{"isrc_on_product"});
}

TEST(PreflightReport, TheFirstBarcodeWinsAndTheOthersAreWarnedAbout)
{
    const PreflightReport report = PreflightReport::make(
        {item("A", "", "4006381333931"), item("B"), item("C", "", "4006381333931"), item("D", "", "036000291452"),
         item("E", "", "036000291453")},
        {}, {});
    EXPECT_EQ(report.rows[0].severity, Severity::Ok);
    EXPECT_EQ(report.rows[1].severity, Severity::Ok) << "no barcode is no different barcode";
    EXPECT_EQ(report.rows[2].severity, Severity::Ok);
    EXPECT_EQ(codes(report.rows[3]), std::vector<std::string>{"barcode_differs"});
    EXPECT_EQ(report.rows[3].severity, Severity::Warning);
    EXPECT_EQ(codes(report.rows[4]), (std::vector<std::string>{"barcode", "barcode_differs"}));
    EXPECT_EQ(report.rows[4].severity, Severity::Error);
}

TEST(PreflightReport, FiguresBeyondTheLimitsWarnAndSilenceIsAnError)
{
    std::vector<PreflightReport::Item> items(7, item("x"));
    items[1].figures.truePeak = -0.4;
    items[2].figures.clippedSamples = 12;
    items[3].figures.integratedLoudness = -7.5;
    items[4].figures.integratedLoudness = -24.0;
    items[5].figures.leadingSilence = 2.5;
    items[6].figures.silent = true;
    items[6].figures.integratedLoudness = AudioFigures::kNone;
    items[6].figures.leadingSilence = 200;
    PreflightReport report = PreflightReport::make(items, {}, {});
    EXPECT_EQ(report.rows[0].severity, Severity::Ok);
    EXPECT_EQ(codes(report.rows[1]), std::vector<std::string>{"true_peak"});
    EXPECT_NE(report.rows[1].findings[0].text.find("-0.4 dBTP is above -1.0 dBTP"), std::string::npos);
    EXPECT_EQ(codes(report.rows[2]), std::vector<std::string>{"clipped"});
    EXPECT_NE(report.rows[2].findings[0].text.find("12 samples"), std::string::npos);
    EXPECT_EQ(codes(report.rows[3]), std::vector<std::string>{"loud"});
    EXPECT_EQ(codes(report.rows[4]), std::vector<std::string>{"quiet"});
    EXPECT_EQ(codes(report.rows[5]), std::vector<std::string>{"leading_silence"});
    EXPECT_EQ(codes(report.rows[6]), std::vector<std::string>{"silent"}) << "silence says it all";
    for (size_t row = 1; row < 6; ++row)
        EXPECT_EQ(report.rows[row].severity, Severity::Warning) << row;
    EXPECT_EQ(report.rows[6].severity, Severity::Error);

    // The user's limits move where the warnings start.
    PreflightLimits relaxed;
    relaxed.truePeakMax = 0.0;
    relaxed.clippedSamplesMax = 20;
    relaxed.loudnessMax = -7.0;
    relaxed.loudnessMin = -30.0;
    relaxed.leadingSilenceMax = 3.0;
    report = PreflightReport::make(items, {}, relaxed);
    for (size_t row = 0; row < 6; ++row)
        EXPECT_EQ(report.rows[row].severity, Severity::Ok) << row;
    EXPECT_EQ(report.rows[6].severity, Severity::Error);

    // A mono mix is noted, not held against the file; an unmeasured file is judged by its codes.
    items = {item("mono"), item("unmeasured")};
    items[0].figures.channelsIdentical = true;
    items[1].figures = AudioFigures{};
    report = PreflightReport::make(items, {}, {});
    EXPECT_EQ(codes(report.rows[0]), std::vector<std::string>{"channels_identical"});
    EXPECT_EQ(report.rows[0].severity, Severity::Ok);
    EXPECT_TRUE(report.rows[1].findings.empty());
}

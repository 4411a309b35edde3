// `sorvel history`: what the publish ledger in the user's state folder holds, as a table and as
// JSON, filtered by product; no ledger yet, and a file that is no ledger.

#include "host/ledger/PublishLedger.h"
#include "tests/e2e/SorvelProgram.h"

namespace {

using namespace E2E;
using Host::PublishLedger;

class HistoryCommand : public SorvelProgram
{
protected:
    std::filesystem::path ledgerFile() const { return home / "state" / "sorvel" / "ledger.sqlite"; }

    /// `sorvel history ...` with times shown in UTC.
    ProgramRun history(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "history");
        std::vector<std::string> variables = environment();
        variables.push_back("TZ=UTC");
        return Child(arguments, variables, "").wait();
    }

    void recordUploads()
    {
        std::string error;
        const std::unique_ptr<PublishLedger> ledger = PublishLedger::open(ledgerFile(), error);
        ASSERT_TRUE(ledger) << error;
        struct Upload
        {
            const char* product;
            const char* productId;
            const char* track;
            int64_t time;
        };
        for (const Upload& upload : {Upload{"Night Drive", "5001", "Tunnel", 1795000000},
                                     Upload{"Harbour", "5002", "Überfahrt", 1795003600},
                                     Upload{"Night Drive", "5001", "Headlights", 1795001800}})
        {
            PublishLedger::Record record;
            record.service = service.serverUrl;
            record.account = std::to_string(login.accountId);
            record.productId = upload.productId;
            record.productName = upload.product;
            record.trackId = std::to_string(upload.time % 10000);
            record.trackName = upload.track;
            record.source = "/music/" + std::string(upload.track) + ".flac";
            record.digests = {std::string(64, 'a'), std::string(64, 'b')};
            record.format = "WAV 44100 Hz 16-bit stereo";
            record.publishedAt = upload.time;
            ASSERT_TRUE(ledger->record(record, error)) << error;
        }
    }
};

TEST_F(HistoryCommand, ListsWhatWasPublishedNewestFirstAsATableOrAsJson)
{
    // Nothing published: said so, and looking creates no ledger.
    ProgramRun run = history({});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "Nothing published yet.\n");
    EXPECT_FALSE(std::filesystem::exists(ledgerFile()));

    recordUploads();
    run = history({});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "Published            Product      Track       File\n"
                       "2026-11-18 12:06:40  Harbour      Überfahrt   /music/Überfahrt.flac\n"
                       "2026-11-18 11:36:40  Night Drive  Headlights  /music/Headlights.flac\n"
                       "2026-11-18 11:06:40  Night Drive  Tunnel      /music/Tunnel.flac\n");

    run = history({"--product", "Night Drive"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out.find("Harbour"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("Headlights"), std::string::npos) << run.out;
    run = history({"--product", "Nowhere"});
    EXPECT_EQ(run.out, "Nothing published to \"Nowhere\" yet.\n");

    run = history({"--json", "--product", "Night Drive"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    const auto document = parse(run.out);
    ASSERT_TRUE(document.IsObject()) << run.out;
    EXPECT_EQ(std::string(document["ledger"].GetString()), ledgerFile().string());
    ASSERT_EQ(document["uploads"].Size(), 2u);
    const auto& newest = document["uploads"][0];
    EXPECT_STREQ(newest["published_at"].GetString(), "2026-11-18T11:36:40Z");
    ASSERT_TRUE(newest["published_unix"].IsInt64()) << "a number, not a text";
    EXPECT_EQ(newest["published_unix"].GetInt64(), 1795001800);
    EXPECT_STREQ(newest["product_name"].GetString(), "Night Drive");
    EXPECT_STREQ(newest["product_id"].GetString(), "5001");
    EXPECT_STREQ(newest["track_name"].GetString(), "Headlights");
    EXPECT_STREQ(newest["track_id"].GetString(), "1800");
    EXPECT_STREQ(newest["source"].GetString(), "/music/Headlights.flac");
    EXPECT_STREQ(newest["format"].GetString(), "WAV 44100 Hz 16-bit stereo");
    EXPECT_EQ(std::string(newest["service"].GetString()), service.serverUrl);
    EXPECT_EQ(std::string(newest["account"].GetString()), std::to_string(login.accountId));
    EXPECT_EQ(std::string(newest["content_sha256"].GetString()), std::string(64, 'a'));
    EXPECT_EQ(std::string(newest["metadata_sha256"].GetString()), std::string(64, 'b'));
    EXPECT_STREQ(document["uploads"][1]["track_name"].GetString(), "Tunnel");

    // Nothing of the service was asked.
    EXPECT_EQ(sandbox->requestLog().size(), 0u);
}

TEST_F(HistoryCommand, ALedgerThatCannotBeReadEndsWithItsReasonAndExitCodeFour)
{
    std::filesystem::create_directories(ledgerFile().parent_path());
    std::ofstream(ledgerFile(), std::ios::binary) << std::string(4096, '\x17');
    ProgramRun run = history({});
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find(ledgerFile().string() + " is not a publish ledger"), std::string::npos) << run.err;
    run = history({"--json"});
    EXPECT_EQ(run.exitCode, 4);
    const auto document = parse(run.out);
    ASSERT_TRUE(document.IsObject()) << "one document for this outcome too: " << run.out;
    EXPECT_STREQ(document["result"].GetString(), "configuration");
    EXPECT_EQ(document["exit_code"].GetInt(), 4);
    EXPECT_EQ(std::filesystem::file_size(ledgerFile()), 4096u) << "the file is left as it was";

    run = history({"--product"});
    EXPECT_EQ(run.exitCode, 2) << "a missing value is a usage error";
}

} // namespace

// What the publish ledger learns of a batch from the service's answers: each confirmed upload
// under the track it went to, nothing for a refusal or a track of another batch, and digests that
// change with what is sent and only with that.

#include "host/app/ServiceAnswers.h"
#include "host/app/UploadRecorder.h"
#include "tests/system/TemporaryDirectory.h"

#include "framework/core/Ref.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>

namespace {

using namespace Host;
using KVX::Attributes;
using KVX::String;

/// The service answering `method` `path` with the envelope `status` and `data`, as the network
/// module tells its observer.
void answer(ServiceAnswers& answers, const char* method, const std::string& path, int status, const std::string& data)
{
    const std::string url = "https://api.example.test/v1/" + path + "?token=secret";
    const std::string body = "{\"status_code\":" + std::to_string(status) + ",\"data\":" + data + "}";
    answers.onCallAnswered({method, url.c_str(), 200, body.data(), body.size()});
}

/// Track name -> track id of every record of the product, and how many there are.
std::map<std::string, std::string> recordedTracks(PublishLedger& ledger, const std::string& product, size_t& count)
{
    std::vector<PublishLedger::Record> records;
    std::string error;
    EXPECT_TRUE(ledger.history(product, records, error)) << error;
    count = records.size();
    std::map<std::string, std::string> tracks;
    for (const PublishLedger::Record& record : records)
        tracks[record.trackName] = record.trackId + "@" + record.productId;
    return tracks;
}

PublishLedger::Digests digests(char seed)
{
    return {std::string(64, seed), std::string(64, static_cast<char>(seed + 1))};
}

TEST(UploadRecorder, RecordsEachConfirmedUploadUnderTheTrackItWentToAndNothingElse)
{
    TemporaryDirectory folder;
    std::string error;
    const auto ledger = PublishLedger::open(folder.path() / "ledger.sqlite", error);
    ASSERT_TRUE(ledger) << error;
    auto answers = KVX::makeRef<ServiceAnswers>();

    // A product that lists "Intro": the first row replaces it, two rows become new tracks.
    {
        UploadRecorder recorder(ledger.get(), *answers);
        recorder.start({"https://api.example.test/v1", "A1", "Night Drive", "P1"},
                       {{"/music/intro.wav", "Intro", "Intro", digests('a'), "WAV 48000 Hz 24-bit stereo"},
                        {"/music/two.wav", "Second", "", digests('c'), "WAV 48000 Hz 24-bit stereo"},
                        {"/music/three.wav", "Third", "", digests('e'), "WAV 44100 Hz 16-bit mono"}},
                       {{"T1", "Intro"}, {"T2", "Outro"}});
        answer(*answers, "POST", "tracks", 200, R"({"id":"T7"})");
        answer(*answers, "POST", "tracks", 200, R"({"id":"T8"})");
        // Confirmed out of order; the second new track's report is refused; a track of no row.
        answer(*answers, "POST", "tracks/T8/upload_status", 200, "{}");
        answer(*answers, "POST", "tracks/T1/upload_status", 200, "{}");
        answer(*answers, "POST", "tracks/T7/upload_status", 500, R"({"error":"storage full"})");
        answer(*answers, "POST", "tracks/T2/upload_status", 200, "{}");
        EXPECT_FALSE(recorder.failed());
        EXPECT_EQ(recorder.recorded(), 2u);
        recorder.stop();
        answer(*answers, "POST", "tracks/T7/upload_status", 200, "{}"); // after the batch: not its
    }
    size_t count = 0;
    EXPECT_EQ(recordedTracks(*ledger, "Night Drive", count),
              (std::map<std::string, std::string>{{"Intro", "T1@P1"}, {"Third", "T8@P1"}}));
    EXPECT_EQ(count, 2u);
    PublishLedger::Record last;
    bool found = false;
    ASSERT_TRUE(ledger->find({"https://api.example.test/v1", "A1", "P1", "Third"}, last, found, error)) << error;
    ASSERT_TRUE(found);
    EXPECT_EQ(last.source, "/music/three.wav");
    EXPECT_EQ(last.digests.content, digests('e').content);
    EXPECT_EQ(last.digests.metadata, digests('e').metadata);
    EXPECT_EQ(last.format, "WAV 44100 Hz 16-bit mono") << "the format its row was rendered to";

    // A batch that creates its product records under the id the service gave it; no ledger: the
    // product's id is still followed, nothing is recorded.
    UploadRecorder creating(ledger.get(), *answers);
    creating.start({"https://api.example.test/v1", "A1", "Dawn", ""},
                   {{"/music/dawn.wav", "Dawn", "", digests('1'), "WAV 44100 Hz 16-bit stereo"}}, {});
    answer(*answers, "POST", "titles", 200, R"({"id":"P5"})");
    answer(*answers, "POST", "tracks", 200, R"({"id":"T9"})");
    answer(*answers, "POST", "tracks/T9/upload_status", 200, "{}");
    EXPECT_EQ(creating.productId(), "P5");
    EXPECT_EQ(recordedTracks(*ledger, "Dawn", count), (std::map<std::string, std::string>{{"Dawn", "T9@P5"}}));

    UploadRecorder following(nullptr, *answers);
    following.start({"https://api.example.test/v1", "A1", "Dusk", ""},
                    {{"/music/dusk.wav", "Dusk", "", digests('3'), "WAV 44100 Hz 16-bit stereo"}}, {});
    answer(*answers, "POST", "titles", 200, R"({"id":"P6"})");
    answer(*answers, "POST", "tracks", 200, R"({"id":"T10"})");
    answer(*answers, "POST", "tracks/T10/upload_status", 200, "{}");
    EXPECT_EQ(following.productId(), "P6");
    EXPECT_EQ(following.recorded(), 0u);
    EXPECT_EQ(recordedTracks(*ledger, "Dusk", count).size(), 0u);
}

TEST(UploadRecorder, TheMetadataDigestChangesWithWhatIsSentAndOnlyWithThat)
{
    Attributes sent;
    sent.set("Media:Title", String("Take"));
    sent.set("Media:Genre", String("Ambient"));
    sent.set("Media:Year", int64_t(2026));
    const std::string digest = metadataDigest(sent, "Take");
    EXPECT_EQ(digest.size(), 64u);

    // The product's name is the ledger's key, not the track's metadata; an empty value is not sent.
    Attributes same = sent;
    same.set("Media:Album", String("Night Drive"));
    same.set("Media:Comment", String(""));
    EXPECT_EQ(metadataDigest(same, "Take"), digest);
    // The title is the track's name, whether it came as a tag or from the file's name.
    Attributes untitled = sent;
    untitled.remove("Media:Title");
    EXPECT_EQ(metadataDigest(untitled, "Take"), digest);

    Attributes genre = sent;
    genre.set("Media:Genre", String("Drone"));
    Attributes year = sent;
    year.set("Media:Year", int64_t(2025));
    Attributes added = sent;
    added.set("Media:ISRC", String("GBAYE0601498"));
    for (const Attributes* changed : {&genre, &year, &added})
        EXPECT_NE(metadataDigest(*changed, "Take"), digest);
    EXPECT_NE(metadataDigest(sent, "Take 2"), digest);

    // The content digest is the source's bytes.
    TemporaryDirectory folder;
    const auto source = folder.path() / "take.wav";
    std::ofstream(source) << "RIFF";
    PublishLedger::Digests digests;
    std::string error;
    ASSERT_TRUE(digestsOf(source, sent, "Take", digests, error)) << error;
    EXPECT_EQ(digests.content, "a40ff3d5900fb7698b8c865041347cb49eccedc8f93945f89629ad104aaecce4"); // sha256sum of "RIFF"
    EXPECT_EQ(digests.metadata, digest);
    EXPECT_FALSE(digestsOf(folder.path() / "missing.wav", sent, "Take", digests, error));
    EXPECT_FALSE(error.empty());
}

} // namespace

// The tags of source files, written by TagLib into files of every kind a workstation exports, read
// back as the publisher's "Media:" metadata.

#include "host/app/SourceFile.h"
#include "host/app/SourceTags.h"
#include "tests/render/TestSound.h"
#include "tests/support/TaggedSound.h"

#include <gtest/gtest.h>

#include <taglib/flacfile.h>
#include <taglib/id3v2tag.h>
#include <taglib/infotag.h>
#include <taglib/wavfile.h>
#include <taglib/xiphcomment.h>

#include <fstream>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

using KVX::Attributes;
using KVX::Variant;
using TestTags::Kind;

struct Case
{
    const char* name;
    Kind kind;
    bool hasAudio = true;     ///< libsndfile can read it (an MP4 holds no audio here)
    bool hasAllFields = true; ///< RIFF INFO has no arranger or barcode
};

std::string text(const Attributes& metadata, const char* key)
{
    const Variant* value = metadata.find(key);
    return value ? value->toString().toUtf8() : "(missing)";
}

TEST(SourceTags, EveryFieldOfEveryKindOfTagArrivesUnderItsMediaKey)
{
    const Case cases[] = {
        {"take.flac", Kind::Flac},      {"take.ogg", Kind::OggVorbis},    {"take.mp3", Kind::Mp3},
        {"take.wav", Kind::WaveId3},    {"info.wav", Kind::WaveInfo, true, false},
        {"take.aiff", Kind::AiffId3},   {"take.m4a", Kind::Mp4, false},
    };
    RenderTest::TempFolder folder;
    const TestTags::Tags tags;
    for (const Case& one : cases)
    {
        SCOPED_TRACE(one.name);
        const auto path = folder / one.name;
        ASSERT_TRUE(TestTags::writeTagged(path, one.kind, tags));
        Attributes metadata;
        if (one.hasAudio)
        {
            Host::SourceFile source;
            std::string error;
            ASSERT_TRUE(Host::SourceFile::open(path, source, error)) << error;
            metadata = source.metadata;
            EXPECT_NEAR(metadata.getDouble("Media:Length"), 1.0, 0.06);
        }
        else
            Host::SourceTags::read(path, metadata);

        EXPECT_EQ(text(metadata, "Media:Title"), tags.title);
        EXPECT_EQ(text(metadata, "Media:Album"), tags.album);
        EXPECT_EQ(text(metadata, "Media:Artist"), tags.artist) << "UTF-8 throughout";
        EXPECT_EQ(text(metadata, "Media:ISRC"), tags.isrc);
        EXPECT_EQ(text(metadata, "Media:Genre"), tags.genre);
        EXPECT_EQ(text(metadata, "Media:Comment"), tags.comment);
        EXPECT_EQ(text(metadata, "Media:Composer"), tags.composer);
        EXPECT_EQ(text(metadata, "Media:Songwriter"), tags.songwriter);
        // Numbers as numbers: the publisher takes a track index only as one.
        ASSERT_NE(metadata.find("Media:TrackIndex"), nullptr);
        EXPECT_EQ(metadata.find("Media:TrackIndex")->type(), Variant::kInt);
        EXPECT_EQ(metadata.getInt64("Media:TrackIndex"), 3);
        ASSERT_NE(metadata.find("Media:Year"), nullptr);
        EXPECT_EQ(metadata.getInt64("Media:Year"), 2021) << "the year of the date 2021-06-04";
        if (one.hasAllFields)
        {
            EXPECT_EQ(text(metadata, "Media:EAN"), tags.barcode);
            EXPECT_EQ(text(metadata, "Media:Arranger"), tags.arranger);
        }
        else
        {
            EXPECT_FALSE(metadata.contains("Media:EAN"));
            EXPECT_FALSE(metadata.contains("Media:Arranger"));
        }
    }
}

TEST(SourceTags, TwoKindsInOneFileMergeKeyByKeyAndOddValuesAreReadWithCare)
{
    RenderTest::TempFolder folder;
    // A WAV file with both: the id3 chunk names the title, INFO alone has the genre; INFO's
    // "source" that is no recording code is not taken as the ISRC.
    const auto both = folder / "both.wav";
    TestTags::Tags id3;
    id3.genre.clear();
    id3.isrc.clear();
    id3.title = "From the id3 chunk";
    ASSERT_TRUE(TestTags::writeTagged(both, Kind::WaveId3, id3));
    {
        TagLib::RIFF::WAV::File file(both.c_str());
        file.InfoTag()->setFieldText("INAM", "From INFO");
        file.InfoTag()->setFieldText("IGNR", "Folk");
        file.InfoTag()->setFieldText("ISRC", "Tape 4, studio B");
        ASSERT_TRUE(file.save(TagLib::RIFF::WAV::File::AllTags, TagLib::File::StripNone));
    }
    Attributes metadata;
    Host::SourceTags::read(both, metadata);
    EXPECT_EQ(text(metadata, "Media:Title"), "From the id3 chunk");
    EXPECT_EQ(text(metadata, "Media:Genre"), "Folk");
    EXPECT_FALSE(metadata.contains("Media:ISRC"));
    EXPECT_EQ(text(metadata, "Media:Composer"), id3.composer);

    // Several artists are joined; a date that does not begin with a year stays text; a track
    // number that is no number is left out; keys the file has no tag for are left as they were.
    const auto odd = folder / "odd.flac";
    TestTags::Tags values;
    values.date = "Summer 2019";
    values.trackNumber = "side A";
    values.comment.clear();
    ASSERT_TRUE(TestTags::writeTagged(odd, Kind::Flac, values));
    {
        TagLib::FLAC::File file(odd.c_str());
        file.xiphComment()->addField("ARTIST", "Second Voice", false);
        ASSERT_TRUE(file.save());
    }
    metadata.clear();
    metadata.set("Media:Comment", KVX::String("given before"));
    Host::SourceTags::read(odd, metadata);
    EXPECT_EQ(text(metadata, "Media:Artist"), values.artist + ", Second Voice");
    EXPECT_EQ(metadata.find("Media:Year")->type(), Variant::kString);
    EXPECT_EQ(text(metadata, "Media:Year"), "Summer 2019");
    EXPECT_FALSE(metadata.contains("Media:TrackIndex"));
    EXPECT_EQ(text(metadata, "Media:Comment"), "given before");

    // Reading opens the file for reading only: a folder watch hears of no write.
    const int events = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(events, 0);
    ASSERT_GE(inotify_add_watch(events, both.c_str(), IN_CLOSE_WRITE | IN_MODIFY | IN_CLOSE_NOWRITE), 0);
    Host::SourceFile source;
    std::string error;
    ASSERT_TRUE(Host::SourceFile::open(both, source, error)) << error;
    alignas(inotify_event) char buffer[4096];
    const ssize_t got = ::read(events, buffer, sizeof buffer);
    ASSERT_GT(got, 0) << "the file was read";
    for (const char* at = buffer; at < buffer + got; at += sizeof(inotify_event) + reinterpret_cast<const inotify_event*>(at)->len)
        EXPECT_EQ(reinterpret_cast<const inotify_event*>(at)->mask & (IN_CLOSE_WRITE | IN_MODIFY), 0u);
    ::close(events);

    // Something that is no audio file, and one that is gone, change nothing.
    std::ofstream(folder / "notes.txt") << "not audio";
    metadata.clear();
    Host::SourceTags::read(folder / "notes.txt", metadata);
    Host::SourceTags::read(folder / "gone.flac", metadata);
    EXPECT_TRUE(metadata.isEmpty());
}

} // namespace

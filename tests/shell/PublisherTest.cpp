// The publishing target as a host drives it: the format check before rendering, then the
// rendered files with their metadata, handed to the gadget's controller.
#include "framework/core/Object.h"
#include "framework/hostsupport/EventWait.h"
#include "framework/interfaces/IAttributeList.h"
#include "framework/interfaces/IParameter.h"
#include "framework/interfaces/IPublishedItem.h"
#include "framework/services/AudioServices.h"
#include "framework/services/SystemServices.h"
#include "plugin/catalogue/Publisher.h"
#include "plugin/controller/Manager.h"
#include "plugin/views/TrackItem.h"
#include "plugin/views/TrackList.h"
#include "tests/plugin/AudioFolder.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

using namespace KVX;
using namespace Sorvel;

namespace {

/// One metadata value as the host's item hands it out.
struct Entry
{
    std::string name;
    ValueRecord value;
    std::string text; // backs value.text
};

Entry text(std::string name, std::string value)
{
    Entry entry{std::move(name), {}, std::move(value)};
    entry.value.type = ValueRecord::kString;
    return entry;
}

Entry integer(std::string name, int64 value)
{
    Entry entry{std::move(name), {}, {}};
    entry.value.type = ValueRecord::kInt;
    entry.value.intValue = value;
    return entry;
}

Entry floating(std::string name, double value)
{
    Entry entry{std::move(name), {}, {}};
    entry.value.type = ValueRecord::kDouble;
    entry.value.doubleValue = value;
    return entry;
}

/// A rendered file as the host hands it to the target. `answers` false makes an object that
/// does not admit to being a published item.
class HostItem : public Object, public IPublishedItem
{
public:
    HostItem(std::string url, std::vector<Entry> metadata, bool answers = true)
        : url_(std::move(url)), metadata_(std::move(metadata)), answers_(answers)
    {
    }

    tresult getMetadata(IAttributeList* list) override
    {
        if (!list)
            return kInvalidArgument;
        for (Entry& entry : metadata_)
        {
            entry.value.text = entry.text.data();
            entry.value.textLength = entry.text.size();
            list->setAttribute(entry.name.c_str(), entry.value);
        }
        return kResultOk;
    }
    const char* getFileUrl() override { return url_.c_str(); }

    tresult queryInterface(const UID& iid, void** object) override
    {
        if (answers_)
        {
            KVX_QUERY_INTERFACE(iid, object, IPublishedItem)
        }
        return Object::queryInterface(iid, object);
    }
    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }

private:
    std::string url_;
    std::vector<Entry> metadata_;
    bool answers_;
};

class HostItems : public Object, public IPublishedItemContainer
{
public:
    void add(Ref<HostItem> item) { items_.push_back(std::move(item)); }

    int32 countItems() override { return static_cast<int32>(items_.size()); }
    IPublishedItem* getItem(int32 index) override
    {
        return index >= 0 && index < countItems() ? items_[static_cast<size_t>(index)].get() : nullptr;
    }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IPublishedItemContainer)
        return Object::queryInterface(iid, object);
    }
    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }

private:
    std::vector<Ref<HostItem>> items_;
};

FileType wavType()
{
    FileType type{};
    std::strcpy(type.extension, "wav");
    return type;
}

class PublisherTest : public PluginTest::AudioFolder
{
protected:
    /// A short rendered file (44.1 kHz 16-bit stereo unless `sampleRate` says otherwise), and its URL.
    std::string render(const std::string& name, int sampleRate = 44100)
    {
        return write(name, SF_FORMAT_WAV | SF_FORMAT_PCM_16, sampleRate).toDisplayString().toUtf8();
    }

    static LocalTrack* listed(Manager& manager, int32 row)
    {
        TrackItem* item = manager.getTrackList()->getTrackItem(row);
        return item ? item->getLocalTrack() : nullptr;
    }
    static std::string proposedProduct(Manager& manager)
    {
        ValueRecord value;
        EXPECT_EQ(manager.lookupParameter("newProductName")->readValue(value), kResultOk);
        return std::string(value.text ? value.text : "", value.textLength);
    }
};

} // namespace

TEST_F(PublisherTest, CheckFormatCorrectsWhatTheServiceDoesNotTakeAndSaysSo)
{
    auto publisher = makeRef<Publisher>();

    FileType type = wavType();
    AudioFormat format{48000, 2, 24};
    EXPECT_EQ(publisher->checkFormat(type, format), kInvalidArgument);
    EXPECT_EQ(format.sampleRate, 44100.0);
    EXPECT_EQ(format.channelCount, 2);
    EXPECT_EQ(format.bitDepth, 16);
    EXPECT_EQ(format.formatCode, AudioFormat::kIntegerPCM);

    AudioFormat accepted{44100, 2, 24};
    const AudioFormat asProposed = accepted;
    EXPECT_EQ(publisher->checkFormat(type, accepted), kResultOk);
    EXPECT_EQ(accepted, asProposed);
    EXPECT_STREQ(type.extension, "wav");

    // A type other than WAV is replaced by the registry's WAV type even when the format was fine.
    FileType aiff{};
    std::strcpy(aiff.extension, "aiff");
    std::strcpy(aiff.mimeType, "audio/aiff");
    AudioFormat good{44100, 2, 16};
    EXPECT_EQ(publisher->checkFormat(aiff, good), kInvalidArgument);
    FileType registered{};
    ASSERT_EQ(GetFileTypeRegistry()->getFileTypeByExtension("wav", registered), kResultOk);
    EXPECT_STREQ(aiff.extension, registered.extension);
    EXPECT_STREQ(aiff.mimeType, registered.mimeType);
    EXPECT_EQ(good, (AudioFormat{44100, 2, 16}));

    // Both records come back corrected when both were wrong.
    FileType mp3{};
    std::strcpy(mp3.extension, "mp3");
    AudioFormat mono{22050, 1, 8};
    EXPECT_EQ(publisher->checkFormat(mp3, mono), kInvalidArgument);
    EXPECT_STREQ(mp3.extension, registered.extension);
    EXPECT_EQ(mono, LocalTrack::requiredFormat());
}

TEST_F(PublisherTest, WithNoGadgetOpenThereIsNowhereToPublish)
{
    ASSERT_EQ(Manager::current(), nullptr);
    auto items = makeRef<HostItems>();
    items->add(makeRef<HostItem>(render("a.wav"), std::vector<Entry>{}));
    EXPECT_EQ(makeRef<Publisher>()->publish(items), kUnexpected);
}

TEST_F(PublisherTest, ItemsBecomeListedTracksWithTheirMetadataAndTheFirstAlbumProposesTheProduct)
{
    auto manager = makeRef<Manager>();
    auto items = makeRef<HostItems>();
    // No album, an empty title (the file name stays), a track index and a year given as text.
    items->add(makeRef<HostItem>(render("First Take.wav"),
                                 std::vector<Entry>{text("Media:Title", ""), text("Media:TrackIndex", "3"),
                                                    text("Media:Year", "2014"), text("Media:Artist", "Ann")}));
    // Not a published item: skipped.
    items->add(makeRef<HostItem>(render("foreign.wav"), std::vector<Entry>{text("Media:Album", "Foreign")}, false));
    // The first album of the batch.
    items->add(makeRef<HostItem>(
        render("second.wav"),
        std::vector<Entry>{text("Media:Title", "Second Song"), text("Media:Album", "Live"), floating("Media:TrackIndex", 2.9),
                           floating("Media:Year", 1999.7), integer("Media:Length", 215), text("Media:Genre", "Jazz"),
                           text("Media:Comment", "late set"), text("Media:Arranger", "Bo"), text("Media:Composer", "Cy"),
                           text("Media:Songwriter", "Di"), text("Media:EAN", "0123456789012"),
                           text("Media:ISRC", "USRC17607839")}));
    // A later album does not replace it; a rate the service does not take is listed anyway.
    items->add(makeRef<HostItem>(render("third.wav", 48000),
                                 std::vector<Entry>{text("Media:Album", "Studio"), integer("Media:Year", 2020),
                                                    floating("Media:Length", 12.5), text("Media:Year2", "x")}));

    ASSERT_EQ(makeRef<Publisher>()->publish(items), kResultOk);

    ASSERT_EQ(manager->getTrackList()->countItems(), 3);
    LocalTrack* first = listed(*manager, 0);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->name, "First Take");
    EXPECT_EQ(first->trackNumber, 0) << "a track index given as text is not taken";
    EXPECT_EQ(first->year, 2014) << "a year given as text is";
    EXPECT_EQ(first->artist, "Ann");
    EXPECT_EQ(first->album, "");
    EXPECT_FALSE(first->incompatible);

    LocalTrack* second = listed(*manager, 1);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->name, "Second Song");
    EXPECT_EQ(second->album, "Live");
    EXPECT_EQ(second->trackNumber, 2);
    EXPECT_EQ(second->year, 1999);
    EXPECT_EQ(second->duration, 215.0);
    EXPECT_EQ(second->genre, "Jazz");
    EXPECT_EQ(second->comment, "late set");
    EXPECT_EQ(second->arranger, "Bo");
    EXPECT_EQ(second->composer, "Cy");
    EXPECT_EQ(second->songwriter, "Di");
    EXPECT_EQ(second->ean, "0123456789012");
    EXPECT_EQ(second->isrc, "USRC17607839");

    LocalTrack* third = listed(*manager, 2);
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(third->name, "third");
    EXPECT_EQ(third->year, 2020);
    EXPECT_EQ(third->duration, 12.5);
    EXPECT_TRUE(third->incompatible);

    EXPECT_EQ(proposedProduct(*manager), "Live");
}

TEST_F(PublisherTest, APublishFromAnotherThreadIsListedOnTheUserInterfaceThread)
{
    auto manager = makeRef<Manager>();
    auto items = makeRef<HostItems>();
    items->add(makeRef<HostItem>(render("night.wav"), std::vector<Entry>{text("Media:Album", "Night")}));

    tresult result = kUnexpected;
    std::thread host([&] { result = makeRef<Publisher>()->publish(items); });
    host.join();
    EXPECT_EQ(result, kResultOk);
    EXPECT_EQ(manager->getTrackList()->countItems(), 0) << "listed before the user-interface thread ran";
    ASSERT_TRUE(EventWait::until([&] { return manager->getTrackList()->countItems() == 1; }, 5000));
    EXPECT_EQ(listed(*manager, 0)->name, "night");
    EXPECT_EQ(proposedProduct(*manager), "Night");
}

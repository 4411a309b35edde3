#include "plugin/catalogue/Publisher.h"

#include "framework/component/ThreadContract.h"
#include "framework/core/Runnable.h"
#include "framework/data/AttributeList.h"
#include "framework/interfaces/IPublishedItem.h"
#include "framework/services/SystemServices.h"
#include "framework/text/NumberFormat.h"
#include "plugin/controller/Manager.h"

namespace Sorvel {

using namespace KVX;

namespace {

/// The text of `key` by the variant-to-string rule; empty when it is missing.
String textOf(const Attributes& metadata, std::string_view key)
{
    const Variant* value = metadata.find(key);
    return value ? value->toString() : String();
}

/// A year: a number as it stands (truncated), anything else read as the text of an integer.
int32 yearOf(const Attributes& metadata)
{
    const Variant* value = metadata.find("Media:Year");
    if (!value)
        return 0;
    if (value->type() == Variant::kInt || value->type() == Variant::kDouble)
        return static_cast<int32>(value->asInt());
    return static_cast<int32>(NumberFormat::toInt64(value->toString().toUtf8()));
}

/// Lists `tracks` in the current Manager and brings the gadget forward. User-interface thread.
void handOver(const TypedObjectArray<LocalTrack>& tracks, const String& productName)
{
    if (Manager* manager = Manager::current())
    {
        Ref<Manager> keepAlive(manager);
        manager->setTracks(tracks, productName);
        manager->activateInHost();
    }
}

} // namespace

tresult Publisher::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, Engine::IPublisher)
    KVX_QUERY_INTERFACE(iid, object, IPluginInstance)
    return Unknown::queryInterface(iid, object);
}

tresult Publisher::checkFormat(FileType& fileType, AudioFormat& format)
{
    // Both checks run, so that both records come back corrected.
    const bool typeAccepted = LocalTrack::checkFileType(fileType);
    const bool formatAccepted = LocalTrack::checkAudioFormat(format);
    return typeAccepted && formatAccepted ? kResultOk : kInvalidArgument;
}

Ref<LocalTrack> Publisher::makeTrack(IPublishedItem& item, String& album)
{
    const char* fileUrl = item.getFileUrl();
    if (!fileUrl)
        return {};
    auto metadataList = makeRef<AttributeList>();
    item.getMetadata(metadataList);
    const Attributes& metadata = metadataList->attributes();

    Ref<LocalTrack> track = LocalTrack::createFromFile(Url::fromDisplayString(fileUrl));
    if (String title = textOf(metadata, "Media:Title"); !title.isEmpty())
        track->name = title;
    album = textOf(metadata, "Media:Album");
    track->album = album;
    track->artist = textOf(metadata, "Media:Artist");
    track->ean = textOf(metadata, "Media:EAN");
    track->isrc = textOf(metadata, "Media:ISRC");
    const Variant* index = metadata.find("Media:TrackIndex");
    track->trackNumber = index ? static_cast<int32>(index->asInt()) : 0;
    track->year = yearOf(metadata);
    const Variant* length = metadata.find("Media:Length");
    track->duration = length ? length->asDouble() : 0.0;
    track->genre = textOf(metadata, "Media:Genre");
    track->comment = textOf(metadata, "Media:Comment");
    track->arranger = textOf(metadata, "Media:Arranger");
    track->composer = textOf(metadata, "Media:Composer");
    track->songwriter = textOf(metadata, "Media:Songwriter");
    return track;
}

tresult Publisher::publish(IPublishedItemContainer* items)
{
    if (!Manager::current())
        return kUnexpected;
    auto tracks = makeRef<TypedObjectArray<LocalTrack>>(true, 10);
    String productName;
    for (int32 i = 0; items && i < items->countItems(); ++i)
    {
        IPublishedItem* candidate = items->getItem(i);
        void* answered = nullptr;
        if (!candidate || candidate->queryInterface(IPublishedItem::kIID, &answered) != kResultOk || !answered)
            continue;
        auto item = Ref<IPublishedItem>::adopt(static_cast<IPublishedItem*>(answered));
        String album;
        if (Ref<LocalTrack> track = makeTrack(*item, album))
        {
            if (productName.isEmpty())
                productName = album;
            tracks->add(track);
        }
    }

    if (isUserInterfaceThread())
        handOver(*tracks, productName);
    else
        GetRunLoop()->post(Runnable::make([tracks, productName] { handOver(*tracks, productName); }));
    return kResultOk;
}

} // namespace Sorvel

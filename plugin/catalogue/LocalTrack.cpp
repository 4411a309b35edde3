#include "plugin/catalogue/LocalTrack.h"

#include "framework/services/IAudioFile.h"
#include "framework/services/SystemServices.h"

#include <cstring>

using namespace KVX;

namespace Sorvel {

KVX_DEFINE_CLASS(LocalTrack, Track, "LocalTrack")

const AudioFormat& LocalTrack::requiredFormat()
{
    static const AudioFormat format = [] {
        AudioFormat required;
        required.sampleRate = 44100.0;
        required.channelCount = 2;
        required.bitDepth = 16;
        required.options = 0;
        required.formatCode = AudioFormat::kIntegerPCM;
        required.startTime = 0.0;
        required.endTime = 0.0;
        required.layout = 3;
        return required;
    }();
    return format;
}

bool LocalTrack::checkFileType(FileType& fileType)
{
    if (String(fileType.extension).contains("wav", false))
        return true;
    FileType wav{};
    if (GetFileTypeRegistry()->getFileTypeByExtension("wav", wav) == kResultOk)
        fileType = wav;
    else
        std::strcpy(fileType.extension, "wav");
    return false;
}

bool LocalTrack::checkAudioFormat(AudioFormat& format)
{
    if (format.sampleRate == 44100.0 && format.bitDepth >= 16 && format.formatCode == AudioFormat::kIntegerPCM &&
        format.channelCount == 2)
        return true;
    format = requiredFormat();
    return false;
}

Ref<LocalTrack> LocalTrack::createFromFile(const Url& url)
{
    auto track = makeRef<LocalTrack>();
    track->name = url.fileNameWithoutExtension();
    track->url = url;

    FileType type{};
    const std::string extension = url.extension().toUtf8();
    if (GetFileTypeRegistry()->getFileTypeByExtension(extension.c_str(), type) != kResultOk)
    {
        type = FileType{};
        std::strncpy(type.extension, extension.c_str(), sizeof type.extension - 1);
    }
    if (!checkFileType(type))
        return track;

    void* object = nullptr;
    if (GetPlugInManager()->createInstance(IAudioFile::kClassId, IAudioFile::kIID, &object) != kResultOk)
        return track;
    auto file = Ref<IAudioFile>::adopt(static_cast<IAudioFile*>(object));
    file->open(url.toDisplayString().toUtf8().c_str());
    void* info = nullptr;
    if (file->queryInterface(IAudioFormatInfo::kIID, &info) == kResultOk)
    {
        auto formatInfo = Ref<IAudioFormatInfo>::adopt(static_cast<IAudioFormatInfo*>(info));
        AudioFormat format = requiredFormat();
        if (formatInfo->getFormat(format) == kResultOk && checkAudioFormat(format))
            track->incompatible = false;
    }
    return track;
}

} // namespace Sorvel

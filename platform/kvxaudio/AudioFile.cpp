#include "platform/kvxaudio/AudioFile.h"

#include "framework/core/Ref.h"
#include "framework/data/Url.h"

namespace KVX::Audio {

KVX_DEFINE_CLASS(AudioFile, Object, "AudioFile")

AudioFile::~AudioFile()
{
    close();
}

IUnknown* AudioFile::create()
{
    return static_cast<IAudioFile*>(makeRef<AudioFile>().detach());
}

tresult AudioFile::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IAudioFile)
    KVX_QUERY_INTERFACE(iid, object, IAudioFormatInfo)
    return Object::queryInterface(iid, object);
}

void AudioFile::close()
{
    if (file_)
        sf_close(file_);
    file_ = nullptr;
    info_ = SF_INFO{};
}

tresult AudioFile::open(const char* fileUrl)
{
    close();
    Url url;
    if (!fileUrl || !url.setFromDisplayString(fileUrl) || url.protocol() != "file" || url.path().isEmpty())
        return kInvalidArgument;
    file_ = sf_open(url.nativePath().toUtf8().c_str(), SFM_READ, &info_);
    if (!file_)
    {
        info_ = SF_INFO{};
        return kUnexpected;
    }
    return kResultOk;
}

tresult AudioFile::getFormat(AudioFormat& format)
{
    if (!file_)
        return kUnexpected;
    AudioFormat result;
    result.sampleRate = info_.samplerate;
    result.channelCount = info_.channels;
    const int major = info_.format & SF_FORMAT_TYPEMASK;
    const int subtype = info_.format & SF_FORMAT_SUBMASK;
    // Integer PCM only counts as such in containers that store it plainly; the same subtypes
    // inside FLAC are compressed.
    const bool plainContainer = major == SF_FORMAT_WAV || major == SF_FORMAT_WAVEX || major == SF_FORMAT_AIFF ||
                                major == SF_FORMAT_W64 || major == SF_FORMAT_RF64 || major == SF_FORMAT_CAF ||
                                major == SF_FORMAT_RAW;
    switch (subtype)
    {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
        result.bitDepth = 8;
        break;
    case SF_FORMAT_PCM_16:
        result.bitDepth = 16;
        break;
    case SF_FORMAT_PCM_24:
        result.bitDepth = 24;
        break;
    case SF_FORMAT_PCM_32:
        result.bitDepth = 32;
        break;
    case SF_FORMAT_FLOAT:
        result.bitDepth = 32;
        result.formatCode = AudioFormat::kFloatPCM;
        break;
    case SF_FORMAT_DOUBLE:
        result.bitDepth = 64;
        result.formatCode = AudioFormat::kFloatPCM;
        break;
    default:
        result.bitDepth = 16; // what a decoder would deliver
        result.formatCode = AudioFormat::kCompressed;
        break;
    }
    if (result.formatCode == AudioFormat::kIntegerPCM && !plainContainer)
        result.formatCode = AudioFormat::kCompressed;
    format = result;
    return kResultOk;
}

} // namespace KVX::Audio

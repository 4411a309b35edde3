#pragma once

#include "framework/core/Object.h"
#include "framework/services/IAudioFile.h"

#include <sndfile.h>

namespace KVX::Audio {

/// An audio file opened with libsndfile, reporting its format. Files libsndfile cannot read
/// (a text file named .wav, a truncated header) fail to open and report no format.
class AudioFile : public Object, public IAudioFile, public IAudioFormatInfo
{
    KVX_DECLARE_CLASS(AudioFile, Object)
public:
    ~AudioFile() override;

    tresult open(const char* fileUrl) override;
    tresult getFormat(AudioFormat& format) override;

    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }
    tresult queryInterface(const UID& iid, void** object) override;

    static IUnknown* create();

private:
    void close();

    SNDFILE* file_ = nullptr;
    SF_INFO info_{};
};

} // namespace KVX::Audio

#pragma once

#include "framework/data/Url.h"
#include "framework/services/AudioFormat.h"
#include "framework/services/FileType.h"
#include "plugin/catalogue/Track.h"

namespace Sorvel {

/// An audio file on the user's disk waiting to be uploaded, with the metadata the host attached
/// when it mixed it down. The service takes WAV at 44.1 kHz, stereo, 16 bits or more; a file that
/// fails the check stays in the list marked incompatible and is never uploaded.
class LocalTrack : public Track
{
    KVX_DECLARE_CLASS(LocalTrack, Track)
public:
    enum UploadState : KVX::int32
    {
        kNotUploaded = 0,
        kUploading = 1,
        kUploaded = 2,
        kUploadFailed = 3,
    };

    KVX::Url url;         ///< where the audio file is
    KVX::String album;    ///< "Media:Album"
    KVX::String artist;   ///< "Media:Artist"
    KVX::String ean;      ///< "Media:EAN": the product barcode
    KVX::int32 uploadState = kNotUploaded; ///< written on the user-interface thread only
    bool incompatible = true; ///< until the file has passed the format check

    /// A track for the audio file at `url`, named after the file, with the format check done.
    /// The caller owns the returned reference.
    static KVX::Ref<LocalTrack> createFromFile(const KVX::Url& url);

    /// True when `fileType` already is WAV (its extension contains "wav" in any case); otherwise
    /// replaces it with the registry's WAV type (or just the extension "wav") and returns false.
    static bool checkFileType(KVX::FileType& fileType);
    /// True when `format` is 44100 Hz, at least 16 bits, integer PCM and 2 channels; otherwise
    /// overwrites all of it with the required format and returns false.
    static bool checkAudioFormat(KVX::AudioFormat& format);
    /// 44100 Hz, 2 channels, 16 bits, integer PCM; built once.
    static const KVX::AudioFormat& requiredFormat();
};

} // namespace Sorvel

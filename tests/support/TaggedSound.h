#pragma once

#include <filesystem>
#include <string>

namespace TestTags {

/// The tags a test writes into a file, each field of the publisher's metadata.
struct Tags
{
    std::string title = "Night Drive";
    std::string album = "Open Roads";
    std::string artist = "Zoë Lanterne";
    std::string isrc = "GBAYE2400123";
    std::string barcode = "5012345678900";
    std::string trackNumber = "3/12";
    std::string date = "2021-06-04";
    std::string genre = "Ambient";
    std::string comment = "Second take, no click";
    std::string arranger = "Ann Arranger";
    std::string composer = "Carl Composer";
    std::string songwriter = "Lia Lyricist";
};

/// How the tags are stored.
enum class Kind
{
    Flac,        ///< Vorbis comments of a FLAC file
    OggVorbis,   ///< Vorbis comments of an Ogg Vorbis file (the barcode as UPC)
    Mp3,         ///< an ID3v2 tag before MPEG layer III audio (the barcode as EAN)
    WaveId3,     ///< the id3 chunk of a WAV file
    WaveInfo,    ///< the RIFF INFO list of a WAV file (which has no arranger or barcode)
    AiffId3,     ///< the id3 chunk of an AIFF file
    Mp4,         ///< the atoms of an MP4 file (a container without audio: nothing can play it)
};

/// Writes one second of a tone at 44.1 kHz stereo in the format of `kind` (with libsndfile),
/// then `tags` into it (with TagLib). False when either refused.
bool writeTagged(const std::filesystem::path& path, Kind kind, const Tags& tags = {});

} // namespace TestTags

#pragma once

#include "framework/data/Attributes.h"

#include <filesystem>

namespace Host {

/// The tags a label or a workstation wrote into an audio file, read as the "Media:" metadata the
/// publishing target takes: title, album, artist, ISRC, barcode ("Media:EAN", from a BARCODE, UPC
/// or EAN tag), track number, year (from a year or a date), genre, comment, arranger, composer
/// and songwriter (a lyricist tag).
///
/// Read with TagLib from Vorbis comments (FLAC, Ogg), ID3v2 (MP3, and the id3 chunk of WAV and
/// AIFF), RIFF INFO (WAV) and MP4 atoms. Where a file carries two kinds, the richer one wins
/// key by key: ID3v2 before RIFF INFO, Vorbis comments before an ID3v2 tag of a FLAC file.
///
/// RIFF INFO has names for fewer fields: INAM title, IPRD album, IART artist, ICRD date, IGNR
/// genre, ICMT comment, ITRK (or IPRT) track number, IMUS composer ("music by"), IWRI songwriter
/// ("written by"), and ISRC, which INFO defines as the recording's source: it is taken as the
/// ISRC only when it has the shape of one. Arranger and barcode have no INFO name.
class SourceTags
{
public:
    /// Sets in `metadata` every key whose tag `path` carries (not empty); keys without a tag are
    /// left as they are. A file TagLib cannot read, or one without tags, changes nothing.
    static void read(const std::filesystem::path& path, KVX::Attributes& metadata);
};

} // namespace Host

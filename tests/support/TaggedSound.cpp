#include "tests/support/TaggedSound.h"

#include <taglib/aifffile.h>
#include <taglib/flacfile.h>
#include <taglib/id3v2tag.h>
#include <taglib/infotag.h>
#include <taglib/mp4file.h>
#include <taglib/mp4tag.h>
#include <taglib/mpegfile.h>
#include <taglib/tpropertymap.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>

#include <sndfile.h>

#include <cmath>
#include <fstream>
#include <vector>

namespace TestTags {

namespace {

bool writeTone(const std::filesystem::path& path, int format)
{
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = 2;
    info.format = format;
    SNDFILE* sound = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!sound)
        return false;
    std::vector<float> frames(2 * 44100);
    for (size_t i = 0; i < frames.size(); ++i)
        frames[i] = 0.25f * static_cast<float>(std::sin(static_cast<double>(i / 2) * 0.0627));
    const bool written = sf_writef_float(sound, frames.data(), 44100) == 44100;
    return sf_close(sound) == 0 && written;
}

/// A container that holds only a movie header: enough for the tag atoms, nothing to play.
bool writeEmptyMp4(const std::filesystem::path& path)
{
    std::string bytes;
    auto u32 = [&](uint32_t value) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes += static_cast<char>((value >> shift) & 0xff);
    };
    u32(24);
    bytes += "ftypM4A ";
    u32(0);
    bytes += "M4A isom";
    u32(8 + 108);
    bytes += "moov";
    u32(108);
    bytes += "mvhd";
    u32(0);     // version and flags
    u32(0);     // created
    u32(0);     // modified
    u32(1000);  // time scale
    u32(0);     // duration
    u32(0x00010000); // rate 1.0
    bytes += std::string("\x01\x00", 2) + std::string(10, '\0'); // volume 1.0, reserved
    const uint32_t matrix[9] = {0x00010000, 0, 0, 0, 0x00010000, 0, 0, 0, 0x40000000};
    for (uint32_t value : matrix)
        u32(value);
    bytes += std::string(24, '\0');
    u32(1); // next track
    std::ofstream out(path, std::ios::binary);
    out << bytes;
    return static_cast<bool>(out);
}

/// Each field: its common TagLib name (the barcode's is chosen per file) and its RIFF INFO id
/// (none for the arranger and the barcode).
struct Field
{
    std::string Tags::*value;
    const char* property;
    const char* infoId;
};
const Field kFields[] = {
    {&Tags::title, "TITLE", "INAM"},       {&Tags::album, "ALBUM", "IPRD"},
    {&Tags::artist, "ARTIST", "IART"},     {&Tags::isrc, "ISRC", "ISRC"},
    {&Tags::barcode, nullptr, nullptr},    {&Tags::trackNumber, "TRACKNUMBER", "ITRK"},
    {&Tags::date, "DATE", "ICRD"},         {&Tags::genre, "GENRE", "IGNR"},
    {&Tags::comment, "COMMENT", "ICMT"},   {&Tags::arranger, "ARRANGER", nullptr},
    {&Tags::composer, "COMPOSER", "IMUS"}, {&Tags::songwriter, "LYRICIST", "IWRI"},
};

TagLib::String text(const std::string& value)
{
    return TagLib::String(value, TagLib::String::UTF8);
}

TagLib::PropertyMap propertiesOf(const Tags& tags, const char* barcodeName)
{
    TagLib::PropertyMap map;
    for (const Field& field : kFields)
        if (const std::string& value = tags.*field.value; !value.empty())
            map.insert(field.property ? field.property : barcodeName, TagLib::StringList(text(value)));
    return map;
}

/// Whether every property was taken (TagLib answers what it could not store).
bool tookAll(const TagLib::PropertyMap& refused)
{
    return refused.isEmpty();
}

} // namespace

bool writeTagged(const std::filesystem::path& path, Kind kind, const Tags& tags)
{
    switch (kind)
    {
    case Kind::Flac:
    {
        if (!writeTone(path, SF_FORMAT_FLAC | SF_FORMAT_PCM_16))
            return false;
        TagLib::FLAC::File file(path.c_str());
        return tookAll(file.xiphComment(true)->setProperties(propertiesOf(tags, "BARCODE"))) && file.save();
    }
    case Kind::OggVorbis:
    {
        if (!writeTone(path, SF_FORMAT_OGG | SF_FORMAT_VORBIS))
            return false;
        TagLib::Ogg::Vorbis::File file(path.c_str());
        return tookAll(file.setProperties(propertiesOf(tags, "UPC"))) && file.save();
    }
    case Kind::Mp3:
    {
        if (!writeTone(path, SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III))
            return false;
        TagLib::MPEG::File file(path.c_str());
        return tookAll(file.ID3v2Tag(true)->setProperties(propertiesOf(tags, "EAN"))) &&
               file.save(TagLib::MPEG::File::ID3v2, TagLib::File::StripOthers);
    }
    case Kind::WaveId3:
    {
        if (!writeTone(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16))
            return false;
        TagLib::RIFF::WAV::File file(path.c_str());
        return tookAll(file.ID3v2Tag()->setProperties(propertiesOf(tags, "BARCODE"))) &&
               file.save(TagLib::RIFF::WAV::File::ID3v2, TagLib::File::StripOthers);
    }
    case Kind::WaveInfo:
    {
        if (!writeTone(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16))
            return false;
        TagLib::RIFF::WAV::File file(path.c_str());
        for (const Field& field : kFields)
            if (const std::string& value = tags.*field.value; field.infoId && !value.empty())
                file.InfoTag()->setFieldText(field.infoId, text(value));
        return file.save(TagLib::RIFF::WAV::File::Info, TagLib::File::StripOthers);
    }
    case Kind::AiffId3:
    {
        if (!writeTone(path, SF_FORMAT_AIFF | SF_FORMAT_PCM_16))
            return false;
        TagLib::RIFF::AIFF::File file(path.c_str());
        return tookAll(file.tag()->setProperties(propertiesOf(tags, "BARCODE"))) && file.save();
    }
    case Kind::Mp4:
    {
        if (!writeEmptyMp4(path))
            return false;
        TagLib::MP4::File file(path.c_str());
        TagLib::PropertyMap properties = propertiesOf(tags, "BARCODE");
        properties.erase("ARRANGER"); // a freeform atom, which TagLib has no common name for
        file.tag()->setItem("----:com.apple.iTunes:ARRANGER",
                            TagLib::MP4::Item(TagLib::StringList(text(tags.arranger))));
        return file.isValid() && tookAll(file.setProperties(properties)) && file.save();
    }
    }
    return false;
}

} // namespace TestTags

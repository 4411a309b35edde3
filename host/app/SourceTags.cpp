#include "host/app/SourceTags.h"

#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2tag.h>
#include <taglib/apetag.h>
#include <taglib/infotag.h>
#include <taglib/mp4file.h>
#include <taglib/mp4tag.h>
#include <taglib/mpegfile.h>
#include <taglib/tfilestream.h>
#include <taglib/tpropertymap.h>
#include <taglib/wavfile.h>
#include <taglib/xiphcomment.h>

#include <cctype>
#include <initializer_list>
#include <string>

namespace Host {

using namespace KVX;
using TagLib::PropertyMap;

namespace {

/// Adds what `from` has and `into` has not, key by key: `into` is the richer kind of tag.
void fillGaps(PropertyMap& into, const PropertyMap& from)
{
    for (const auto& [key, values] : from)
        if (!into.contains(key) && !values.isEmpty())
            into.insert(key, values);
}

/// Whether `text` reads as a recording code: two letters, three letters or digits, seven digits,
/// with or without hyphens.
bool looksLikeIsrc(const std::string& text)
{
    std::string code;
    for (char letter : text)
        if (letter != '-' && letter != ' ')
            code += letter;
    if (code.size() != 12)
        return false;
    for (size_t i = 0; i < code.size(); ++i)
    {
        const auto c = static_cast<unsigned char>(code[i]);
        if (i < 2 ? !std::isalpha(c) : i < 5 ? !std::isalnum(c) : !std::isdigit(c))
            return false;
    }
    return true;
}

/// The fields of a RIFF INFO list under the names the other kinds of tag use.
PropertyMap infoProperties(const TagLib::RIFF::Info::Tag& info)
{
    static const std::pair<const char*, const char*> names[] = {
        {"INAM", "TITLE"},   {"IPRD", "ALBUM"},       {"IART", "ARTIST"},   {"ICRD", "DATE"},
        {"IGNR", "GENRE"},   {"ICMT", "COMMENT"},     {"ITRK", "TRACKNUMBER"}, {"IPRT", "TRACKNUMBER"},
        {"IMUS", "COMPOSER"}, {"IWRI", "LYRICIST"},
    };
    PropertyMap tags;
    const TagLib::RIFF::Info::FieldListMap fields = info.fieldListMap();
    for (const auto& [id, name] : names)
        if (const auto field = fields.find(id); field != fields.end() && !field->second.isEmpty() && !tags.contains(name))
            tags.insert(name, TagLib::StringList(field->second));
    if (const auto source = fields.find("ISRC"); source != fields.end() && looksLikeIsrc(source->second.to8Bit(true)))
        tags.insert("ISRC", TagLib::StringList(source->second));
    return tags;
}

/// Every tag of `file` under TagLib's common names, the richer kind first where a file has two.
PropertyMap tagsOf(TagLib::File& file)
{
    PropertyMap tags;
    if (auto* wave = dynamic_cast<TagLib::RIFF::WAV::File*>(&file))
    {
        if (wave->hasID3v2Tag())
            tags = wave->ID3v2Tag()->properties();
        if (wave->hasInfoTag())
            fillGaps(tags, infoProperties(*wave->InfoTag()));
        return tags;
    }
    if (auto* flac = dynamic_cast<TagLib::FLAC::File*>(&file))
    {
        if (flac->hasXiphComment())
            tags = flac->xiphComment()->properties();
        if (flac->hasID3v2Tag())
            fillGaps(tags, flac->ID3v2Tag()->properties());
        return tags;
    }
    if (auto* mpeg = dynamic_cast<TagLib::MPEG::File*>(&file))
    {
        if (mpeg->hasID3v2Tag())
            tags = mpeg->ID3v2Tag()->properties();
        if (mpeg->hasAPETag())
            fillGaps(tags, mpeg->APETag()->properties());
        if (mpeg->hasID3v1Tag())
            fillGaps(tags, mpeg->ID3v1Tag()->properties());
        return tags;
    }
    if (auto* mp4 = dynamic_cast<TagLib::MP4::File*>(&file))
    {
        // Freeform atoms TagLib has no common name for (the arranger) go by their own name.
        tags = mp4->properties();
        static const TagLib::String freeform = "----:com.apple.iTunes:";
        if (mp4->hasMP4Tag())
            for (const auto& [name, item] : mp4->tag()->itemMap())
                if (name.startsWith(freeform))
                    if (const TagLib::String key = name.substr(freeform.size()).upper(); !tags.contains(key))
                        tags.insert(key, item.toStringList());
        return tags;
    }
    return file.properties();
}

std::string trimmed(const TagLib::String& value)
{
    std::string text = value.to8Bit(true);
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

/// The first value, not empty, of the first of `names` that `tags` has.
std::string firstOf(const PropertyMap& tags, std::initializer_list<const char*> names)
{
    for (const char* name : names)
        if (const auto found = tags.find(name); found != tags.end())
            for (const TagLib::String& value : found->second)
                if (std::string text = trimmed(value); !text.empty())
                    return text;
    return {};
}

/// Every value of the first of `names` that `tags` has, joined: a tag may name several people.
std::string allOf(const PropertyMap& tags, std::initializer_list<const char*> names)
{
    for (const char* name : names)
        if (const auto found = tags.find(name); found != tags.end())
        {
            std::string text;
            for (const TagLib::String& value : found->second)
                if (std::string one = trimmed(value); !one.empty())
                    text += (text.empty() ? "" : ", ") + one;
            if (!text.empty())
                return text;
        }
    return {};
}

/// The number a track number tag begins with ("7", "7/12"); 0 when it begins with none.
int64 leadingNumber(const std::string& text)
{
    int64 number = 0;
    for (size_t i = 0; i < text.size() && i < 9 && std::isdigit(static_cast<unsigned char>(text[i])); ++i)
        number = number * 10 + (text[i] - '0');
    return number;
}

} // namespace

void SourceTags::read(const std::filesystem::path& path, Attributes& metadata)
{
    // Read only: a file opened for writing tells a folder watch, at its close, that it was
    // written, and the user's file is not this program's to change.
    TagLib::FileStream stream(path.c_str(), true);
    if (!stream.isOpen())
        return;
    TagLib::FileRef reference(&stream, false);
    if (reference.isNull() || !reference.file()->isValid())
        return;
    const PropertyMap tags = tagsOf(*reference.file());
    auto setText = [&](const char* key, const std::string& value) {
        if (!value.empty())
            metadata.set(key, String(value));
    };
    setText("Media:Title", firstOf(tags, {"TITLE"}));
    setText("Media:Album", firstOf(tags, {"ALBUM"}));
    setText("Media:Artist", allOf(tags, {"ARTIST"}));
    setText("Media:ISRC", firstOf(tags, {"ISRC"}));
    setText("Media:EAN", firstOf(tags, {"BARCODE", "UPC", "EAN", "EAN/UPN"}));
    if (const int64 track = leadingNumber(firstOf(tags, {"TRACKNUMBER"})); track > 0)
        metadata.set("Media:TrackIndex", track);
    // A date's year as a number; a date that does not begin with one is handed over as text.
    if (const std::string date = firstOf(tags, {"DATE", "YEAR", "ORIGINALDATE"}); !date.empty())
    {
        const int64 year = leadingNumber(date);
        if (year >= 1000 && year <= 9999 && (date.size() == 4 || !std::isdigit(static_cast<unsigned char>(date[4]))))
            metadata.set("Media:Year", year);
        else
            metadata.set("Media:Year", String(date));
    }
    setText("Media:Genre", allOf(tags, {"GENRE"}));
    setText("Media:Comment", firstOf(tags, {"COMMENT", "DESCRIPTION"}));
    setText("Media:Arranger", allOf(tags, {"ARRANGER"}));
    setText("Media:Composer", allOf(tags, {"COMPOSER"}));
    setText("Media:Songwriter", allOf(tags, {"LYRICIST", "SONGWRITER", "WRITER"}));
}

} // namespace Host

#include "host/app/SourceFile.h"
#include "host/app/SourceTags.h"

#include "framework/services/IFileTypeRegistry.h"
#include "framework/services/SystemServices.h"

#include <sndfile.h>

#include <cstdlib>
#include <cstring>

namespace Host {

using namespace KVX;

namespace {

void describe(FileType& type, const std::string& extension)
{
    if (IFileTypeRegistry* registry = GetFileTypeRegistry();
        registry && registry->getFileTypeByExtension(extension.c_str(), type) == kResultOk)
        return;
    type = FileType{};
    std::strncpy(type.extension, extension.c_str(), sizeof(type.extension) - 1);
    type.category = FileType::kCategoryAudio;
}

int32 bitsOf(int subtype)
{
    switch (subtype)
    {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
        return 8;
    case SF_FORMAT_PCM_16:
        return 16;
    case SF_FORMAT_PCM_24:
        return 24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
        return 32;
    case SF_FORMAT_DOUBLE:
        return 64;
    default:
        return 16;
    }
}

int32 codeOf(int subtype)
{
    switch (subtype)
    {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_PCM_32:
        return AudioFormat::kIntegerPCM;
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
        return AudioFormat::kFloatPCM;
    default:
        return AudioFormat::kCompressed;
    }
}

} // namespace

bool SourceFile::open(const std::filesystem::path& path, SourceFile& file, std::string& error)
{
    std::error_code failure;
    if (!std::filesystem::is_regular_file(path, failure))
    {
        error = path.string() + ": no such file";
        return false;
    }
    SF_INFO info{};
    SNDFILE* sound = sf_open(path.c_str(), SFM_READ, &info);
    if (!sound)
    {
        error = path.string() + ": not an audio file that can be read (" + sf_strerror(nullptr) + ")";
        return false;
    }
    file.path = path;
    std::string extension = path.extension().string();
    if (!extension.empty())
        extension.erase(0, 1);
    describe(file.fileType, extension);

    const int subtype = info.format & SF_FORMAT_SUBMASK;
    file.format = AudioFormat{};
    file.format.sampleRate = info.samplerate;
    file.format.channelCount = info.channels;
    file.format.bitDepth = bitsOf(subtype);
    file.format.formatCode = codeOf(subtype);

    Attributes& tags = file.metadata;
    tags.clear();
    SourceTags::read(path, tags);
    // What TagLib found wins; libsndfile's own reading of the common fields fills gaps (a
    // file whose tags TagLib cannot parse may still carry them in a form libsndfile reads).
    auto fill = [&](int id, const char* key) {
        if (const char* value = sf_get_string(sound, id); value && *value && !tags.contains(key))
            tags.set(key, String(value));
    };
    fill(SF_STR_TITLE, "Media:Title");
    fill(SF_STR_ARTIST, "Media:Artist");
    fill(SF_STR_ALBUM, "Media:Album");
    fill(SF_STR_DATE, "Media:Year"); // text: the publisher parses the year out of it
    fill(SF_STR_GENRE, "Media:Genre");
    fill(SF_STR_COMMENT, "Media:Comment");
    if (const char* number = sf_get_string(sound, SF_STR_TRACKNUMBER);
        number && *number && !tags.contains("Media:TrackIndex"))
        tags.set("Media:TrackIndex", static_cast<int64>(std::strtol(number, nullptr, 10)));
    if (info.samplerate > 0)
        tags.set("Media:Length", static_cast<double>(info.frames) / info.samplerate);
    sf_close(sound);
    return true;
}

} // namespace Host

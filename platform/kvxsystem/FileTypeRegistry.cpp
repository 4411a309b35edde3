#include "platform/kvxsystem/FileTypeRegistry.h"

#include "platform/kvxsystem/AsciiText.h"

#include <cstdio>
#include <cstring>
#include <string_view>

namespace KVX::System {

KVX_DEFINE_CLASS(FileTypeRegistry, Object, "FileTypeRegistry")

tresult FileTypeRegistry::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IFileTypeRegistry)
    return Object::queryInterface(iid, object);
}

namespace {

FileType makeType(const char* description, const char* extension, const char* mimeType, uint32 flags)
{
    FileType type = {};
    std::snprintf(type.description, sizeof(type.description), "%s", description);
    std::snprintf(type.extension, sizeof(type.extension), "%s", extension);
    std::snprintf(type.mimeType, sizeof(type.mimeType), "%s", mimeType);
    type.category = FileType::kCategoryAudio;
    type.flags = flags;
    return type;
}

bool isTerminated(const char* buffer, size_t size)
{
    return std::memchr(buffer, '\0', size) != nullptr;
}

bool isValidExtension(std::string_view extension)
{
    if (extension.empty() || extension.size() >= sizeof(FileType::extension))
        return false;
    for (char c : extension)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')))
            return false;
    return true;
}

} // namespace

FileTypeRegistry::FileTypeRegistry()
{
    constexpr uint32 kLossless = FileType::kCompressed;
    constexpr uint32 kLossy = FileType::kCompressed | FileType::kLossy;
    types_ = {
        makeType("WAVE Audio", "wav", "audio/wav", 0),
        makeType("WAVE Audio", "wave", "audio/wav", 0),
        makeType("AIFF Audio", "aiff", "audio/aiff", 0),
        makeType("AIFF Audio", "aif", "audio/aiff", 0),
        makeType("FLAC Audio", "flac", "audio/flac", kLossless),
        makeType("MP3 Audio", "mp3", "audio/mpeg", kLossy),
        makeType("Ogg Vorbis Audio", "ogg", "audio/ogg", kLossy),
    };
}

tresult FileTypeRegistry::getFileTypeByExtension(const char* extension, FileType& type)
{
    if (!extension)
        return kInvalidArgument;
    std::string_view wanted(extension);
    if (wanted.starts_with('.'))
        wanted.remove_prefix(1);
    if (wanted.empty())
        return kInvalidArgument;
    std::lock_guard lock(mutex_);
    for (const auto& known : types_)
        if (equalsIgnoringCase(known.extension, wanted))
        {
            type = known;
            return kResultOk;
        }
    return kInvalidArgument;
}

tresult FileTypeRegistry::registerFileType(const FileType& type)
{
    if (!isTerminated(type.description, sizeof(type.description)) ||
        !isTerminated(type.extension, sizeof(type.extension)) ||
        !isTerminated(type.mimeType, sizeof(type.mimeType)) || !isValidExtension(type.extension))
        return kInvalidArgument;
    std::lock_guard lock(mutex_);
    for (auto& known : types_)
        if (equalsIgnoringCase(known.extension, type.extension))
        {
            known = type;
            return kResultOk;
        }
    types_.push_back(type);
    return kResultOk;
}

} // namespace KVX::System

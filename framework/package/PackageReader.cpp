#include "framework/package/PackageReader.h"

#include "framework/package/PackageFormat.h"
#include "framework/package/PackageName.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

namespace KVX {

namespace {

uint32 readUInt32(const uint8* p)
{
    return uint32(p[0]) | uint32(p[1]) << 8 | uint32(p[2]) << 16 | uint32(p[3]) << 24;
}

uint64 readUInt64(const uint8* p)
{
    return uint64(readUInt32(p)) | uint64(readUInt32(p + 4)) << 32;
}

bool hasMagic(const uint8* p)
{
    return std::memcmp(p, PackageFormat::kMagic.data(), PackageFormat::kMagic.size()) == 0;
}

} // namespace

/// Reads records from the directory bytes, never past their end.
class PackageReader::DirectoryCursor
{
public:
    explicit DirectoryCursor(std::span<const uint8> bytes) : bytes_(bytes) {}

    uint64 remaining() const { return bytes_.size() - position_; }

    bool tag(std::string_view& tag)
    {
        if (remaining() < 4)
            return false;
        tag = std::string_view(reinterpret_cast<const char*>(bytes_.data() + position_), 4);
        position_ += 4;
        return true;
    }

    bool u8(uint8& value)
    {
        if (remaining() < 1)
            return false;
        value = bytes_[position_++];
        return true;
    }

    bool u16(std::uint16_t& value)
    {
        if (remaining() < 2)
            return false;
        value = static_cast<std::uint16_t>(bytes_[position_] | bytes_[position_ + 1] << 8);
        position_ += 2;
        return true;
    }

    bool u32(uint32& value)
    {
        if (remaining() < 4)
            return false;
        value = readUInt32(bytes_.data() + position_);
        position_ += 4;
        return true;
    }

    bool u64(uint64& value)
    {
        if (remaining() < 8)
            return false;
        value = readUInt64(bytes_.data() + position_);
        position_ += 8;
        return true;
    }

    /// A zero-terminated UTF-16LE name, at most the format's length.
    PackageError name(std::string& name)
    {
        std::u16string units;
        for (;;)
        {
            std::uint16_t unit = 0;
            if (!u16(unit))
                return PackageError::kBadDirectory;
            if (unit == 0)
                break;
            if (units.size() == PackageFormat::kMaxNameUnits)
                return PackageError::kBadName;
            units += static_cast<char16_t>(unit);
        }
        if (!PackageName::toUtf8(units, name) || !PackageName::isValid(name))
            return PackageError::kBadName;
        return PackageError::kNone;
    }

    bool time(PackageTime& time)
    {
        return u16(time.year) && u8(time.month) && u8(time.day) && u8(time.hour) && u8(time.minute) &&
               u8(time.second) && u16(time.milliseconds);
    }

private:
    std::span<const uint8> bytes_;
    uint64 position_ = 0;
};

bool PackageReader::fail(PackageError error)
{
    bytes_ = {};
    identifier_ = {};
    options_ = 0;
    entries_.clear();
    index_.clear();
    error_ = error;
    return false;
}

bool PackageReader::open(std::span<const uint8> bytes)
{
    fail(PackageError::kNone);
    bytes_ = bytes;
    uint64 directoryOffset = 0, directorySize = 0;
    if (!readTrailer(directoryOffset, directorySize))
        return false;

    DirectoryCursor cursor(bytes.subspan(directoryOffset, directorySize));
    std::string_view tag;
    uint32 flags = 0;
    if (!cursor.tag(tag) || tag != PackageFormat::kRootTag || !cursor.u32(flags))
        return fail(PackageError::kBadDirectory);
    if (flags != PackageFormat::kRootFlags)
        return fail(PackageError::kBadDirectory);
    if (!readChildren(cursor, std::string(), 0))
        return false;
    // The directory is exactly the root's tree: bytes after it mean a count was wrong.
    if (cursor.remaining() != 0)
        return fail(PackageError::kBadDirectory);
    return checkEntryPlacement(directoryOffset);
}

bool PackageReader::readTrailer(uint64& directoryOffset, uint64& directorySize)
{
    const uint64 size = bytes_.size();
    if (size < PackageFormat::kHeadSize + PackageFormat::kTrailerSize)
        return fail(PackageError::kTooSmall);
    const uint8* trailer = bytes_.data() + size - PackageFormat::kTrailerSize;
    if (!hasMagic(bytes_.data()) || !hasMagic(trailer + PackageFormat::kTrailerMagic))
        return fail(PackageError::kBadMagic);
    if (readUInt32(trailer + PackageFormat::kTrailerSizeField) != PackageFormat::kTrailerSize ||
        readUInt32(trailer + PackageFormat::kTrailerFormat) != PackageFormat::kFormatVersion)
        return fail(PackageError::kBadTrailer);
    // Encryption and the other options change how entries are stored; this reader knows none.
    options_ = readUInt32(trailer + PackageFormat::kTrailerOptions);
    if (options_ != 0)
        return fail(PackageError::kUnsupported);

    std::memcpy(identifier_.data(), trailer + PackageFormat::kTrailerIdentifier, identifier_.size());

    directoryOffset = readUInt64(trailer + PackageFormat::kTrailerDirectoryOffset);
    directorySize = readUInt64(trailer + PackageFormat::kTrailerDirectorySize);
    const uint64 directoryEnd = size - PackageFormat::kTrailerSize;
    // Written so that no sum can overflow: both values may be anything.
    if (directoryOffset < PackageFormat::kHeadSize || directoryOffset > directoryEnd ||
        directorySize > directoryEnd - directoryOffset)
        return fail(PackageError::kDirectoryOutside);
    return true;
}

bool PackageReader::readChildren(DirectoryCursor& cursor, const std::string& folder, uint32 depth)
{
    uint32 count = 0;
    if (!cursor.u32(count))
        return fail(PackageError::kBadDirectory);
    if (count > cursor.remaining() / PackageFormat::kSmallestChildRecord)
        return fail(PackageError::kTooManyChildren);

    for (uint32 i = 0; i < count; ++i)
    {
        std::string_view tag;
        uint32 flags = 0;
        if (!cursor.tag(tag) || !cursor.u32(flags))
            return fail(PackageError::kBadDirectory);
        const bool isFolder = tag == PackageFormat::kFolderTag;
        if (!isFolder && tag != PackageFormat::kFileTag)
            return fail(PackageError::kBadDirectory);

        PackageEntry entry;
        std::string name;
        if (const PackageError error = cursor.name(name); error != PackageError::kNone)
            return fail(error);
        entry.path = folder.empty() ? name : folder + "/" + name;
        entry.folder = isFolder;
        if (isFolder)
        {
            if (flags != PackageFormat::kFolderFlags)
                return fail(PackageError::kBadDirectory);
        }
        else
        {
            if ((flags & ~PackageFormat::kFileCompressed) != 0)
                return fail(PackageError::kUnsupported);
            entry.compressed = (flags & PackageFormat::kFileCompressed) != 0;
            if (!cursor.time(entry.modified) || !cursor.u64(entry.dataOffset) || !cursor.u64(entry.storedSize) ||
                !cursor.u64(entry.originalSize))
                return fail(PackageError::kBadDirectory);
            if (entry.originalSize > PackageFormat::kMaxEntrySize || entry.storedSize > PackageFormat::kMaxEntrySize)
                return fail(PackageError::kEntryTooLarge);
            if (entry.compressed ? entry.originalSize > entry.storedSize * PackageFormat::kMaxInflationRatio
                                 : entry.originalSize != entry.storedSize)
                return fail(PackageError::kEntryTooLarge);
        }

        if (!index_.emplace(entry.path, entries_.size()).second)
            return fail(PackageError::kDuplicateName);
        entries_.push_back(entry);

        // The children are read with the folder's own path: entries_ grows meanwhile, so no
        // reference into it would stay valid.
        if (isFolder)
        {
            if (depth + 1 >= PackageFormat::kMaxDepth)
                return fail(PackageError::kTooDeep);
            if (!readChildren(cursor, entry.path, depth + 1))
                return false;
        }
    }
    return true;
}

bool PackageReader::checkEntryPlacement(uint64 directoryOffset)
{
    std::vector<std::pair<uint64, uint64>> ranges;
    for (const PackageEntry& entry : entries_)
    {
        if (entry.folder)
            continue;
        if (entry.dataOffset < PackageFormat::kHeadSize || entry.dataOffset > directoryOffset ||
            entry.storedSize > directoryOffset - entry.dataOffset)
            return fail(PackageError::kEntryOutside);
        if (entry.storedSize > 0)
            ranges.emplace_back(entry.dataOffset, entry.dataOffset + entry.storedSize);
    }
    std::sort(ranges.begin(), ranges.end());
    for (size_t i = 1; i < ranges.size(); ++i)
        if (ranges[i].first < ranges[i - 1].second)
            return fail(PackageError::kEntriesOverlap);
    return true;
}

const PackageEntry* PackageReader::find(std::string_view path) const
{
    const auto found = index_.find(std::string(path));
    return found == index_.end() ? nullptr : &entries_[found->second];
}

bool PackageReader::extract(std::string_view path, std::vector<uint8>& data)
{
    data.clear();
    const PackageEntry* entry = find(path);
    if (!entry || entry->folder)
    {
        error_ = PackageError::kNotFound;
        return false;
    }
    return extract(*entry, data);
}

PackageError PackageReader::refusalOf(const PackageEntry& entry) const
{
    // The entry's offsets were checked against the bytes by open(); one from elsewhere is not
    // trusted.
    if (entry.folder || entry.dataOffset > bytes_.size() || entry.storedSize > bytes_.size() - entry.dataOffset)
        return PackageError::kNotFound;
    if (!entry.compressed)
        return entry.storedSize == entry.originalSize ? PackageError::kNone : PackageError::kSizeMismatch;
    if (entry.originalSize > PackageFormat::kMaxEntrySize || entry.storedSize > PackageFormat::kMaxEntrySize ||
        entry.originalSize > entry.storedSize * PackageFormat::kMaxInflationRatio)
        return PackageError::kEntryTooLarge;
    return PackageError::kNone;
}

bool PackageReader::extract(const PackageEntry& entry, std::vector<uint8>& data)
{
    data.clear();
    // Nothing is allocated for an entry that would be refused.
    if (const PackageError refusal = refusalOf(entry); refusal != PackageError::kNone)
    {
        error_ = refusal; // the reader stays open: only this entry is refused
        return false;
    }
    data.resize(entry.originalSize);
    if (extract(entry, std::span<uint8>(data)))
        return true;
    data.clear();
    data.shrink_to_fit();
    return false;
}

bool PackageReader::extract(const PackageEntry& entry, std::span<uint8> out)
{
    if (const PackageError refusal = refusalOf(entry); refusal != PackageError::kNone)
    {
        error_ = refusal; // the reader stays open: only this entry is refused
        return false;
    }
    if (out.size() != entry.originalSize)
    {
        error_ = PackageError::kSizeMismatch;
        return false;
    }
    const uint8* stored = bytes_.data() + entry.dataOffset;
    if (!entry.compressed)
    {
        if (!out.empty())
            std::memcpy(out.data(), stored, out.size());
        error_ = PackageError::kNone;
        return true;
    }

    z_stream stream{};
    if (inflateInit(&stream) != Z_OK)
    {
        error_ = PackageError::kBadData;
        return false;
    }
    stream.next_in = const_cast<Bytef*>(stored);
    stream.avail_in = static_cast<uInt>(entry.storedSize);
    // Once the declared size is filled, one spare byte tells a stream that would go on from one
    // that only has its checksum left. zlib refuses a null output pointer even for no bytes.
    uint8 spare = 0;
    bool intoSpare = false;
    stream.next_out = out.empty() ? &spare : out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    PackageError error = PackageError::kNone;
    for (;;)
    {
        const int result = inflate(&stream, Z_NO_FLUSH);
        if (result == Z_STREAM_END)
            break;
        if (result != Z_OK && result != Z_BUF_ERROR)
        {
            error = PackageError::kBadData;
            break;
        }
        if (stream.avail_out == 0)
        {
            if (intoSpare)
            {
                error = PackageError::kSizeMismatch;
                break;
            }
            intoSpare = true;
            stream.next_out = &spare;
            stream.avail_out = 1;
            continue;
        }
        if (stream.avail_in == 0 || result == Z_BUF_ERROR)
        {
            error = PackageError::kBadData; // the stream ends before its end
            break;
        }
    }
    if (error == PackageError::kNone)
    {
        if (intoSpare && stream.avail_out == 0)
            error = PackageError::kSizeMismatch;
        else if (stream.total_out != entry.originalSize)
            error = PackageError::kSizeMismatch;
        else if (stream.avail_in != 0)
            error = PackageError::kBadData; // bytes after the stream
    }
    inflateEnd(&stream);
    error_ = error;
    return error == PackageError::kNone;
}

} // namespace KVX

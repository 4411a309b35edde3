#include "framework/package/PackageWriter.h"

#include "framework/package/PackageFormat.h"
#include "framework/package/PackageName.h"

#include <zlib.h>

namespace KVX {

struct PackageWriter::Node
{
    std::string name;
    bool folder = true;
    std::vector<std::unique_ptr<Node>> children;
    std::vector<uint8> data;
    PackageTime modified;
    bool compress = false;

    Node* child(std::string_view childName) const
    {
        for (const auto& node : children)
            if (node->name == childName)
                return node.get();
        return nullptr;
    }
};

namespace {

void appendUInt16(std::vector<uint8>& out, std::uint16_t value)
{
    out.push_back(static_cast<uint8>(value));
    out.push_back(static_cast<uint8>(value >> 8));
}

void appendUInt32(std::vector<uint8>& out, uint32 value)
{
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<uint8>(value >> shift));
}

void appendUInt64(std::vector<uint8>& out, uint64 value)
{
    for (int shift = 0; shift < 64; shift += 8)
        out.push_back(static_cast<uint8>(value >> shift));
}

void appendText(std::vector<uint8>& out, std::string_view text)
{
    out.insert(out.end(), text.begin(), text.end());
}

// Names were checked when they were added, so the conversion cannot fail here.
void appendName(std::vector<uint8>& out, const std::string& name)
{
    std::u16string units;
    PackageName::toUtf16(name, units);
    for (char16_t unit : units)
        appendUInt16(out, unit);
    appendUInt16(out, 0);
}

bool deflateAll(std::span<const uint8> data, std::vector<uint8>& stored)
{
    uLongf size = compressBound(static_cast<uLong>(data.size()));
    stored.resize(size);
    if (compress2(stored.data(), &size, data.data(), static_cast<uLong>(data.size()), Z_BEST_COMPRESSION) != Z_OK)
        return false;
    stored.resize(size);
    return true;
}

// Splits "a/b/c" into its names; false when one of them is malformed.
bool splitPath(std::string_view path, std::vector<std::string_view>& names)
{
    names.clear();
    while (true)
    {
        const size_t slash = path.find('/');
        const std::string_view name = path.substr(0, slash);
        if (!PackageName::isValid(name))
            return false;
        names.push_back(name);
        if (slash == std::string_view::npos)
            return true;
        path.remove_prefix(slash + 1);
    }
}

} // namespace

PackageWriter::PackageWriter() : root_(std::make_unique<Node>()) {}

PackageWriter::~PackageWriter() = default;

PackageWriter::Node* PackageWriter::folderAt(std::string_view path)
{
    std::vector<std::string_view> names;
    if (!splitPath(path, names))
        return nullptr;
    Node* folder = root_.get();
    for (std::string_view name : names)
    {
        Node* next = folder->child(name);
        if (!next)
        {
            auto node = std::make_unique<Node>();
            node->name = name;
            next = node.get();
            folder->children.push_back(std::move(node));
        }
        if (!next->folder)
            return nullptr;
        folder = next;
    }
    return folder;
}

bool PackageWriter::addFolder(std::string_view path)
{
    return folderAt(path) != nullptr;
}

bool PackageWriter::addFile(std::string_view path, std::span<const uint8> data, const PackageTime& modified,
                            bool compress)
{
    const size_t slash = path.rfind('/');
    const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    if (!PackageName::isValid(name) || data.size() > PackageFormat::kMaxEntrySize)
        return false;
    Node* folder = slash == std::string_view::npos ? root_.get() : folderAt(path.substr(0, slash));
    if (!folder || folder->child(name))
        return false;
    auto node = std::make_unique<Node>();
    node->name = name;
    node->folder = false;
    node->data.assign(data.begin(), data.end());
    node->modified = modified;
    node->compress = compress;
    folder->children.push_back(std::move(node));
    return true;
}

bool PackageWriter::write(std::vector<uint8>& package) const
{
    package.clear();
    appendText(package, PackageFormat::kMagic);

    // Stored bytes first, in the depth-first order in which the directory lists the files; the
    // directory is then written in the same walk order with the offsets found here.
    std::vector<uint8> directory;
    appendText(directory, PackageFormat::kRootTag);
    appendUInt32(directory, PackageFormat::kRootFlags);
    appendUInt32(directory, static_cast<uint32>(root_->children.size()));

    std::vector<uint8> stored;
    auto walk = [&](auto& self, const Node& folder) -> bool {
        for (const auto& node : folder.children)
        {
            if (node->folder)
            {
                appendText(directory, PackageFormat::kFolderTag);
                appendUInt32(directory, PackageFormat::kFolderFlags);
                appendName(directory, node->name);
                appendUInt32(directory, static_cast<uint32>(node->children.size()));
                if (!self(self, *node))
                    return false;
                continue;
            }
            std::span<const uint8> bytes = node->data;
            if (node->compress)
            {
                if (!deflateAll(node->data, stored))
                    return false;
                bytes = stored;
            }
            const uint64 offset = package.size();
            package.insert(package.end(), bytes.begin(), bytes.end());

            appendText(directory, PackageFormat::kFileTag);
            appendUInt32(directory, node->compress ? PackageFormat::kFileCompressed : 0);
            appendName(directory, node->name);
            const PackageTime& time = node->modified;
            appendUInt16(directory, time.year);
            for (uint8 part : {time.month, time.day, time.hour, time.minute, time.second})
                directory.push_back(part);
            appendUInt16(directory, time.milliseconds);
            appendUInt64(directory, offset);
            appendUInt64(directory, bytes.size());
            appendUInt64(directory, node->data.size());
        }
        return true;
    };
    if (!walk(walk, *root_))
    {
        package.clear();
        return false;
    }

    const uint64 directoryOffset = package.size();
    package.insert(package.end(), directory.begin(), directory.end());

    appendUInt64(package, directoryOffset);
    appendUInt64(package, directory.size());
    package.insert(package.end(), 12, 0);
    package.insert(package.end(), identifier_.begin(), identifier_.end());
    appendUInt32(package, 0);
    appendUInt32(package, PackageFormat::kFormatVersion);
    appendUInt32(package, static_cast<uint32>(PackageFormat::kTrailerSize));
    appendText(package, PackageFormat::kMagic);
    return true;
}

} // namespace KVX

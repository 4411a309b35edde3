// sorvel-pack: packs folders into a package file, or lists a package's entries.
//
//   sorvel-pack [--identifier {GUID}] OUTPUT FOLDER...
//   sorvel-pack --list PACKAGE
//
// The folders' contents are merged into the package's root. Within each folder the package
// lists the subfolders first, then the files, each in byte order of their names, so that the
// same folders always give the same directory. Files are stored compressed. Hidden files (a
// name starting with ".") are left out. Modification times are the files' own, or
// SOURCE_DATE_EPOCH when it is set, for reproducible builds.
#include "framework/core/UID.h"
#include "framework/package/PackageError.h"
#include "framework/package/PackageReader.h"
#include "framework/package/PackageWriter.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;
using namespace KVX;

namespace {

struct Folder
{
    std::map<std::string, Folder> folders;
    std::map<std::string, fs::path> files;
};

bool readFile(const fs::path& path, std::vector<uint8>& bytes)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

bool writeFile(const fs::path& path, const std::vector<uint8>& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out.flush());
}

// Merges the tree at `source` into `folder`; false (with a message) when two sources give the
// same path or a folder cannot be read.
bool collect(const fs::path& source, Folder& folder, const std::string& prefix)
{
    std::error_code error;
    for (fs::directory_iterator it(source, error), end; !error && it != end; it.increment(error))
    {
        const std::string name = it->path().filename().string();
        if (name.starts_with("."))
            continue;
        const std::string path = prefix.empty() ? name : prefix + "/" + name;
        if (it->is_directory())
        {
            if (folder.files.count(name))
            {
                std::fprintf(stderr, "sorvel-pack: %s is a file in one folder and a folder in another\n", path.c_str());
                return false;
            }
            if (!collect(it->path(), folder.folders[name], path))
                return false;
        }
        else if (it->is_regular_file())
        {
            if (folder.folders.count(name) || !folder.files.emplace(name, it->path()).second)
            {
                std::fprintf(stderr, "sorvel-pack: %s is given twice\n", path.c_str());
                return false;
            }
        }
    }
    if (error)
    {
        std::fprintf(stderr, "sorvel-pack: cannot read %s: %s\n", source.c_str(), error.message().c_str());
        return false;
    }
    return true;
}

PackageTime toPackageTime(std::time_t seconds)
{
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    PackageTime time;
    time.year = static_cast<std::uint16_t>(utc.tm_year + 1900);
    time.month = static_cast<uint8>(utc.tm_mon + 1);
    time.day = static_cast<uint8>(utc.tm_mday);
    time.hour = static_cast<uint8>(utc.tm_hour);
    time.minute = static_cast<uint8>(utc.tm_min);
    time.second = static_cast<uint8>(utc.tm_sec);
    return time;
}

std::optional<std::time_t> sourceDateEpoch()
{
    const char* text = std::getenv("SOURCE_DATE_EPOCH");
    if (!text || !*text)
        return std::nullopt;
    char* end = nullptr;
    const long long value = std::strtoll(text, &end, 10);
    if (*end != '\0' || value < 0)
        return std::nullopt;
    return static_cast<std::time_t>(value);
}

bool add(PackageWriter& writer, const Folder& folder, const std::string& prefix, std::optional<std::time_t> fixedTime)
{
    for (const auto& [name, child] : folder.folders)
    {
        const std::string path = prefix.empty() ? name : prefix + "/" + name;
        if (!writer.addFolder(path) || !add(writer, child, path, fixedTime))
        {
            std::fprintf(stderr, "sorvel-pack: cannot add the folder %s\n", path.c_str());
            return false;
        }
    }
    for (const auto& [name, source] : folder.files)
    {
        const std::string path = prefix.empty() ? name : prefix + "/" + name;
        std::vector<uint8> bytes;
        if (!readFile(source, bytes))
        {
            std::fprintf(stderr, "sorvel-pack: cannot read %s\n", source.c_str());
            return false;
        }
        std::time_t modified = 0;
        if (fixedTime)
            modified = *fixedTime;
        else
        {
            std::error_code error;
            const auto written = fs::last_write_time(source, error);
            if (!error)
                modified = std::chrono::system_clock::to_time_t(std::chrono::file_clock::to_sys(written));
        }
        if (!writer.addFile(path, bytes, toPackageTime(modified)))
        {
            std::fprintf(stderr, "sorvel-pack: cannot add %s (name or size not allowed)\n", path.c_str());
            return false;
        }
    }
    return true;
}

int list(const char* packagePath)
{
    std::vector<uint8> bytes;
    if (!readFile(packagePath, bytes))
    {
        std::fprintf(stderr, "sorvel-pack: cannot read %s\n", packagePath);
        return 1;
    }
    PackageReader reader;
    if (!reader.open(bytes))
    {
        std::fprintf(stderr, "sorvel-pack: %s: %s\n", packagePath, describe(reader.error()));
        return 1;
    }
    int status = 0;
    for (const PackageEntry& entry : reader.entries())
    {
        if (entry.folder)
        {
            std::printf("%s/\n", entry.path.c_str());
            continue;
        }
        std::vector<uint8> data;
        const bool intact = reader.extract(entry, data);
        std::printf("%s\t%llu\t%llu%s\n", entry.path.c_str(), static_cast<unsigned long long>(entry.storedSize),
                    static_cast<unsigned long long>(entry.originalSize), intact ? "" : "\tdamaged");
        if (!intact)
            status = 1;
    }
    return status;
}

int usage()
{
    std::fprintf(stderr, "usage: sorvel-pack [--identifier {GUID}] OUTPUT FOLDER...\n"
                         "       sorvel-pack --list PACKAGE\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 2 && arguments[0] == "--list")
        return list(arguments[1].c_str());

    PackageWriter writer;
    if (arguments.size() >= 2 && arguments[0] == "--identifier")
    {
        UID identifier;
        if (!UID::parse(arguments[1], identifier))
        {
            std::fprintf(stderr, "sorvel-pack: %s is not a GUID\n", arguments[1].c_str());
            return 2;
        }
        writer.setIdentifier(identifier.bytes());
        arguments.erase(arguments.begin(), arguments.begin() + 2);
    }
    if (arguments.size() < 2)
        return usage();

    Folder root;
    for (size_t i = 1; i < arguments.size(); ++i)
        if (!collect(arguments[i], root, std::string()))
            return 1;
    std::vector<uint8> package;
    if (!add(writer, root, std::string(), sourceDateEpoch()) || !writer.write(package))
        return 1;
    const fs::path output = arguments[0];
    const fs::path partial = output.string() + ".partial";
    std::error_code error;
    if (!writeFile(partial, package) || (fs::rename(partial, output, error), error))
    {
        std::fprintf(stderr, "sorvel-pack: cannot write %s\n", output.c_str());
        fs::remove(partial, error);
        return 1;
    }
    return 0;
}

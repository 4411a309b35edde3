#include "host/app/Rendering.h"
#include "host/app/Complaint.h"

#include "host/app/Runtime.h"
#include "host/render/BatchRenderer.h"

#include "framework/data/Url.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sndfile.h>
#include <sstream>
#include <unistd.h>

namespace Host {

using namespace KVX;
namespace fs = std::filesystem;

namespace {

/// A process as "<pid>.<start time>": the start time tells it from a later one of the same pid.
/// Run folders carry the mark of the process that made them in their name ("run-<mark>-XXXXXX").
std::string processMark(pid_t pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), {});
    const size_t name = text.rfind(')'); // the command name may hold spaces
    if (name == std::string::npos)
        return std::to_string(pid);
    std::istringstream fields(text.substr(name + 1));
    std::string field;
    for (int i = 0; i < 20 && fields >> field; ++i) // the 20th after the name is the start time
        ;
    return std::to_string(pid) + "." + field;
}

/// Whether the process that made `folder` still runs: its files may be listed in a gadget or
/// on their way to the service.
bool stillInUse(const fs::path& folder)
{
    const std::string name = folder.filename().string(); // run-<pid>.<start>-XXXXXX
    const size_t end = name.rfind('-');
    if (end == std::string::npos || end <= 4)
        return false;
    const std::string mark = name.substr(4, end - 4);
    const long pid = std::strtol(mark.c_str(), nullptr, 10);
    return pid > 0 && processMark(static_cast<pid_t>(pid)) == mark;
}

/// Removes the folders of earlier runs that were kept for another try (a failed upload keeps
/// its rendered files) once they are a week old, and all but the newest few whatever their age,
/// so that the cache does not grow without end. A folder of a process that still runs is left
/// alone, however many there are.
void pruneKeptFolders(const fs::path& parent)
{
    constexpr size_t kKeep = 5;
    constexpr auto kWeek = std::chrono::hours(24 * 7);
    std::error_code failure;
    std::vector<std::pair<fs::file_time_type, fs::path>> kept;
    for (const fs::directory_entry& entry : fs::directory_iterator(parent, failure))
        if (entry.is_directory(failure) && entry.path().filename().string().rfind("run-", 0) == 0 &&
            !stillInUse(entry.path()))
            kept.emplace_back(entry.last_write_time(failure), entry.path());
    std::sort(kept.begin(), kept.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    const auto now = fs::file_time_type::clock::now();
    for (size_t i = 0; i < kept.size(); ++i)
        if (i >= kKeep || now - kept[i].first > kWeek)
            fs::remove_all(kept[i].second, failure);
}

} // namespace

fs::path makeCacheFolder(const char* kind, std::string& error)
{
    fs::path cache;
    if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg && *xdg)
        cache = xdg;
    else if (const char* home = std::getenv("HOME"); home && *home)
        cache = fs::path(home) / ".cache";
    else
        cache = fs::temp_directory_path();
    const fs::path parent = cache / "sorvel" / kind;
    std::error_code failure;
    fs::create_directories(parent, failure);
    if (!failure)
        pruneKeptFolders(parent);
    std::string pattern = (parent / ("run-" + processMark(::getpid()) + "-XXXXXX")).string();
    if (failure || !::mkdtemp(pattern.data())) // mkdtemp makes it 0700
    {
        error = "cannot create a folder in " + parent.string();
        return {};
    }
    return pattern;
}

void RenderedBatch::removeFolder() const
{
    std::error_code ignored;
    if (!folder.empty())
        fs::remove_all(folder, ignored);
}

std::string RenderedBatch::File::trackName() const
{
    const std::string title = metadata.getString("Media:Title").toUtf8();
    return title.empty() ? output.stem().string() : title;
}

int renderBatch(Engine::IPublisher& publisher, const std::vector<SourceFile>& sources,
                const std::map<std::string, std::vector<std::string>>& fields, const std::string& product, bool quiet,
                unsigned jobs, RenderedBatch& batch)
{
    std::string error;
    batch.folder = makeCacheFolder("render", error);
    if (batch.folder.empty())
    {
        complain("%s\n", error.c_str());
        return kServiceFailed;
    }
    // The publisher is asked on this thread; the files are then rendered side by side.
    std::vector<BatchRenderer::Task> tasks;
    batch.files.clear();
    for (size_t i = 0; i < sources.size(); ++i)
    {
        const SourceFile& source = sources[i];
        FileType type = source.fileType;
        AudioFormat format = source.format;
        publisher.checkFormat(type, format); // corrects both to what the target takes
        // A folder per file: two sources of one name (from two folders, or a WAV and a FLAC of
        // one take) never meet in one rendered file, and each keeps its name for the service.
        char row[24];
        std::snprintf(row, sizeof row, "%03zu", i + 1);
        // The rendered file's name is valid UTF-8, as the address it is handed over by must be:
        // bytes of an old encoding in the source's name become U+FFFD.
        const fs::path output = batch.folder / row / (String::fromUtf8(source.path.stem().string()).toUtf8() + ".wav");
        std::error_code made;
        if (fs::create_directory(batch.folder / row, made); made)
        {
            batch.removeFolder();
            complain("cannot create a folder in %s: %s", batch.folder.c_str(), made.message().c_str());
            return kServiceFailed;
        }
        tasks.push_back({source.path, output, format});

        RenderedBatch::File file{source.path, output, source.metadata, {}};
        for (const auto& [key, values] : fields)
            if (!values.empty())
                file.metadata.set(key, String(values.size() == 1 ? values[0] : values[i]));
        if (!product.empty())
            file.metadata.set("Media:Album", String(product));
        batch.files.push_back(std::move(file));
    }
    const auto started = std::chrono::steady_clock::now();
    const BatchRenderer::Outcome rendered = BatchRenderer::render(
        tasks, jobs ? jobs : BatchRenderer::defaultWorkers(), &gInterrupted,
        [&](size_t task, BatchRenderer::Event event) {
            if (quiet)
                return;
            const std::string name = tasks[task].source.filename().string();
            if (event == BatchRenderer::Event::Started)
                std::fprintf(stderr, "Rendering %s\n", name.c_str());
            else
                std::fprintf(stderr, "Rendered %s (%.1f s)\n", name.c_str(),
                             std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
        });
    if (!rendered.ok)
    {
        batch.removeFolder();
        if (rendered.interrupted)
            return kInterrupted;
        batch.unusable = tasks[rendered.failedTask].source;
        complain("%s: %s\n", batch.unusable.c_str(), rendered.error.c_str());
        return kUsage;
    }
    for (size_t i = 0; i < batch.files.size(); ++i)
        batch.files[i].report = rendered.reports[i];
    return kDone;
}

std::string describeRendered(const std::filesystem::path& output)
{
    SF_INFO info{};
    SNDFILE* file = sf_open(output.c_str(), SFM_READ, &info);
    if (!file)
        return "WAV";
    sf_close(file);
    std::string bits;
    switch (info.format & SF_FORMAT_SUBMASK)
    {
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_S8:
        bits = " 8-bit";
        break;
    case SF_FORMAT_PCM_16:
        bits = " 16-bit";
        break;
    case SF_FORMAT_PCM_24:
        bits = " 24-bit";
        break;
    case SF_FORMAT_PCM_32:
        bits = " 32-bit";
        break;
    case SF_FORMAT_FLOAT:
        bits = " 32-bit float";
        break;
    case SF_FORMAT_DOUBLE:
        bits = " 64-bit float";
        break;
    default:
        break;
    }
    const std::string channels = info.channels == 1   ? "mono"
                                 : info.channels == 2 ? "stereo"
                                                      : std::to_string(info.channels) + " channels";
    return "WAV " + std::to_string(info.samplerate) + " Hz" + bits + " " + channels;
}

int handOver(Engine::IPublisher& publisher, RenderedBatch& batch, const std::vector<bool>& leaveOut)
{
    // Handed over in the order the user gave.
    batch.items = makeRef<PublishedItemContainer>();
    for (size_t i = 0; i < batch.files.size(); ++i)
        if (i >= leaveOut.size() || !leaveOut[i])
            batch.items->add(makeRef<PublishedItem>(
                Url::fromNativePath(String(batch.files[i].output.string())).toDisplayString().toUtf8(),
                Attributes(batch.files[i].metadata)));
    if (publisher.publish(batch.items) != kResultOk)
    {
        batch.removeFolder();
        complain("the publishing target did not take the files\n");
        return kServiceFailed;
    }
    return kDone;
}

int renderAndPublish(Engine::IPublisher& publisher, const std::vector<SourceFile>& sources,
                     const std::map<std::string, std::vector<std::string>>& fields, const std::string& product,
                     bool quiet, unsigned jobs, RenderedBatch& batch)
{
    if (int code = renderBatch(publisher, sources, fields, product, quiet, jobs, batch); code != kDone)
        return code;
    return handOver(publisher, batch, {});
}

} // namespace Host

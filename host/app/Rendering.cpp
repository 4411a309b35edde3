#include "host/app/Rendering.h"

#include "host/app/Runtime.h"
#include "host/render/BatchRenderer.h"

#include "framework/data/Url.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace Host {

using namespace KVX;
namespace fs = std::filesystem;

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
    std::string pattern = (parent / "run-XXXXXX").string();
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
        std::fprintf(stderr, "sorvel: %s\n", error.c_str());
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
        const fs::path output = batch.folder / (source.path.stem().string() + ".wav");
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
        std::fprintf(stderr, "sorvel: %s: %s\n", tasks[rendered.failedTask].source.c_str(), rendered.error.c_str());
        return kUsage;
    }
    for (size_t i = 0; i < batch.files.size(); ++i)
        batch.files[i].report = rendered.reports[i];
    return kDone;
}

int renderAndPublish(Engine::IPublisher& publisher, const std::vector<SourceFile>& sources,
                     const std::map<std::string, std::vector<std::string>>& fields, const std::string& product,
                     bool quiet, unsigned jobs, RenderedBatch& batch)
{
    if (int code = renderBatch(publisher, sources, fields, product, quiet, jobs, batch); code != kDone)
        return code;
    // Handed over in the order the user gave.
    batch.items = makeRef<PublishedItemContainer>();
    for (const RenderedBatch::File& file : batch.files)
        batch.items->add(
            makeRef<PublishedItem>(Url::fromNativePath(String(file.output.string())).toDisplayString().toUtf8(),
                                   Attributes(file.metadata)));
    if (publisher.publish(batch.items) != kResultOk)
    {
        batch.removeFolder();
        std::fprintf(stderr, "sorvel: the publishing target did not take the files\n");
        return kServiceFailed;
    }
    return kDone;
}

} // namespace Host

#include "host/app/Commands.h"
#include "host/app/Complaint.h"
#include "host/app/Preflight.h"
#include "host/app/Rendering.h"

#include "framework/data/Json.h"
#include "framework/interfaces/IPublisher.h"

#include <cstdio>

namespace Host {

using namespace KVX;

int checkFiles(const CheckOptions& options)
{
    if (int code = checkFieldValues(options.fields, nullptr); code != kDone)
        return code;
    std::vector<SourceFile> sources;
    if (int code = openSourceFiles(options.files, options.fields, sources); code != kDone)
        return code;
    Runtime runtime;
    if (int code = runtime.startOffline(); code != kDone)
        return code;
    const Ref<Engine::IPublisher> publisher = runtime.createPublisher();
    if (!publisher)
        return kServiceFailed;

    // Rendered as for an upload, so the figures are those of the files the service would get.
    RenderedBatch batch;
    if (int code = renderBatch(*publisher, sources, options.fields, {}, options.json, options.jobs, batch); code != kDone)
        return code;
    batch.removeFolder();
    const PreflightReport report = preflightOfBatch(batch, runtime.preflightLimits());
    const PreflightReport::Severity worst = report.worst();

    if (options.json)
    {
        JsonOutput json;
        checkDocument(json, batch, report);
        json.print();
    }
    else
        printPreflight(batch, report, stdout);

    const bool failed = worst == PreflightReport::Severity::Error ||
                        (options.strict && worst == PreflightReport::Severity::Warning);
    return failed ? kPreflightFailed : kDone;
}

} // namespace Host

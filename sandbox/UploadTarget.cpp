#include "UploadTarget.h"

#include "MultipartParser.h"
#include "Refusal.h"
#include "UploadFile.h"
#include "UploadForm.h"

namespace SorvelSandbox
{

namespace
{

uint64_t drain(const httplib::ContentReader& reader)
{
    uint64_t bytes = 0;
    reader([&bytes](const char*, size_t length) {
        bytes += length;
        return true;
    });
    return bytes;
}

} // namespace

UploadTarget::Outcome UploadTarget::receive(std::string_view slotId, const std::string& contentType,
                                            const httplib::ContentReader& reader, uint64_t dropAfter,
                                            const std::function<void(uint64_t received)>& drop,
                                            std::optional<int> forcedStatus)
{
    Outcome outcome;
    Service::UploadClaim claim;
    try
    {
        claim = service.claimUpload(slotId);
    }
    catch (const Refusal& refusal)
    {
        outcome.bodyBytes = drain(reader);
        outcome.httpStatus = refusal.status;
        outcome.message = refusal.message;
        return outcome;
    }
    // Every way out below but a completed upload leaves the URL open for another try.
    struct Release
    {
        Service& service;
        std::string_view slotId;
        bool keep = true;
        ~Release()
        {
            if (keep)
                service.releaseUpload(slotId);
        }
    } release{service, slotId};

    auto refuse = [&outcome](int status, std::string message) {
        outcome.httpStatus = status;
        outcome.message = std::move(message);
        return outcome;
    };

    std::string boundary, error;
    if (!MultipartParser::boundaryFromContentType(contentType, boundary, error))
    {
        outcome.bodyBytes = drain(reader);
        return refuse(400, error);
    }
    std::string uploadId;
    const std::filesystem::path path = service.newUploadPath(uploadId);
    std::unique_ptr<UploadFile> file = UploadFile::create(path, error, discardBytes);
    if (!file)
    {
        outcome.bodyBytes = drain(reader);
        return refuse(507, error);
    }

    UploadForm form(claim.fields, *file);
    MultipartParser parser(boundary, form);
    bool dropped = false;
    const bool complete = reader([&](const char* data, size_t length) {
        outcome.bodyBytes += length;
        if (dropAfter > 0 && outcome.bodyBytes >= dropAfter)
        {
            drop(outcome.bodyBytes);
            dropped = true;
            return false;
        }
        // After a refusal the rest of the body is only read, not parsed.
        if (!parser.failed())
            parser.feed(data, length);
        return true;
    });
    if (dropped)
        return refuse(0, "the connection was dropped after " + std::to_string(outcome.bodyBytes) + " bytes");
    if (!complete)
        return refuse(400, "the body ended early, after " + std::to_string(outcome.bodyBytes) + " bytes");
    if (!parser.finish())
        return refuse(400, parser.error());
    if (!form.complete(error))
        return refuse(400, error);
    if (forcedStatus && (*forcedStatus < 200 || *forcedStatus >= 400))
        return refuse(*forcedStatus, "the upload was refused on request (injected HTTP status)");
    if (!file->commit(error))
        return refuse(507, error);
    try
    {
        outcome.stored = service.completeUpload(claim, uploadId, *file, form.fileName());
    }
    catch (const Refusal& refusal)
    {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
        return refuse(refusal.status, refusal.message);
    }
    release.keep = false;
    outcome.httpStatus = forcedStatus.value_or(201);
    outcome.message = "stored " + std::to_string(outcome.stored->size) + " bytes, sha256 " + outcome.stored->sha256;
    return outcome;
}

} // namespace SorvelSandbox

#pragma once

#include "Catalogue.h"
#include "Service.h"

#include <httplib.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace SorvelSandbox
{

// Receives one POST to a one-time upload URL. The body streams through cpp-httplib's content
// reader into the strict multipart parser and from there to disk, piece by piece, so memory stays
// flat however large the file is. A refused body is still read to its end, so that the client can
// read the reply instead of meeting a reset connection.
class UploadTarget
{
public:
    struct Outcome
    {
        int httpStatus = 0;        // 0 when the connection was dropped or broke
        std::string message;       // the reply text, or why the upload was refused
        uint64_t bodyBytes = 0;
        std::optional<StoredFile> stored;
    };

    // With `discardBytes` a received file is counted and checked as usual but not stored.
    UploadTarget(Service& service, bool discardBytes) : service(service), discardBytes(discardBytes) {}

    // `dropAfter` above 0 makes it stop reading once that many body bytes have arrived and call
    // `drop` with the number received. `forcedStatus` replaces the reply's HTTP status: with 200
    // to 399 the upload is kept as usual, with any other status the body is checked and then
    // thrown away, leaving the URL open.
    Outcome receive(std::string_view slotId, const std::string& contentType, const httplib::ContentReader& reader,
                    uint64_t dropAfter, const std::function<void(uint64_t received)>& drop,
                    std::optional<int> forcedStatus);

private:
    Service& service;
    bool discardBytes;
};

} // namespace SorvelSandbox

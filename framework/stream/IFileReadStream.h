#pragma once

#include "framework/stream/IStream.h"

namespace KVX {

/// A file opened for reading by the host's file system. It can seek anywhere within the file
/// (seeking to the end gives the file size) and refuses writes with -1. Reads fail with -1 when
/// the file cannot be read any more (a removed disk, an I/O error).
class IFileReadStream : public IStream
{
public:
    static constexpr UID kIID = UID::fromString("{5B7D0E84-1C2A-4F39-8E6D-93A4B0C7D215}");
};

} // namespace KVX

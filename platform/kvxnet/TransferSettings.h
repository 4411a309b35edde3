#pragma once

#include "framework/text/CString.h"

#include <cstdint>

namespace KVX::Net {

/// What every call of the web service shares: trust and time-outs. Copied into each call when it
/// is opened, so that a change never reaches a transfer under way.
struct TransferSettings
{
    CString certificateAuthorityFile;
    uint32_t connectTimeoutMs = 15000;
    uint32_t stallTimeoutMs = 30000;
    /// Measured with bench/net: from 64 KiB to 1 MiB the throughput on loopback stays the same
    /// within noise; this size leaves room for faster sinks at little memory.
    long uploadBufferSize = 512 * 1024;
    /// A reply larger than this fails the call: replies are small documents, and a hostile server
    /// must not make the host buffer without end.
    int64_t maxResponseBytes = 64 * 1024 * 1024;
};

} // namespace KVX::Net

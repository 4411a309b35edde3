#pragma once

#include "framework/text/CString.h"

namespace KVX {

/// The module's version record.
struct VersionRecord
{
    CString title;
    CString version;
    CString vendor;
    CString legalNotice;
    CString website;
};

} // namespace KVX

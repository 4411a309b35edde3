#pragma once

#include "framework/core/Object.h"
#include "framework/services/IFileSystem.h"

namespace KVX::System {

/// IFileSystem on POSIX calls. Its only state is each thread's last error text.
class FileSystem : public Object, public IFileSystem
{
    KVX_DECLARE_CLASS(FileSystem, Object)
public:
    tresult openReadStream(const char* url, IFileReadStream** stream) override;
    const char* getLastErrorText() override;
    KVX_FORWARD_UNKNOWN(Object)
};

} // namespace KVX::System

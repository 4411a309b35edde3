#pragma once

#include "framework/core/Object.h"
#include "framework/services/IFileTypeRegistry.h"

#include <mutex>
#include <vector>

namespace KVX::System {

/// IFileTypeRegistry as a list of records under one mutex, filled with the common audio types
/// on construction.
class FileTypeRegistry : public Object, public IFileTypeRegistry
{
    KVX_DECLARE_CLASS(FileTypeRegistry, Object)
public:
    FileTypeRegistry();

    tresult getFileTypeByExtension(const char* extension, FileType& type) override;
    tresult registerFileType(const FileType& type) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    std::mutex mutex_;
    std::vector<FileType> types_;
};

} // namespace KVX::System

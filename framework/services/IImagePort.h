#pragma once

#include "framework/core/IUnknown.h"
#include "framework/interfaces/IGraphicsPort.h"

namespace KVX {

/// A graphics port that draws into a picture in memory, for programs that write what a view
/// shows to a file (and for tests that look at the pixels). User-interface thread.
class IImagePort : public IGraphicsPort
{
public:
    virtual int32 getWidth() = 0;
    virtual int32 getHeight() = 0;
    /// The colour of the pixel at (`x`, `y`) as 0xRRGGBBAA. kInvalidArgument outside the picture.
    virtual tresult readPixel(int32 x, int32 y, uint32& rgba) = 0;
    /// Writes the picture as a PNG file to `path` (UTF-8), replacing the file. kInvalidArgument
    /// for a null path; kUnexpected when the file cannot be written.
    virtual tresult writePng(const char* path) = 0;

    static constexpr UID kIID = UID::fromString("{54C9E2A7-3B18-4D6F-8A90-E1F7B3D5C268}");
};

} // namespace KVX

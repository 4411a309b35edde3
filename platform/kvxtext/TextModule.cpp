#include "framework/core/Ref.h"
#include "framework/data/Variant.h"
#include "framework/services/TextServices.h"
#include "platform/kvxtext/HexTransformer.h"
#include "platform/kvxtext/JsonReader.h"
#include "platform/kvxtext/JsonWriter.h"

using namespace KVX;

// No exception may leave the module: running out of memory while building a tree or a text is
// reported as an unexpected failure.

tresult JsonParse(const void* data, uint64 length, Variant* result)
{
    if (!result)
        return kInvalidArgument;
    try
    {
        return Text::JsonReader::parse(data, length, *result);
    }
    catch (...)
    {
        return kUnexpected;
    }
}

tresult JsonStringify(const Variant* value, IStream* out)
{
    if (!value || !out)
        return kInvalidArgument;
    try
    {
        return Text::JsonWriter::write(*value, *out);
    }
    catch (...)
    {
        return kUnexpected;
    }
}

IDataTransformer* CreateDataTransformer(uint32 kind)
{
    try
    {
        if (kind == IDataTransformer::kHexEncode)
            return makeRef<Text::HexTransformer>().detach();
    }
    catch (...)
    {
    }
    return nullptr;
}

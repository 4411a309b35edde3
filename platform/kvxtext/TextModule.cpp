#include "framework/core/Ref.h"
#include "framework/services/TextServices.h"
#include "platform/kvxtext/HexTransformer.h"
#include "platform/kvxtext/JsonReader.h"
#include "platform/kvxtext/JsonWriter.h"

using namespace KVX;

// No exception may leave the module: running out of memory while reading or writing is reported
// as an unexpected failure.

tresult JsonParse(const void* data, uint64 length, IJsonHandler* handler)
{
    if (!handler)
        return kInvalidArgument;
    try
    {
        return Text::JsonReader::parse(data, length, *handler);
    }
    catch (...)
    {
        return kUnexpected;
    }
}

IJsonWriter* CreateJsonWriter(IStream* out)
{
    if (!out)
        return nullptr;
    try
    {
        return makeRef<Text::JsonWriter>(*out).detach();
    }
    catch (...)
    {
        return nullptr;
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

// Feeds the input to the service emulator's multipart reader, as the body of a file post, once
// whole and once in two pieces split where the first byte says: both must end the same way.
#include "sandbox/MultipartParser.h"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

class Counter : public SorvelSandbox::MultipartParser::Listener
{
public:
    bool partBegin(const std::vector<SorvelSandbox::MultipartParser::Header>& headers, std::string&) override
    {
        ++parts;
        bytes += headers.size();
        return true;
    }
    bool partData(const char*, size_t length, std::string&) override
    {
        bytes += length;
        return true;
    }
    bool partEnd(std::string&) override { return true; }
    size_t parts = 0;
    size_t bytes = 0;
};

struct Outcome
{
    bool fed;
    bool finished;
    size_t parts;
    size_t bytes;
    bool operator==(const Outcome&) const = default;
};

Outcome run(const char* data, size_t size, size_t split)
{
    Counter counter;
    SorvelSandbox::MultipartParser parser("XyZzY-boundary", counter);
    bool fed = parser.feed(data, split);
    fed = parser.feed(data + split, size - split) && fed;
    const bool finished = fed && parser.finish();
    return {fed, finished, counter.parts, counter.bytes};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    const size_t split = data[0] % size;
    const char* body = reinterpret_cast<const char*>(data + 1);
    const size_t length = size - 1;
    if (!(run(body, length, 0) == run(body, length, split % (length + 1))))
        std::abort();
    return 0;
}

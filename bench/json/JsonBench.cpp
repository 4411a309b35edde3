// Measures the JSON path of the plug-in against the parser it stands on, side by side in one
// process, on a large "titles" reply (3000 products with 10 tracks each): reading it into the
// attribute tree, RapidJSON's SAX reader with a handler that does nothing (with the same flags as
// the text module), RapidJSON's own DOM, writing the tree into a new memory stream, and
// RapidJSON's writer into its string buffer. Prints MB/s, the ratios and the tree's memory.
//
//   json_bench [--products N] [--rounds N]
#include "framework/data/Json.h"
#include "framework/stream/MemoryStream.h"

#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

using namespace KVX;

namespace {

std::string makeTitlesReply(int products)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> out(buffer);
    out.StartObject();
    out.Key("status_code");
    out.Int(200);
    out.Key("data");
    out.StartArray();
    for (int p = 0; p < products; ++p)
    {
        const std::string id = "t" + std::to_string(100000 + p);
        out.StartObject();
        out.Key("id");
        out.String(id.c_str());
        out.Key("name");
        out.String(("Product number " + std::to_string(p) + " (deluxe edition)").c_str());
        out.Key("artist_name");
        out.String("The Example Ensemble");
        out.Key("upc");
        out.String(std::to_string(501234567890LL + p).c_str());
        out.Key("tracks");
        out.StartArray();
        for (int t = 0; t < 10; ++t)
        {
            out.StartObject();
            out.Key("id");
            out.String((id + "-" + std::to_string(t)).c_str());
            out.Key("name");
            out.String(("Track " + std::to_string(t + 1) + " of product " + std::to_string(p)).c_str());
            out.Key("isrc");
            out.String(("GBXYZ26" + std::to_string(10000 + p * 10 + t)).c_str());
            out.Key("track_number");
            out.Int(t + 1);
            out.Key("year");
            out.Int(2000 + p % 27);
            out.Key("duration");
            out.Double(180.5 + t * 7.25);
            out.Key("genre");
            out.String(t % 2 ? "Electronic" : "Jazz");
            out.Key("comment");
            out.String("Recorded live at the old mill, mixed in the box.");
            out.Key("arranger");
            out.String("A. Arranger");
            out.Key("composer");
            out.String("C. Composer");
            out.Key("songwriter");
            out.String("S. Songwriter");
            out.EndObject();
        }
        out.EndArray();
        out.EndObject();
    }
    out.EndArray();
    out.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

struct NoOp : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, NoOp>
{
    bool Default() { return true; }
    bool RawNumber(const char*, rapidjson::SizeType, bool) { return true; }
};

/// The best time of `rounds` runs of `work`, in seconds.
double best(int rounds, const std::function<void()>& work)
{
    double fastest = 1e30;
    for (int i = 0; i < rounds; ++i)
    {
        auto start = std::chrono::steady_clock::now();
        work();
        fastest = std::min(fastest, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return fastest;
}

size_t heapInUse()
{
    return mallinfo2().uordblks;
}

} // namespace

int main(int argc, char** argv)
{
    int products = 3000;
    int rounds = 5;
    for (int i = 1; i + 1 < argc; i += 2)
    {
        if (std::strcmp(argv[i], "--products") == 0)
            products = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--rounds") == 0)
            rounds = std::atoi(argv[i + 1]);
        else
        {
            std::fprintf(stderr, "usage: json_bench [--products N] [--rounds N]\n");
            return 2;
        }
    }
    if (products < 1 || rounds < 1)
    {
        std::fprintf(stderr, "json_bench: --products and --rounds take numbers from 1\n");
        return 2;
    }

    const std::string reply = makeTitlesReply(products);
    const double megabytes = static_cast<double>(reply.size()) / 1e6;
    std::printf("reply: %.2f MB (%d products x 10 tracks), best of %d rounds\n", megabytes, products, rounds);

    // Reading.
    constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag |
                                rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseStopWhenDoneFlag;
    double tree = best(rounds, [&] {
        Variant root;
        if (Json::parse(reply.data(), reply.size(), root) != kResultOk)
            std::abort();
    });
    double sax = best(rounds, [&] {
        rapidjson::MemoryStream stream(reply.data(), reply.size());
        NoOp handler;
        rapidjson::Reader reader;
        if (reader.Parse<kFlags>(stream, handler).IsError())
            std::abort();
    });
    double dom = best(rounds, [&] {
        rapidjson::Document document;
        document.Parse<rapidjson::kParseValidateEncodingFlag>(reply.data(), reply.size());
        if (document.HasParseError())
            std::abort();
    });

    // The tree's memory, in a steady state.
    malloc_trim(0);
    const size_t heapBefore = heapInUse();
    size_t treeBytes = 0;
    {
        Variant root;
        Json::parse(reply.data(), reply.size(), root);
        treeBytes = heapInUse() - heapBefore;

        // Writing.
        double stringify = best(rounds, [&] {
            auto out = makeRef<MemoryStream>();
            if (Json::write(root, *out) != kResultOk)
                std::abort();
        });
        rapidjson::Document document;
        document.Parse(reply.data(), reply.size());
        double writer = best(rounds, [&] {
            rapidjson::StringBuffer buffer;
            rapidjson::Writer<rapidjson::StringBuffer> out(buffer);
            document.Accept(out);
        });

        std::printf("parse -> tree:            %8.1f MB/s\n", megabytes / tree);
        std::printf("RapidJSON SAX, no-op:     %8.1f MB/s   tree / SAX: %.2f\n", megabytes / sax, sax / tree);
        std::printf("RapidJSON DOM:            %8.1f MB/s   tree / DOM: %.2f\n", megabytes / dom, dom / tree);
        std::printf("tree memory:              %8.1f MB     %.2f x the input\n", treeBytes / 1e6,
                    static_cast<double>(treeBytes) / static_cast<double>(reply.size()));
        std::printf("stringify -> new stream:  %8.1f MB/s\n", megabytes / stringify);
        std::printf("RapidJSON Writer:         %8.1f MB/s   stringify / Writer: %.2f\n", megabytes / writer,
                    writer / stringify);
    }
    return 0;
}

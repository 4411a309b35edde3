// Measures the JSON path of the plug-in against the parser it stands on, side by side in one
// process, on a large "titles" reply (3000 products with 10 tracks each): reading it into the
// attribute tree, RapidJSON's SAX reader with a handler that does nothing (with the same flags as
// the text module), RapidJSON's own DOM, writing the tree into a new memory stream, and
// RapidJSON's writer into its string buffer. Prints MB/s, the ratios and the tree's memory.
//
//   json_bench [--products N] [--rounds N] [--only load|save]
//
// With --only, it runs one side alone, `rounds` times, for a profiler.
#include "framework/data/Json.h"
#include "framework/stream/MemoryStream.h"

#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
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

/// The processor time of the calling thread (its own work and the kernel's for it, page faults
/// included). On a machine shared with other work it varies far less than the time on a wall
/// clock, and on an idle one it is the same.
struct Clock
{
    using time_point = double;
    static double now()
    {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    }
};

double seconds(Clock::time_point start)
{
    return Clock::now() - start;
}

/// The best of `rounds` measurements; `work` times its own part and returns the seconds.
double best(int rounds, const std::function<double()>& work)
{
    double fastest = 1e30;
    for (int i = 0; i < rounds; ++i)
        fastest = std::min(fastest, work());
    return fastest;
}

size_t heapInUse()
{
    return mallinfo2().uordblks;
}

} // namespace

// The heap bytes of C++ objects taken since counting started and the most of them held at once,
// for the peak of a parse (the builder's stacks included). Counting is on only while that parse
// runs, so it costs the timed runs nothing; RapidJSON's own allocator is not counted.
namespace {
std::atomic<bool> counting{false};
std::atomic<int64_t> liveBytes{0};
std::atomic<int64_t> peakBytes{0};

void* counted(void* block)
{
    if (!block)
        throw std::bad_alloc();
    if (counting.load(std::memory_order_relaxed))
    {
        // As malloc counts it: the usable bytes and the size word before them.
        const auto size = static_cast<int64_t>(malloc_usable_size(block) + sizeof(size_t));
        const int64_t now = liveBytes.fetch_add(size, std::memory_order_relaxed) + size;
        int64_t peak = peakBytes.load(std::memory_order_relaxed);
        while (now > peak && !peakBytes.compare_exchange_weak(peak, now, std::memory_order_relaxed))
        {
        }
    }
    return block;
}

void uncounted(void* block)
{
    if (block && counting.load(std::memory_order_relaxed))
        liveBytes.fetch_sub(static_cast<int64_t>(malloc_usable_size(block) + sizeof(size_t)), std::memory_order_relaxed);
    std::free(block);
}
} // namespace

void* operator new(size_t size)
{
    return counted(std::malloc(size ? size : 1));
}
void* operator new[](size_t size)
{
    return counted(std::malloc(size ? size : 1));
}
void operator delete(void* block) noexcept
{
    uncounted(block);
}
void operator delete[](void* block) noexcept
{
    uncounted(block);
}
void operator delete(void* block, size_t) noexcept
{
    uncounted(block);
}
void operator delete[](void* block, size_t) noexcept
{
    uncounted(block);
}

int main(int argc, char** argv)
{
    int products = 3000;
    int rounds = 5;
    std::string only;
    for (int i = 1; i + 1 < argc; i += 2)
    {
        if (std::strcmp(argv[i], "--products") == 0)
            products = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--rounds") == 0)
            rounds = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--only") == 0)
            only = argv[i + 1];
        else
        {
            std::fprintf(stderr, "usage: json_bench [--products N] [--rounds N] [--only load|save]\n");
            return 2;
        }
    }
    if (products < 1 || rounds < 1 || (!only.empty() && only != "load" && only != "save"))
    {
        std::fprintf(stderr, "json_bench: --products and --rounds take numbers from 1, --only load or save\n");
        return 2;
    }

    const std::string reply = makeTitlesReply(products);
    const double megabytes = static_cast<double>(reply.size()) / 1e6;

    // For a profiler: one side alone, many times.
    if (only == "load")
    {
        for (int i = 0; i < rounds; ++i)
        {
            Attributes tree;
            if (!Json::load(tree, reply))
                std::abort();
        }
        return 0;
    }
    if (only == "save")
    {
        Attributes tree;
        if (!Json::load(tree, reply))
            std::abort();
        for (int i = 0; i < rounds; ++i)
        {
            auto out = makeRef<MemoryStream>();
            if (!Json::save(*out, tree))
                std::abort();
        }
        return 0;
    }

    std::printf("reply: %.2f MB (%d products x 10 tracks), best of %d rounds, thread CPU time\n", megabytes, products,
                rounds);

    // Reading. Each side's result is freed after its time is taken; freeing is timed apart.
    constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag |
                                rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseStopWhenDoneFlag;
    double freeing = 1e30;
    const double tree = best(rounds, [&] {
        auto result = std::make_unique<Attributes>();
        const auto start = Clock::now();
        if (!Json::load(*result, reply))
            std::abort();
        const double taken = seconds(start);
        const auto freeStart = Clock::now();
        result.reset();
        freeing = std::min(freeing, seconds(freeStart));
        return taken;
    });
    const double sax = best(rounds, [&] {
        const auto start = Clock::now();
        rapidjson::MemoryStream stream(reply.data(), reply.size());
        NoOp handler;
        rapidjson::Reader reader;
        if (reader.Parse<kFlags>(stream, handler).IsError())
            std::abort();
        return seconds(start);
    });
    const double dom = best(rounds, [&] {
        rapidjson::Document document;
        const auto start = Clock::now();
        document.Parse<rapidjson::kParseValidateEncodingFlag>(reply.data(), reply.size());
        if (document.HasParseError())
            std::abort();
        return seconds(start);
    });

    // The tree's memory: what stays after the parse (malloc's own count, so with its overhead
    // per block) and the most that was held at once during it (the builder's stacks included).
    malloc_trim(0);
    const size_t heapBefore = heapInUse();
    Attributes root;
    counting = true;
    Json::load(root, reply);
    counting = false;
    const size_t treeBytes = heapInUse() - heapBefore;
    const auto peakBytesDuring = static_cast<size_t>(peakBytes.load());

    // Writing, into a new stream each time, as a reply body is made.
    const double stringify = best(rounds, [&] {
        const auto start = Clock::now();
        auto out = makeRef<MemoryStream>();
        if (!Json::save(*out, root))
            std::abort();
        return seconds(start);
    });
    malloc_trim(0);
    const size_t domBefore = heapInUse();
    rapidjson::Document document;
    document.Parse(reply.data(), reply.size());
    const size_t domBytes = heapInUse() - domBefore;
    const double writer = best(rounds, [&] {
        const auto start = Clock::now();
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> out(buffer);
        document.Accept(out);
        return seconds(start);
    });

    const double input = static_cast<double>(reply.size());
    std::printf("parse -> tree (Json::load):  %7.1f MB/s\n", megabytes / tree);
    std::printf("RapidJSON SAX, no-op:        %7.1f MB/s   tree / SAX: %.2f (goal 0.5)\n", megabytes / sax,
                sax / tree);
    std::printf("RapidJSON DOM:               %7.1f MB/s   tree / DOM: %.2f (goal 0.7)\n", megabytes / dom,
                dom / tree);
    std::printf("freeing the tree:            %7.1f ms\n", freeing * 1e3);
    std::printf("tree memory:                 %7.1f MB     %.2f x the input (goal 3); at most %.2f x during the parse\n",
                static_cast<double>(treeBytes) / 1e6, static_cast<double>(treeBytes) / input,
                static_cast<double>(peakBytesDuring) / input);
    std::printf("RapidJSON DOM memory:        %7.1f MB     %.2f x the input\n", static_cast<double>(domBytes) / 1e6,
                static_cast<double>(domBytes) / input);
    std::printf("stringify -> new stream:     %7.1f MB/s\n", megabytes / stringify);
    std::printf("RapidJSON Writer:            %7.1f MB/s   stringify / Writer: %.2f (goal 0.6)\n", megabytes / writer,
                writer / stringify);
    return 0;
}

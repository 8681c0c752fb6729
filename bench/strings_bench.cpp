// Strings: hash, length, many small appends, splitting a 1 MB text and
// scanning a 1 MB configuration list. Where the plain method (length walked
// at every call, an exact-size copy at every append) is cheap enough to run,
// it runs beside ours in the same program as the peer.
//
//   build-strings/bench/strings_bench --benchmark_min_time=0.2
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "foundation/Foundation.h"
#include "sheets/LXListParser.h"

namespace {

struct Pool {
    Pool() : pool(NSAutoreleasePool::alloc()->init()) {}
    ~Pool() { pool->release(); }
    NSAutoreleasePool* pool;
};

// About `bytes` of words, blanks and line feeds, one two-byte letter in
// every word.
std::string wordText(size_t bytes) {
    std::string text;
    unsigned state = 1;
    while (text.size() < bytes) {
        state = state * 1103515245 + 12345;
        size_t n = 2 + (state >> 16) % 8;
        for (size_t i = 0; i < n; i++)
            text.push_back(static_cast<char>('a' + (state >> (i + 3)) % 26));
        text += "\xC3\xA4";
        text.push_back((state >> 20) % 8 == 0 ? '\n' : ' ');
    }
    return text;
}

// A configuration list of about `bytes`: sheets of fields, as in the demo.
std::string configText(size_t bytes) {
    std::string text = "(\n";
    for (int sheet = 0; text.size() < bytes; sheet++) {
        text += "  (sheet s" + std::to_string(sheet) + "\n";
        for (int f = 0; f < 8; f++)
            text += "    (field name" + std::to_string(f) +
                    " string (width 120) (label N\xC3\xA4me))\n";
        text += "    (rights (role reader (read s" + std::to_string(sheet) + "))))\n";
    }
    return text + ")\n";
}

// The hash over the bytes as the formula gives it, at every call.
uint32_t formulaHash(const char* s) {
    uint32_t h = 17;
    for (; *s; s++) h = 37 * h + static_cast<uint32_t>(static_cast<signed char>(*s));
    return h;
}

// Length as the plain method has it: decode the bytes and count, every call.
uint32_t walkedLength(const char* s) {
    uint32_t n = 0;
    for (const auto* b = reinterpret_cast<const unsigned char*>(s); *b; b++, n++) {
        if (*b >= 0xC0 && *b <= 0xDF && b[1]) b++;
    }
    return n;
}

void BM_HashCached(benchmark::State& state) {
    Pool pool;
    NSString* s = NSString::stringWithUTF8String_(wordText(1024).c_str());
    for (auto _ : state) benchmark::DoNotOptimize(s->hash());
}
BENCHMARK(BM_HashCached);

void BM_HashFormula1K(benchmark::State& state) {
    std::string text = wordText(1024);
    for (auto _ : state) benchmark::DoNotOptimize(formulaHash(text.c_str()));
}
BENCHMARK(BM_HashFormula1K);

// Dictionary keys are short and new: construction plus the first hash.
void BM_HashNewKey(benchmark::State& state) {
    Pool pool;
    for (auto _ : state) {
        NSString* key = NSString::alloc()->initWithUTF8String_("customerName");
        benchmark::DoNotOptimize(key->hash());
        key->release();
    }
}
BENCHMARK(BM_HashNewKey);

void BM_Length1K(benchmark::State& state) {
    Pool pool;
    NSString* s = NSString::stringWithUTF8String_(wordText(1024).c_str());
    for (auto _ : state) benchmark::DoNotOptimize(s->length());
}
BENCHMARK(BM_Length1K);

void BM_LengthWalkedPeer1K(benchmark::State& state) {
    std::string text = wordText(1024);
    for (auto _ : state) benchmark::DoNotOptimize(walkedLength(text.c_str()));
}
BENCHMARK(BM_LengthWalkedPeer1K);

void BM_Append100k(benchmark::State& state) {
    Pool pool;
    NSString* piece = "abc"_ns;
    for (auto _ : state) {
        NSMutableString* s = NSMutableString::alloc();
        s->init();
        for (int i = 0; i < 100000; i++) s->appendString_(piece);
        benchmark::DoNotOptimize(s->UTF8String());
        s->release();
    }
}
BENCHMARK(BM_Append100k)->Unit(benchmark::kMillisecond);

// The plain method: a new block of the exact new size at every append.
void BM_AppendExactCopyPeer100k(benchmark::State& state) {
    for (auto _ : state) {
        char* text = static_cast<char*>(std::malloc(1));
        text[0] = 0;
        size_t length = 0;
        for (int i = 0; i < 100000; i++) {
            char* block = static_cast<char*>(std::malloc(length + 4));
            std::memcpy(block, text, length);
            std::memcpy(block + length, "abc", 4);
            std::free(text);
            text = block;
            length += 3;
        }
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
}
BENCHMARK(BM_AppendExactCopyPeer100k)->Unit(benchmark::kMillisecond)->Iterations(2);

void BM_Split1M(benchmark::State& state) {
    Pool pool;
    NSString* text = NSString::stringWithUTF8String_(wordText(1 << 20).c_str());
    for (auto _ : state) {
        Pool inner;
        benchmark::DoNotOptimize(text->split()->count());
    }
}
BENCHMARK(BM_Split1M)->Unit(benchmark::kMillisecond);

// The list parser over a configuration list; the 64 KB run shows that the
// time grows with the size, not its square.
void BM_ScanConfig(benchmark::State& state) {
    Pool pool;
    NSString* text = NSString::stringWithUTF8String_(
            configText(static_cast<size_t>(state.range(0))).c_str());
    for (auto _ : state) {
        Pool inner;
        NSMutableArray* list = LXListParser::listParserWithString_(text)->parse();
        if (!list) state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(list);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text->byteLength());
}
BENCHMARK(BM_ScanConfig)->Arg(64 << 10)->Arg(1 << 20)->Unit(benchmark::kMillisecond);

}  // namespace

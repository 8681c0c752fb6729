// Sheets on tables of 10,000 and 100,000 records: loading a matrix from its
// container, sortByField: on a text and on a reference field (against the
// plain exchange sort on 10,000), the data source's filter with each
// kind of filter and with all of them, and resolveValue:forField:.
//
// The stores are built once per run in a temporary directory, their files
// written directly in the container format (docs/container-format.md):
// 100,000 commits would rewrite the growing index 100,000 times.
//
//   sheets_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>

#include "ContainerFiles.h"
#include "foundation/Foundation.h"
#include "foundation/NSData.h"
#include "foundation/NSDate.h"
#include "foundation/NSSet.h"
#include "sheets/LXListParser.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "sheets/VTTableDataSource.h"
#include "sheets/VTWrapper.h"
#include "storage/LXContainer.h"
#include "storage/LXManagedObject.h"
#include "storage/NSArchiver.h"
#include "toolkit/NSTableView.h"

// The workspace operations a sheet sends, and no more.
class BenchWorkspace : public NSObject {
    NS_DECLARE_CLASS(BenchWorkspace, NSObject)

public:
    BenchWorkspace* init() override {
        NSObject::init();
        _sheets.adopt(static_cast<NSMutableDictionary*>(
                NSMutableDictionary::alloc()->initWithCapacity_(64)));
        _seen.adopt(NSMutableSet::alloc()->init());
        return this;
    }
    NSMutableDictionary* sheets() { return _sheets; }
    NSString* currentUserId() { return "First3 Last3/Unit/Company"_ns; }
    NSMutableSet* setForSeenForKey_(NSString*) { return _seen; }

protected:
    ~BenchWorkspace() override = default;

private:
    Ref<NSMutableDictionary> _sheets;
    Ref<NSMutableSet> _seen;
};

NS_CLASS_BEGIN(BenchWorkspace, NSObject)
    NS_METHOD(sheets)
    NS_METHOD(currentUserId)
    NS_METHOD(setForSeenForKey_)
NS_CLASS_END(BenchWorkspace)

namespace {

constexpr int kUsers = 200;
const char* const kStatus[] = {"open", "started", "closed", "in progress"};

// Every benchmark body runs inside a pool of its own.
struct Pool {
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    ~Pool() { pool->release(); }
};

std::string root() {
    static std::string dir = [] {
        char pattern[] = "/tmp/sheets-bench-XXXXXX";
        std::string d = mkdtemp(pattern);
        std::atexit([] { std::filesystem::remove_all(root()); });
        return d;
    }();
    return dir;
}

std::string userId(int u) { return "user-" + std::to_string(u); }

NSMutableDictionary* userRecord(int u) {
    NSMutableDictionary* r = NSMutableDictionary::dictionaryWithCapacity_(8);
    r->setObject_forKey_(NSString::stringWithUTF8String_(userId(u).c_str()), "__recordId"_ns);
    r->setObject_forKey_(NSString::stringWithFormat_("First%d", u), "firstName"_ns);
    r->setObject_forKey_(NSString::stringWithFormat_("Last%d", u), "lastName"_ns);
    r->setObject_forKey_("Unit"_ns, "orgUnit"_ns);
    r->setObject_forKey_("Company"_ns, "company"_ns);
    return r;
}

NSMutableDictionary* taskRecord(int i, NSDate* now) {
    NSMutableDictionary* r = NSMutableDictionary::dictionaryWithCapacity_(10);
    unsigned h = static_cast<unsigned>(i) * 2654435761u;
    r->setObject_forKey_(NSString::stringWithFormat_("task-%d", i), "__recordId"_ns);
    r->setObject_forKey_(NSString::stringWithFormat_("Task %08x %d", h, i), "title"_ns);
    r->setObject_forKey_(NSString::stringWithUTF8String_(kStatus[h % 4]), "status"_ns);
    r->setObject_forKey_(now->addTimeInterval_(-static_cast<double>(h % (60 * 86400))), "due"_ns);
    int owner = static_cast<int>((h >> 8) % kUsers);
    r->setObject_forKey_(NSString::stringWithUTF8String_(userId(owner).c_str()), "owner"_ns);
    r->setObject_forKey_(NSString::stringWithFormat_("%s %s", userId(owner).c_str(),
                                                     userId((owner + 7) % kUsers).c_str()),
                         "team"_ns);
    r->setObject_forKey_(
            NSString::stringWithFormat_("First%d Last%d/Unit/Company", owner % 10, owner % 10),
            "__creator"_ns);
    return r;
}

// Writes a container of the records `make(0..n-1)` at data/<name>.
template <class Make>
void writeContainer(const std::string& name, int n, Make make) {
    writeContainerInBulk("data/" + name, n, [&](int id) { return make(id - 1); });
}

// One workspace per size: the user sheet, the task sheet and one sheet per
// filter kind on the task sheet's records (source task).
struct World {
    BenchWorkspace* workspace = nullptr;
    int n = 0;
};

const char* const kFilterSheets[][2] = {
        {"none", ""},
        {"value", "(filter status ((open) (in progress)))"},
        {"date", "(datefilter due -30 0)"},
        {"reference", "(reffilter owner user ((First3 Last3) (First4 Last4)))"},
        {"readOwn", "(readOwn)"},
        {"currentUser", "(filterCurrentUser owner)"},
        {"all",
         "(filter status ((open) (in progress))) (datefilter due -30 0) "
         "(reffilter owner user ((First3 Last3) (First4 Last4))) (readOwn) (filterCurrentUser "
         "owner)"},
};

VTSheet* define(BenchWorkspace* w, const std::string& text) {
    NSArray* list =
            LXListParser::listParserWithString_(NSString::stringWithUTF8String_(text.c_str()))
                    ->parse();
    auto* sheet = static_cast<VTSheet*>(VTSheet::alloc()->initWithArray_workspace_(list, w));
    if (!sheet) {
        std::fprintf(stderr, "sheets_bench: sheet does not define: %s\n", text.c_str());
        std::exit(1);
    }
    w->sheets()->setObject_forKey_(sheet, sheet->name());
    sheet->release();
    return sheet;
}

const std::string kTaskFields =
        "(field title as string) (field status as string) (field due as datepicker)"
        " (field owner as reference user (firstName lastName))"
        " (field team as multireference user (firstName lastName))";

World& world(int n) {
    static std::map<int, World> worlds;
    World& w = worlds[n];
    if (w.workspace) return w;
    static bool entered = false;
    if (!entered) {
        std::filesystem::current_path(root());
        entered = true;
    }
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    std::string dir = root() + "/" + std::to_string(n);
    std::filesystem::create_directories(dir + "/data");
    std::filesystem::current_path(dir);
    NSDate* now = NSDate::date();
    writeContainer("user", kUsers, [](int u) { return userRecord(u); });
    writeContainer("task", n, [now](int i) { return taskRecord(i, now); });
    w.workspace = static_cast<BenchWorkspace*>(BenchWorkspace::alloc()->init());
    w.n = n;
    define(w.workspace,
           "((name user) (field firstName as string) (field lastName as string)"
           " (field orgUnit as string) (field company as string))");
    define(w.workspace, "((name task) " + kTaskFields + ")");
    for (auto& f : kFilterSheets)
        define(w.workspace, std::string("((source task) (name f-") + f[0] + ") " + kTaskFields +
                                    " " + f[1] + ")");
    pool->release();
    return w;
}

VTSheet* sheetOf(World& w, const char* name) {
    return static_cast<VTSheet*>(
            w.workspace->sheets()->objectForKey_(NSString::stringWithUTF8String_(name)));
}

void Load(benchmark::State& state) {
    Pool outer;
    World& w = world(static_cast<int>(state.range(0)));
    std::filesystem::current_path(root() + "/" + std::to_string(w.n));
    for (auto _ : state) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        auto* m = static_cast<VTMatrix*>(
                VTMatrix::alloc()->initWithName_sheets_workspace_sheet_source_(
                        "task"_ns, w.workspace->sheets(), w.workspace, nullptr, nullptr));
        m->load();
        if (m->numberOfRows() != static_cast<uint32_t>(w.n)) state.SkipWithError("short load");
        m->release();
        pool->release();
    }
    state.SetItemsProcessed(state.iterations() * w.n);
}

// Each timed sort follows a sort by another field, so that it sorts rather
// than reverses.
void sortBench(benchmark::State& state, NSString* field) {
    Pool outer;
    World& w = world(static_cast<int>(state.range(0)));
    VTMatrix* m = sheetOf(w, "task")->matrix();
    for (auto _ : state) {
        state.PauseTiming();
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        m->sortByField_("status"_ns);
        state.ResumeTiming();
        m->sortByField_(field);
        state.PauseTiming();
        pool->release();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * w.n);
}

void SortString(benchmark::State& state) { sortBench(state, "title"_ns); }
void SortReference(benchmark::State& state) { sortBench(state, "owner"_ns); }

// The peer: the same wrappers through sortedArrayUsingSelector: with
// compareWithWrapper:, the general path, which is an exchange sort.
void SortStringDocumentedPath(benchmark::State& state) {
    Pool outer;
    World& w = world(static_cast<int>(state.range(0)));
    VTMatrix* m = sheetOf(w, "task")->matrix();
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    NSMutableArray* wrappers = NSMutableArray::array();
    NSArray* records = m->allObjectsSorted();
    for (uint32_t i = 0; i < records->count(); i++) {
        auto* r = static_cast<NSDictionary*>(records->objectAtIndex_(i));
        auto* wr = static_cast<VTWrapper*>(
                VTWrapper::alloc()->initWithObject_value_(r, r->objectForKey_("title"_ns)));
        wrappers->addObject_(wr);
        wr->release();
    }
    for (auto _ : state) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        benchmark::DoNotOptimize(
                wrappers->sortedArrayUsingSelector_(NS_SEL("compareWithWrapper:")));
        inner->release();
    }
    pool->release();
    state.SetItemsProcessed(state.iterations() * w.n);
}

void Filter(benchmark::State& state) {
    Pool outer;
    World& w = world(static_cast<int>(state.range(0)));
    const char* kind = kFilterSheets[state.range(1)][0];
    state.SetLabel(kind);
    VTSheet* sheet = sheetOf(w, (std::string("f-") + kind).c_str());
    auto* ds = static_cast<VTTableDataSource*>(sheet->sheetTableView()->dataSource());
    for (auto _ : state) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        ds->filter();
        pool->release();
    }
    state.counters["passing"] = ds->objectIndices()->count();
    state.SetItemsProcessed(state.iterations() * w.n);
}

// One resolution per iteration, walking the records' values in turn.
void resolveBench(benchmark::State& state, NSString* field) {
    Pool outer;
    World& w = world(static_cast<int>(state.range(0)));
    VTMatrix* m = sheetOf(w, "task")->matrix();
    NSArray* records = m->allObjectsSorted();
    uint32_t i = 0, n = records->count();
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    uint32_t sincePool = 0;
    for (auto _ : state) {
        NSObject* value =
                static_cast<NSDictionary*>(records->objectAtIndex_(i))->objectForKey_(field);
        benchmark::DoNotOptimize(m->resolveValue_forField_(value, field));
        if (++i == n) i = 0;
        if (++sincePool == 10000) {
            pool->release();
            pool = NSAutoreleasePool::alloc()->init();
            sincePool = 0;
        }
    }
    pool->release();
}

void ResolveReference(benchmark::State& state) { resolveBench(state, "owner"_ns); }
void ResolveMultireference(benchmark::State& state) { resolveBench(state, "team"_ns); }

void Sizes(benchmark::internal::Benchmark* b) {
    b->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
}

void FilterArgs(benchmark::internal::Benchmark* b) {
    for (int n : {10000, 100000})
        for (int k = 0; k < static_cast<int>(sizeof kFilterSheets / sizeof kFilterSheets[0]); k++)
            b->Args({n, k});
    b->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK(Load)->Apply(Sizes);
BENCHMARK(SortString)->Apply(Sizes);
BENCHMARK(SortReference)->Apply(Sizes);
BENCHMARK(SortStringDocumentedPath)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(Filter)->Apply(FilterArgs);
BENCHMARK(ResolveReference)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(ResolveMultireference)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

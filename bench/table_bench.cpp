// The table view's reload on tables of 1,000, 10,000 and 50,000 records of
// 8 columns, in a real native list (a Winelib program, run under Wine):
//
//   Reload        reloadData as the sheets send it: the data source for
//                 every cell, its description, one row of native messages
//   ObjectSide    the same reload on a table without a native list: the
//                 data source, the descriptions and the row arrays alone
//   NativeRows    the native messages alone, with the texts made before
//
// Each reports the time per reload and, as the counter "cell", per cell.
// Run it with the headless prefix of the tests (or under a display):
//
//   WINEPREFIX=build/wineprefix WINEDEBUG=-all wine build/bench/table_bench.exe.so
//
// (--benchmark_filter=Reload/10000 for one size).
#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

#include "foundation/Foundation.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSWindow.h"

// Records as dictionaries from column identifier to text, answered the
// way VTMatrix answers a plain field: the stored value.
class BenchRows : public NSObject {
    NS_DECLARE_CLASS(BenchRows, NSObject)

public:
    int32_t numberOfRowsInTableView_(NSObject*) { return static_cast<int32_t>(records->count()); }
    NSObject* tableView_objectValueForTableColumn_row_(NSObject*, NSTableColumn* column,
                                                       int32_t row) {
        return static_cast<NSDictionary*>(records->objectAtIndex_(static_cast<uint32_t>(row)))
                ->objectForKey_(column->identifier());
    }
    Ref<NSMutableArray> records;

protected:
    ~BenchRows() override = default;
};

NS_CLASS_BEGIN(BenchRows, NSObject)
    NS_METHOD(numberOfRowsInTableView_)
    NS_METHOD(tableView_objectValueForTableColumn_row_)
NS_CLASS_END(BenchRows)

namespace {

constexpr int kColumns = 8;
const char* const kFields[kColumns] = {"title", "status", "due",       "owner",
                                       "team",  "note",   "__creator", "_seen_"};

struct Pool {
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    ~Pool() { pool->release(); }
};

BenchRows* source(int n) {
    static std::map<int, BenchRows*> made;
    BenchRows*& rows = made[n];
    if (rows) return rows;
    Pool pool;
    rows = static_cast<BenchRows*>(BenchRows::alloc()->init());
    rows->records.adopt(NSMutableArray::alloc()->initWithCapacity_(static_cast<uint32_t>(n)));
    for (int i = 0; i < n; i++) {
        NSMutableDictionary* r = NSMutableDictionary::dictionaryWithCapacity_(kColumns);
        unsigned h = static_cast<unsigned>(i) * 2654435761u;
        r->setObject_forKey_(NSString::stringWithFormat_("Task %08x %d", h, i), "title"_ns);
        r->setObject_forKey_(h % 2 ? "open"_ns : "in progress"_ns, "status"_ns);
        r->setObject_forKey_(NSString::stringWithFormat_("%u.%u.2008", h % 28 + 1, h % 12 + 1),
                             "due"_ns);
        r->setObject_forKey_(NSString::stringWithFormat_("First%u Last%u", h % 200, h % 200),
                             "owner"_ns);
        r->setObject_forKey_(NSString::stringWithFormat_("First%u Last%u; First%u Last%u", h % 7,
                                                         h % 7, h % 11, h % 11),
                             "team"_ns);
        r->setObject_forKey_(NSString::stringWithFormat_("Note on record %d", i), "note"_ns);
        r->setObject_forKey_(NSString::stringWithFormat_("First%u Last%u", h % 9, h % 9),
                             "__creator"_ns);
        r->setObject_forKey_(h % 3 ? ""_ns : "*"_ns, "_seen_"_ns);
        rows->records->addObject_(r);
    }
    return rows;
}

NSWindow* window() {
    static NSWindow* made = [] {
        NSInitCommonControls();
        NSApplication::sharedApplication();
        return NSWindow::alloc()->initWithContentRect_styleMask_backing_defer_(
                NSMakeRect(0, 0, 900, 600), 0, 0, false);
    }();
    return made;
}

// A table of the 8 columns; in the window (with a native list) or not.
NSTableView* table(bool native) {
    auto* t = static_cast<NSTableView*>(
            NSTableView::alloc()->initWithFrame_(NSMakeRect(0, 0, 880, 560)));
    if (native) window()->contentView()->addSubview_(t);
    for (const char* field : kFields) {
        NSTableColumn* c =
                NSTableColumn::alloc()->initWithIdentifier_(NSString::stringWithUTF8String_(field));
        if (field[0] == '_' && field[1] == 's') c->setWidth_(20);
        t->addTableColumn_(c);
        c->release();
    }
    return t;
}

void report(benchmark::State& state, int n) {
    state.counters["cell"] = benchmark::Counter(
            static_cast<double>(n) * kColumns,
            benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void Reload(benchmark::State& state) {
    Pool pool;
    int n = static_cast<int>(state.range(0));
    NSTableView* t = table(true);
    t->setDataSource_(source(n));
    for (auto _ : state) t->reloadData();
    t->deleteAllItems();
    report(state, n);
}

void ObjectSide(benchmark::State& state) {
    Pool pool;
    int n = static_cast<int>(state.range(0));
    NSTableView* t = table(false);
    t->setDataSource_(source(n));
    for (auto _ : state) t->reloadData();
    report(state, n);
}

void NativeRows(benchmark::State& state) {
    Pool pool;
    int n = static_cast<int>(state.range(0));
    NSTableView* t = table(true);
    BenchRows* rows = source(n);
    std::vector<std::u16string> texts;
    for (int i = 0; i < n; i++) {
        auto* r = static_cast<NSDictionary*>(rows->records->objectAtIndex_(i));
        for (const char* field : kFields) {
            auto* text = static_cast<NSString*>(
                    r->objectForKey_(NSString::stringWithUTF8String_(field)));
            texts.emplace_back(NSNativeText(text));
        }
    }
    const NSNativeToolkit* native = NSNative();
    void* list = t->hWnd();
    for (auto _ : state) {
        native->listSetRedraw(list, false);
        native->listDeleteAll(list);
        for (int i = 0; i < n; i++) {
            const std::u16string* row = &texts[static_cast<size_t>(i) * kColumns];
            int at = native->listInsertItem(list, i, row[0].c_str());
            for (int c = 1; c < kColumns; c++) native->listSetItemText(list, at, c, row[c].c_str());
        }
        native->listSetRedraw(list, true);
    }
    native->listDeleteAll(list);
    report(state, n);
}

}  // namespace

BENCHMARK(Reload)->Arg(1000)->Arg(10000)->Arg(50000)->Unit(benchmark::kMillisecond);
BENCHMARK(ObjectSide)->Arg(1000)->Arg(10000)->Arg(50000)->Unit(benchmark::kMillisecond);
BENCHMARK(NativeRows)->Arg(1000)->Arg(10000)->Arg(50000)->Unit(benchmark::kMillisecond);

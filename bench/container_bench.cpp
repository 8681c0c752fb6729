// Containers against SQLite and LMDB, in one run: stores per second into a
// store that already holds 1,000, 10,000 or 100,000 records, and the time
// to read all records back as objects. Every store is one record of 12 text
// fields and 3 dates, committed on its own:
//
//   Container       set: of a new NSMutableDictionary (one block and one
//                   journal entry; the index is rewritten only when the
//                   journal passes half the index and 64 KiB, which a run
//                   doesn't reach: that costs IndexFloor once per some
//                   1,300 stores at 1,000 records, 60,000 at 100,000)
//   SqliteNormal    one row per record, one transaction per insert,
//                   journal_mode=WAL, synchronous=NORMAL (like ours, it
//                   survives a crash of the process)
//   SqliteFull      the same with synchronous=FULL, for reference
//   Lmdb            one put per transaction, MDB_NOSYNC
//   IndexFloor      writing a file of the container's index size to a
//                   temporary name and renaming it: what a checkpoint
//                   costs at least
//
// Loading, all records as dictionaries:
//
//   ContainerLoad   opening the container (index, journal) and query:
//   ContainerQuery  query: on a container already open
//   SqliteArchivedQuery  the same enciphered blocks as BLOB rows, read
//                   with one SELECT and decoded as the container decodes
//   SqliteQuery, LmdbQuery  the records as text columns or packed texts
//
// Interleaved repetitions, medians (one command line):
//   container_bench --benchmark_repetitions=5
//       --benchmark_enable_random_interleaving=true
//       --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <lmdb.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include "ContainerFiles.h"
#include "foundation/Foundation.h"
#include "foundation/NSDate.h"
#include "foundation/NSSet.h"
#include "storage/LXContainer.h"
#include "storage/LXManagedObject.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"

namespace {

namespace fs = std::filesystem;

constexpr int kFields = 12;
constexpr int kDates = 3;

// ---------------------------------------------------------------------------
// The records.

struct Texts {
    std::string fields[kFields];
    std::string dates[kDates];
};

Texts textsOf(int i) {
    static const char* const kWords[] = {"Novak",     "Dvorak",  "Svoboda", "Cerny",
                                         "Prochazka", "Kucera",  "Vesely",  "Horak",
                                         "Nemec",     "Pokorny", "Marek",   "Pospisil"};
    Texts t;
    for (int k = 0; k < kFields; k++) {
        t.fields[k] = std::string(kWords[(i + k) % 12]) + " " + std::to_string(i * 31 + k) +
                      " field text";
    }
    for (int k = 0; k < kDates; k++) {
        char date[40];
        std::snprintf(date, sizeof date, "20%02d-%02d-%02d %02d:%02d:%02d +0100", 10 + (i + k) % 15,
                      1 + (i + k) % 12, 1 + (i * 7 + k) % 28, (i + k) % 24, (i * 3) % 60,
                      (i * 11) % 60);
        t.dates[k] = date;
    }
    return t;
}

NSString* fieldKey(int k) {
    static NSString* keys[kFields + kDates];
    if (!keys[k])
        keys[k] = NSString::alloc()->initWithUTF8String_(
                (k < kFields ? "f" + std::to_string(k) : "d" + std::to_string(k - kFields))
                        .c_str());
    return keys[k];
}

// A record as the sheets hold one: an autoreleased dictionary.
NSMutableDictionary* recordOf(const Texts& t) {
    NSMutableDictionary* record = NSMutableDictionary::dictionaryWithCapacity_(kFields + kDates);
    for (int k = 0; k < kFields; k++)
        record->setObject_forKey_(NSString::stringWithUTF8String_(t.fields[k].c_str()),
                                  fieldKey(k));
    for (int k = 0; k < kDates; k++) {
        record->setObject_forKey_(
                NSDate::dateWithString_(NSString::stringWithUTF8String_(t.dates[k].c_str())),
                fieldKey(kFields + k));
    }
    return record;
}

NSMutableDictionary* recordOfColumns(const char* const* columns) {
    NSMutableDictionary* record = NSMutableDictionary::dictionaryWithCapacity_(kFields + kDates);
    for (int k = 0; k < kFields; k++)
        record->setObject_forKey_(NSString::stringWithUTF8String_(columns[k]), fieldKey(k));
    for (int k = 0; k < kDates; k++) {
        record->setObject_forKey_(
                NSDate::dateWithString_(NSString::stringWithUTF8String_(columns[kFields + k])),
                fieldKey(kFields + k));
    }
    return record;
}

// LMDB values: the 15 texts, each NUL-terminated.
std::string packed(const Texts& t) {
    std::string out;
    for (const auto& f : t.fields) out.append(f.c_str(), f.size() + 1);
    for (const auto& d : t.dates) out.append(d.c_str(), d.size() + 1);
    return out;
}

// ---------------------------------------------------------------------------
// Base stores of n records, built once per size and copied for each run.

std::string gRoot;

const std::string& root() {
    if (gRoot.empty()) {
        char pattern[] = "/tmp/vt-container-bench-XXXXXX";
        gRoot = mkdtemp(pattern);
        std::atexit([] { fs::remove_all(gRoot); });
    }
    return gRoot;
}

// A base container of n records, written in bulk once per size.
std::string baseContainer(int n) {
    static std::map<int, std::string> built;
    if (built.count(n)) return built[n];
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    std::string stem = root() + "/base-" + std::to_string(n);
    writeContainerInBulk(stem, n, [](int id) { return recordOf(textsOf(id)); });
    LXContainer* check =
            LXContainer::containerWithName_(NSString::stringWithUTF8String_(stem.c_str()));
    if (check->isDamaged() ||
        check->count_(NSMutableDictionary::classObject()) != static_cast<uint32_t>(n)) {
        std::fprintf(stderr, "container_bench: the base container of %d records does not open\n",
                     n);
        std::exit(1);
    }
    pool->release();
    return built[n] = stem;
}

std::string copyContainer(int n) {
    std::string base = baseContainer(n);
    std::string stem = root() + "/work";
    fs::copy_file(base + ".vci", stem + ".vci", fs::copy_options::overwrite_existing);
    fs::copy_file(base + ".vcd", stem + ".vcd", fs::copy_options::overwrite_existing);
    return stem;
}

void check(int rc, sqlite3* db, const char* what) {
    if (rc != SQLITE_OK && rc != SQLITE_DONE && rc != SQLITE_ROW) {
        std::fprintf(stderr, "container_bench: sqlite %s: %s\n", what,
                     db ? sqlite3_errmsg(db) : "");
        std::exit(1);
    }
}

const char* kCreate =
        "CREATE TABLE records(id INTEGER PRIMARY KEY, f0 TEXT, f1 TEXT, f2 TEXT, f3 TEXT, f4 TEXT, "
        "f5 TEXT, "
        "f6 TEXT, f7 TEXT, f8 TEXT, f9 TEXT, f10 TEXT, f11 TEXT, d0 TEXT, d1 TEXT, d2 TEXT)";
const char* kInsert = "INSERT INTO records VALUES(NULL,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";

void bindTexts(sqlite3_stmt* insert, const Texts& t) {
    for (int k = 0; k < kFields; k++)
        sqlite3_bind_text(insert, k + 1, t.fields[k].c_str(), -1, SQLITE_TRANSIENT);
    for (int k = 0; k < kDates; k++)
        sqlite3_bind_text(insert, kFields + k + 1, t.dates[k].c_str(), -1, SQLITE_TRANSIENT);
}

std::string baseSqlite(int n) {
    static std::map<int, std::string> built;
    if (built.count(n)) return built[n];
    std::string path = root() + "/base-" + std::to_string(n) + ".sqlite";
    sqlite3* db = nullptr;
    check(sqlite3_open(path.c_str(), &db), db, "open");
    check(sqlite3_exec(db, kCreate, nullptr, nullptr, nullptr), db, "create");
    check(sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr), db, "begin");
    sqlite3_stmt* insert = nullptr;
    check(sqlite3_prepare_v2(db, kInsert, -1, &insert, nullptr), db, "prepare");
    for (int id = 1; id <= n; id++) {
        bindTexts(insert, textsOf(id));
        check(sqlite3_step(insert), db, "insert");
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    check(sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr), db, "commit");
    sqlite3_close(db);
    return built[n] = path;
}

// The container's blocks as rows of SQLite.
std::string baseSqliteArchived(int n) {
    static std::map<int, std::string> built;
    if (built.count(n)) return built[n];
    std::string path = root() + "/base-" + std::to_string(n) + ".blocks.sqlite";
    sqlite3* db = nullptr;
    check(sqlite3_open(path.c_str(), &db), db, "open");
    check(sqlite3_exec(db, "CREATE TABLE blocks(id INTEGER PRIMARY KEY, block BLOB)", nullptr,
                       nullptr, nullptr),
          db, "create");
    check(sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr), db, "begin");
    sqlite3_stmt* insert = nullptr;
    check(sqlite3_prepare_v2(db, "INSERT INTO blocks VALUES(?,?)", -1, &insert, nullptr), db,
          "prepare");
    for (int id = 1; id <= n; id++) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        std::string block = containerBlock(id, recordOf(textsOf(id)));
        sqlite3_bind_int(insert, 1, id);
        sqlite3_bind_blob(insert, 2, block.data(), static_cast<int>(block.size()),
                          SQLITE_TRANSIENT);
        check(sqlite3_step(insert), db, "insert");
        sqlite3_reset(insert);
        inner->release();
    }
    sqlite3_finalize(insert);
    check(sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr), db, "commit");
    sqlite3_close(db);
    return built[n] = path;
}

// Big-endian, so that LMDB's byte order of keys is the order of ids.
uint32_t lmdbKey(int id) { return __builtin_bswap32(static_cast<uint32_t>(id)); }

std::string baseLmdb(int n) {
    static std::map<int, std::string> built;
    if (built.count(n)) return built[n];
    std::string path = root() + "/base-" + std::to_string(n) + ".mdb";
    MDB_env* env = nullptr;
    mdb_env_create(&env);
    mdb_env_set_mapsize(env, size_t(1) << 31);
    if (mdb_env_open(env, path.c_str(), MDB_NOSUBDIR | MDB_NOSYNC, 0644) != 0) std::exit(1);
    MDB_txn* txn = nullptr;
    MDB_dbi dbi;
    mdb_txn_begin(env, nullptr, 0, &txn);
    mdb_dbi_open(txn, nullptr, 0, &dbi);
    for (int id = 1; id <= n; id++) {
        std::string value = packed(textsOf(id));
        uint32_t key = lmdbKey(id);
        MDB_val k{sizeof key, &key};
        MDB_val v{value.size(), &value[0]};
        if (mdb_put(txn, dbi, &k, &v, MDB_APPEND) != 0) std::exit(1);
    }
    mdb_txn_commit(txn);
    mdb_env_sync(env, 1);
    mdb_env_close(env);
    return built[n] = path;
}

// ---------------------------------------------------------------------------
// Stores.

void ContainerStore(benchmark::State& state) {
    int n = static_cast<int>(state.range(0));
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    std::string stem = copyContainer(n);
    LXContainer* box =
            LXContainer::alloc()->initWithName_(NSString::stringWithUTF8String_(stem.c_str()));
    int i = n;
    for (auto _ : state) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        if (box->set_(recordOf(textsOf(++i))) < 0) state.SkipWithError("store failed");
        inner->release();
    }
    state.counters["index_bytes"] = static_cast<double>(fs::file_size(stem + ".vci"));
    state.SetItemsProcessed(state.iterations());
    box->release();
    pool->release();
}

void IndexFloor(benchmark::State& state) {
    int n = static_cast<int>(state.range(0));
    std::string base = baseContainer(n);
    std::string bytes(fs::file_size(base + ".vci"), 'x');
    std::string path = root() + "/floor";
    for (auto _ : state) {
        FILE* f = std::fopen((path + ".tmp").c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
        std::rename((path + ".tmp").c_str(), path.c_str());
    }
    state.counters["index_bytes"] = static_cast<double>(bytes.size());
    state.SetItemsProcessed(state.iterations());
}

void SqliteStore(benchmark::State& state, const char* synchronous) {
    int n = static_cast<int>(state.range(0));
    std::string path = root() + "/work.sqlite";
    fs::remove(path + "-wal");
    fs::remove(path + "-shm");
    fs::copy_file(baseSqlite(n), path, fs::copy_options::overwrite_existing);
    sqlite3* db = nullptr;
    check(sqlite3_open(path.c_str(), &db), db, "open");
    check(sqlite3_exec(db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr), db, "wal");
    check(sqlite3_exec(db, synchronous, nullptr, nullptr, nullptr), db, "synchronous");
    sqlite3_stmt* insert = nullptr;
    check(sqlite3_prepare_v2(db, kInsert, -1, &insert, nullptr), db, "prepare");
    int i = n;
    for (auto _ : state) {
        // Autocommit: one transaction per insert.
        bindTexts(insert, textsOf(++i));
        check(sqlite3_step(insert), db, "insert");
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    sqlite3_close(db);
    state.SetItemsProcessed(state.iterations());
}

void SqliteNormalStore(benchmark::State& state) { SqliteStore(state, "PRAGMA synchronous=NORMAL"); }
void SqliteFullStore(benchmark::State& state) { SqliteStore(state, "PRAGMA synchronous=FULL"); }

void LmdbStore(benchmark::State& state) {
    int n = static_cast<int>(state.range(0));
    std::string path = root() + "/work.mdb";
    fs::remove(path + "-lock");
    fs::copy_file(baseLmdb(n), path, fs::copy_options::overwrite_existing);
    MDB_env* env = nullptr;
    mdb_env_create(&env);
    mdb_env_set_mapsize(env, size_t(1) << 31);
    if (mdb_env_open(env, path.c_str(), MDB_NOSUBDIR | MDB_NOSYNC, 0644) != 0) std::exit(1);
    MDB_dbi dbi;
    MDB_txn* txn = nullptr;
    mdb_txn_begin(env, nullptr, 0, &txn);
    mdb_dbi_open(txn, nullptr, 0, &dbi);
    mdb_txn_commit(txn);
    int id = n;
    for (auto _ : state) {
        ++id;
        std::string value = packed(textsOf(id));
        mdb_txn_begin(env, nullptr, 0, &txn);
        uint32_t key = lmdbKey(id);
        MDB_val k{sizeof key, &key};
        MDB_val v{value.size(), &value[0]};
        if (mdb_put(txn, dbi, &k, &v, 0) != 0) state.SkipWithError("put failed");
        mdb_txn_commit(txn);
    }
    mdb_env_close(env);
    state.SetItemsProcessed(state.iterations());
}

// ---------------------------------------------------------------------------
// Reading all records back as dictionaries of strings and dates.

void ContainerQuery(benchmark::State& state) {
    int n = static_cast<int>(state.range(0));
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    std::string stem = baseContainer(n);
    LXContainer* box =
            LXContainer::alloc()->initWithName_(NSString::stringWithUTF8String_(stem.c_str()));
    for (auto _ : state) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        NSMutableArray* records = box->query_(NSMutableDictionary::classObject());
        if (records->count() != static_cast<uint32_t>(n)) state.SkipWithError("wrong count");
        inner->release();
    }
    state.SetItemsProcessed(state.iterations() * n);
    box->release();
    pool->release();
}

void ContainerLoad(benchmark::State& state) {
    int n = static_cast<int>(state.range(0));
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    NSString* stem = NSString::stringWithUTF8String_(baseContainer(n).c_str());
    for (auto _ : state) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        LXContainer* box = LXContainer::containerWithName_(stem);
        NSMutableArray* records = box->query_(NSMutableDictionary::classObject());
        if (records->count() != static_cast<uint32_t>(n)) state.SkipWithError("wrong count");
        inner->release();
    }
    state.SetItemsProcessed(state.iterations() * n);
    pool->release();
}

// The blocks decoded as the container's query: decipher, unarchive, and a
// new dictionary given the record's count and bucket table.
void SqliteArchivedQuery(benchmark::State& state) {
    int n = static_cast<int>(state.range(0));
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    sqlite3* db = nullptr;
    check(sqlite3_open(baseSqliteArchived(n).c_str(), &db), db, "open");
    sqlite3_stmt* select = nullptr;
    check(sqlite3_prepare_v2(db, "SELECT id, block FROM blocks", -1, &select, nullptr), db,
          "prepare");
    for (auto _ : state) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        NSMutableArray* records = NSMutableArray::arrayWithCapacity_(n);
        while (sqlite3_step(select) == SQLITE_ROW) {
            NSData* block = NSData::dataWithBytes_length_(
                    sqlite3_column_blob(select, 1),
                    static_cast<uint32_t>(sqlite3_column_bytes(select, 1)));
            block->decryptWithKey_("Rk2pWn"_ns);
            NSUnarchiver* reader = NSUnarchiver::alloc()->initForReadingWithData_(block);
            auto* managed = static_cast<LXManagedObject*>(reader->decodeObject());
            NSMutableDictionary* record =
                    static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->init());
            record->setValue_forKey_(managed->objectForKeyPath_("count"_ns), "count"_ns);
            record->setValue_forKey_(managed->objectForKeyPath_("array"_ns), "array"_ns);
            reader->release();
            records->addObject_(record);
            record->release();
        }
        sqlite3_reset(select);
        if (records->count() != static_cast<uint32_t>(n)) state.SkipWithError("wrong count");
        inner->release();
    }
    sqlite3_finalize(select);
    sqlite3_close(db);
    state.SetItemsProcessed(state.iterations() * n);
    pool->release();
}

void SqliteQuery(benchmark::State& state) {
    int n = static_cast<int>(state.range(0));
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    sqlite3* db = nullptr;
    check(sqlite3_open(baseSqlite(n).c_str(), &db), db, "open");
    sqlite3_stmt* select = nullptr;
    check(sqlite3_prepare_v2(db, "SELECT * FROM records", -1, &select, nullptr), db, "prepare");
    for (auto _ : state) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        NSMutableArray* records = NSMutableArray::arrayWithCapacity_(n);
        while (sqlite3_step(select) == SQLITE_ROW) {
            const char* columns[kFields + kDates];
            for (int k = 0; k < kFields + kDates; k++) {
                columns[k] = reinterpret_cast<const char*>(sqlite3_column_text(select, k + 1));
            }
            records->addObject_(recordOfColumns(columns));
        }
        sqlite3_reset(select);
        if (records->count() != static_cast<uint32_t>(n)) state.SkipWithError("wrong count");
        inner->release();
    }
    sqlite3_finalize(select);
    sqlite3_close(db);
    state.SetItemsProcessed(state.iterations() * n);
    pool->release();
}

void LmdbQuery(benchmark::State& state) {
    int n = static_cast<int>(state.range(0));
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    MDB_env* env = nullptr;
    mdb_env_create(&env);
    mdb_env_set_mapsize(env, size_t(1) << 31);
    if (mdb_env_open(env, baseLmdb(n).c_str(), MDB_NOSUBDIR | MDB_NOSYNC | MDB_RDONLY, 0644) != 0)
        std::exit(1);
    MDB_dbi dbi;
    MDB_txn* txn = nullptr;
    mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn);
    mdb_dbi_open(txn, nullptr, 0, &dbi);
    mdb_txn_commit(txn);
    for (auto _ : state) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        NSMutableArray* records = NSMutableArray::arrayWithCapacity_(n);
        mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn);
        MDB_cursor* cursor = nullptr;
        mdb_cursor_open(txn, dbi, &cursor);
        MDB_val k, v;
        while (mdb_cursor_get(cursor, &k, &v, MDB_NEXT) == 0) {
            const char* columns[kFields + kDates];
            const char* p = static_cast<const char*>(v.mv_data);
            for (int c = 0; c < kFields + kDates; c++) {
                columns[c] = p;
                p += std::strlen(p) + 1;
            }
            records->addObject_(recordOfColumns(columns));
        }
        mdb_cursor_close(cursor);
        mdb_txn_abort(txn);
        if (records->count() != static_cast<uint32_t>(n)) state.SkipWithError("wrong count");
        inner->release();
    }
    mdb_env_close(env);
    state.SetItemsProcessed(state.iterations() * n);
    pool->release();
}

void Sizes(benchmark::internal::Benchmark* b) {
    for (int n : {1000, 10000, 100000}) b->Arg(n);
    b->Unit(benchmark::kMicrosecond);
}

// A fixed number of stores per run, so that the container grows by at most
// a third during a run. The count of iterations belongs to a registration,
// not to one argument: one registration per size.
#define VT_BENCHMARK_SIZED(function, small, large)                                     \
    BENCHMARK(function)->Arg(1000)->Iterations(small)->Unit(benchmark::kMicrosecond);  \
    BENCHMARK(function)->Arg(10000)->Iterations(large)->Unit(benchmark::kMicrosecond); \
    BENCHMARK(function)->Arg(100000)->Iterations(large)->Unit(benchmark::kMicrosecond)

void LoadSizes(benchmark::internal::Benchmark* b) {
    b->Arg(100000);
    b->Unit(benchmark::kMillisecond);
}

VT_BENCHMARK_SIZED(ContainerStore, 300, 3000);
VT_BENCHMARK_SIZED(IndexFloor, 30, 30);
BENCHMARK(SqliteNormalStore)->Apply(Sizes);
BENCHMARK(SqliteFullStore)->Apply(Sizes);
BENCHMARK(LmdbStore)->Apply(Sizes);
BENCHMARK(ContainerQuery)->Apply(Sizes);
BENCHMARK(ContainerLoad)->Apply(LoadSizes);
BENCHMARK(SqliteArchivedQuery)->Apply(Sizes);
BENCHMARK(SqliteQuery)->Apply(Sizes);
BENCHMARK(LmdbQuery)->Apply(Sizes);

}  // namespace

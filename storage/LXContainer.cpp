// The storage layer of LXContainer: opening, blocks, the index and its
// file. The object layer is in LXContainerQueries.cpp.
#include "storage/LXContainer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "foundation/NSArray.h"
#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSData.h"
#include "foundation/NSSet.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "foundation/platform/Platform.h"
#include "storage/LXChecksum.h"
#include "storage/LXDataKey.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"

namespace {

// The key of every block of a data file.
NSString* blockKey() { return LXDataKey(); }

constexpr int32_t kOpenEnd = 0x7FFFFFFF;

// The fault layer of the tests: counts down file writes, and the one that
// reaches zero fails.
int gWriteFault = 0;

bool faultNow() {
    if (gWriteFault <= 0) return false;
    return --gWriteFault == 0;
}

// The crash layer of the tests: counts down steps of writing; the step that
// reaches zero ends the process, a write after putting down part of its
// bytes. Atomic, since the transceiver's thread writes too.
std::atomic<int> gCrashAt{0};
int gCrashPart = 500;

// True when this step is the last one: *length is then the part to write.
bool dyingStep(size_t* length) {
    if (gCrashAt.load() <= 0 || --gCrashAt != 0) return false;
    if (length) *length = *length * static_cast<size_t>(gCrashPart) / 1000;
    return true;
}

[[noreturn]] void die() { std::_Exit(LXContainer::kCrashStatusForTesting); }

// A rename or a removal as a step of writing.
int stepRename(const std::string& from, const std::string& to) {
    if (dyingStep(nullptr)) die();
    return std::rename(from.c_str(), to.c_str());
}

bool stepRemove(const std::string& path) {
    if (dyingStep(nullptr)) die();
    return vtRemoveFile(path.c_str());
}

// Writes all of `bytes` to a new file at `path`.
bool writeWholeFile(const std::string& path, const char* bytes, size_t length) {
    if (faultNow()) return false;
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    size_t part = length;
    bool dying = dyingStep(&part);
    bool ok = std::fwrite(bytes, 1, part, f) == part;
    if (std::fclose(f) != 0) ok = false;
    if (dying) die();
    return ok;
}

// A key entered in the index is a plain NSString, as the pieces of a key
// path are: the archive names a constant string's class differently.
NSString* plainString(NSString* constant) {
    return NSString::stringWithUTF8String_(constant->UTF8String());
}

NSString* idString(int identifier) { return NSString::stringWithFormat_("%d", identifier); }

// The length of a file, or -1 when it can't be opened.
long fileLength(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return -1;
    long length = -1;
    if (std::fseek(f, 0, SEEK_END) == 0) length = std::ftell(f);
    std::fclose(f);
    return length;
}

bool isNumber(NSObject* value) { return value && value->isKindOfClass_(NSNumber::classObject()); }

bool isDictionary(NSObject* value) {
    return value && value->isKindOfClass_(NSMutableDictionary::classObject());
}

// Whole-number value of a number that is one and fits 32 bits.
bool wholeInt(NSObject* value, int32_t* out) {
    if (!isNumber(value)) return false;
    double d = static_cast<NSNumber*>(value)->doubleValue();
    if (!(d >= -2147483648.0 && d <= 2147483647.0) ||
        d != static_cast<double>(static_cast<int32_t>(d))) {
        return false;
    }
    *out = static_cast<int32_t>(d);
    return true;
}

// An id as the index writes it: the decimal digits of a positive 32-bit
// number, with no sign and no leading zero ("012" would be a second key for
// the id 12).
bool parseIdKey(NSObject* key, int32_t* out) {
    if (!key || !key->isKindOfClass_(NSString::classObject())) return false;
    NSString* text = static_cast<NSString*>(key);
    const char* s = text->UTF8String();
    uint32_t n = text->byteLength();
    if (n == 0 || n > 10 || s[0] == '0') return false;
    int64_t value = 0;
    for (uint32_t i = 0; i < n; i++) {
        if (s[i] < '0' || s[i] > '9') return false;
        value = value * 10 + (s[i] - '0');
    }
    if (value > 0x7FFFFFFF) return false;
    *out = static_cast<int32_t>(value);
    return true;
}

// Whether every key of the level is one of `allowed`; names the first
// stranger in *why when not.
bool hasOnlyKeys(NSDictionary* level, std::initializer_list<const char*> allowed,
                 std::string* why) {
    NSMutableArray* keys = level->allKeys();
    for (uint32_t i = 0; i < keys->count(); i++) {
        NSObject* key = keys->objectAtIndex_(i);
        bool known = false;
        if (key->isKindOfClass_(NSString::classObject())) {
            const char* text = static_cast<NSString*>(key)->UTF8String();
            for (const char* name : allowed) known = known || std::strcmp(text, name) == 0;
        }
        if (!known) {
            std::string shown = key->isKindOfClass_(NSString::classObject())
                                        ? static_cast<NSString*>(key)->UTF8String()
                                        : key->class_()->name();
            *why = "holds an unknown key '" + shown.substr(0, 40) + "'";
            return false;
        }
    }
    return true;
}

// The archive of an object, in a buffer the caller owns.
NSMutableData* archive(NSObject* object) {
    NSMutableData* buffer = static_cast<NSMutableData*>(NSMutableData::alloc()->init());
    NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(buffer);
    archiver->encodeObject_(object);
    archiver->release();
    return buffer;
}

// Writes all of `data` at `offset` of the data file. A container holding
// nothing may have no data file yet (opening one creates nothing, so that
// readers leave no trace): the first write makes it. With `sync` the bytes
// are on the disk when it answers true.
bool writeAt(const std::string& path, long offset, NSData* data, bool sync) {
    if (faultNow()) return false;
    FILE* f = std::fopen(path.c_str(), "rb+");
    if (!f && errno == ENOENT) f = std::fopen(path.c_str(), "wb+");
    if (!f) return false;
    void* bytes = data->bytes();
    size_t part = data->length();
    bool dying = dyingStep(&part);
    bool ok = std::fseek(f, offset, SEEK_SET) == 0 && std::fwrite(bytes, 1, part, f) == part;
    std::free(bytes);
    // fclose flushes: a failure there (a full disk) is a failed write too.
    if (std::fclose(f) != 0) ok = false;
    if (dying) die();
    return ok && (!sync || vtPathSyncData(path.c_str()));
}

// The directory that holds `path`, for syncing its entries.
std::string directoryOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash + 1);
}

// Moves `from` over `to`. POSIX rename replaces the target in one step;
// where rename refuses an existing target, the target is removed first.
bool replaceFile(const std::string& from, const std::string& to) {
    if (stepRename(from, to) == 0) return true;
    std::remove(to.c_str());
    return stepRename(from, to) == 0;
}

// ---- The journal's bytes (see docs/container-format.md) ----

const char kJournalMagic[4] = {'V', 'C', 'J', '1'};
constexpr uint8_t kStoreEntry = 1;
constexpr uint8_t kRemoveEntry = 2;
constexpr uint8_t kFlagNew = 1;
constexpr uint8_t kFlagTyped = 2;
// op, flags, id, offset, length, type length.
constexpr uint32_t kEntryFixed = 18;
// The journal is written into the index once it is longer than this share
// of the index file, and never while it is shorter than the floor: replay
// at open then costs at most about as much as reading the index.
constexpr int64_t kJournalFloor = 64 * 1024;
constexpr int64_t kJournalShareDivisor = 2;
// A checkpoint compacts the data file when more than half of it and more
// than this many bytes are free.
constexpr int64_t kCompactFloor = 64 * 1024;

void putLE32(std::string* out, uint32_t value) {
    for (int i = 0; i < 4; i++) out->push_back(static_cast<char>(value >> (8 * i)));
}

uint32_t getLE32(const unsigned char* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// One entry: its length, the CRC-32 of its payload, and the payload.
std::string journalEntry(uint8_t op, bool isNew, int identifier, int32_t offset, int32_t length,
                         NSString* type) {
    std::string payload;
    payload.push_back(static_cast<char>(op));
    payload.push_back(static_cast<char>((isNew ? kFlagNew : 0) | (type ? kFlagTyped : 0)));
    putLE32(&payload, static_cast<uint32_t>(identifier));
    putLE32(&payload, static_cast<uint32_t>(offset));
    putLE32(&payload, static_cast<uint32_t>(length));
    uint32_t typeLength = type ? type->byteLength() : 0;
    putLE32(&payload, typeLength);
    if (type) payload.append(type->UTF8String(), typeLength);
    std::string entry;
    putLE32(&entry, static_cast<uint32_t>(payload.size()));
    putLE32(&entry, LXCrc32(payload.data(), payload.size()));
    return entry + payload;
}

// The containers alive, for the checkpoint at the end of the program. Made
// once and never destroyed, so that it outlives every static destructor.
std::mutex& liveMutex() {
    static std::mutex* mutex = new std::mutex;
    return *mutex;
}

std::vector<LXContainer*>& liveContainers() {
    static std::vector<LXContainer*>* live = new std::vector<LXContainer*>;
    return *live;
}

void unregisterLive(LXContainer* container) {
    std::lock_guard<std::mutex> guard(liveMutex());
    auto& live = liveContainers();
    live.erase(std::remove(live.begin(), live.end(), container), live.end());
}

}  // namespace

void LXContainer::failWriteForTesting(int n) { gWriteFault = n; }

void LXContainer::crashAtWriteForTesting(int n, int perMille) {
    gCrashPart = perMille;
    gCrashAt = n;
}

// ---------------------------------------------------------------------------
// Opening.

LXContainer* LXContainer::initWithName_(NSString* name) {
    _name.set(name);
    _lock.adopt(static_cast<NSLock*>(NSLock::alloc()->init()));
    std::string stem = name ? name->UTF8String() : "";
    _indexPath = stem + ".vci";
    _dataPath = stem + ".vcd";
    _journalPath = stem + ".vcj";
    std::string tmpPath = _indexPath + ".tmp";
    std::string compactIndex = _indexPath + ".compact";
    std::string compactData = _dataPath + ".compact";
    {
        std::lock_guard<std::mutex> guard(liveMutex());
        static bool hooked = false;
        if (!hooked) {
            hooked = true;
            // Containers that live to the end of the program (the sheets',
            // the relay's) are never released: their journals are written
            // into the index as the program ends normally.
            // Held throughout, so that no container goes meanwhile (a
            // release takes this lock before the container's own).
            std::atexit([] {
                std::lock_guard<std::mutex> inner(liveMutex());
                for (LXContainer* container : liveContainers()) container->checkpointIfWritten();
            });
        }
        liveContainers().push_back(this);
    }

    bool isDirectory = false;
    if (vtFileStatus(_indexPath.c_str(), &isDirectory)) {
        if (isDirectory) {
            markDamaged("the index is a directory");
            return this;
        }
        openExisting(_indexPath, _dataPath);
    } else if (vtFileStatus(tmpPath.c_str(), nullptr)) {
        // What a stop between removing the old index and renaming the new
        // one leaves (the path taken where rename can't replace a file). The
        // temporary file was complete before the old index went, so it is
        // the committed state: finish the rename, but only once it is known
        // to decode, and never over anything.
        if (!openExisting(tmpPath, _dataPath)) return this;
        if (std::rename(tmpPath.c_str(), _indexPath.c_str()) != 0) {
            markDamaged("the index is missing and its temporary file can't be renamed");
            return this;
        }
        LOG("LXContainer %s: the index was missing; completed the rename of %s", stem.c_str(),
            tmpPath.c_str());
    } else if (vtFileStatus(compactIndex.c_str(), nullptr)) {
        // A compaction stopped after it removed the old index: the new pair
        // was complete by then, and it is the committed state. Finish the
        // two renames (see compactLocked).
        bool dataMoved = !vtFileStatus(compactData.c_str(), nullptr);
        if (!openExisting(compactIndex, dataMoved ? _dataPath : compactData)) return this;
        if ((!dataMoved && !replaceFile(compactData, _dataPath)) ||
            std::rename(compactIndex.c_str(), _indexPath.c_str()) != 0) {
            markDamaged("a compaction stopped and its files can't be renamed");
            return this;
        }
        LOG("LXContainer %s: completed a compaction that had stopped", stem.c_str());
    } else if (fileLength(_dataPath) > 0) {
        // A lost index. Creating a new one would give the blocks' space to
        // new objects: the data stays as it is until an operator decides.
        markDamaged("the data file exists without an index");
    } else {
        createNew();
    }
    return this;
}

void LXContainer::markDamaged(const char* why) {
    _damaged = true;
    LOG("LXContainer %s: damaged store, left untouched: %s", _name ? _name->UTF8String() : "", why);
}

bool LXContainer::createNew() {
    _index.adopt(LXManagedObject::alloc()->init());
    _index->setObject_forKeyPath_(NSNumber::numberWithLong_(0), "meta.filesize"_ns);
    _index->setObject_forKeyPath_(NSNumber::numberWithInt_(0), "meta.maxid"_ns);
    if (!writeIndex()) {
        markDamaged("the index can't be created");
        return false;
    }
    // A journal without its index means nothing: the first append starts
    // the file anew.
    _journalOnDisk = -1;
    FILE* f = std::fopen(_dataPath.c_str(), "wb");
    if (!f) {
        markDamaged("the data file can't be created");
        return false;
    }
    std::fclose(f);
    return true;
}

bool LXContainer::openExisting(const std::string& indexPath, const std::string& dataPath) {
    NSString* path = NSString::stringWithUTF8String_(indexPath.c_str());
    NSObject* root = NSUnarchiver::unarchiveObjectWithFile_(path);
    if (!root || !root->isKindOfClass_(LXManagedObject::classObject())) {
        std::string why = indexPath + " does not decode to a container index";
        markDamaged(why.c_str());
        return false;
    }
    _index.set(static_cast<LXManagedObject*>(root));
    _bucketCache.clear();
    _indexLength = fileLength(indexPath);
    std::string shape;
    if (!loadTables(&shape)) {
        std::string why = indexPath + " " + shape;
        markDamaged(why.c_str());
        return false;
    }
    if (!replayJournal(&shape)) {
        std::string why = indexPath + " with " + _journalPath + " replayed " + shape;
        markDamaged(why.c_str());
        return false;
    }

    long end = _tail;
    long length = fileLength(dataPath);
    // Nothing is stored: a missing data file loses nothing. It is not made
    // here, so that reading a container never creates a file; the next
    // store makes it.
    if (length < 0 && end == 0) length = 0;
    if (length < end) {
        // Blocks beyond the end of the data file are lost or the file is
        // not this index's: refuse rather than fill the gap with new data.
        char why[256];
        std::snprintf(why, sizeof why,
                      "the data file holds %ld bytes, the index places blocks up to %ld",
                      length < 0 ? 0L : length, end);
        markDamaged(why);
        return false;
    }
    if (length < _size) {
        // Only free space behind the last block is gone: nothing stored is
        // lost, and the next store past the end writes the file out again.
        LOG("LXContainer %s: the data file holds %ld bytes, the index recorded %d; the tail held "
            "no object",
            _name->UTF8String(), length, _size);
    }
    return true;
}

bool LXContainer::loadTables(std::string* why) {
    *why = "is not shaped as a container index";
    // Only the levels a container writes. A level under a damaged name
    // would otherwise read as one that is missing, and an index whose
    // block table went missing would give the blocks' space to new objects.
    if (!hasOnlyKeys(_index, {"meta", "objects", "types"}, why)) return false;
    NSObject* meta = _index->objectForKey_("meta"_ns);
    if (!isDictionary(meta) ||
        !hasOnlyKeys(static_cast<NSDictionary*>(meta), {"filesize", "maxid"}, why)) {
        *why = "has no meta level of filesize and maxid";
        return false;
    }
    NSObject* size = static_cast<NSDictionary*>(meta)->objectForKey_("filesize"_ns);
    NSObject* maxId = static_cast<NSDictionary*>(meta)->objectForKey_("maxid"_ns);
    if (!wholeInt(size, &_size) || !wholeInt(maxId, &_maxId) || _size < 0 || _maxId < 0) {
        *why = "holds a meta.filesize or meta.maxid that is no count";
        return false;
    }

    _blocks.clear();
    _gaps.clear();
    _tail = 0;
    NSObject* objects = _index->objectForKey_("objects"_ns);
    if (!objects) {
        // The level comes with the first store and stays.
        if (_maxId != 0 || _size != 0) {
            *why = "has given out ids but has no objects level";
            return false;
        }
    } else {
        if (!isDictionary(objects) ||
            !hasOnlyKeys(static_cast<NSDictionary*>(objects), {"pos", "length"}, why)) {
            return false;
        }
        NSMutableDictionary* positions = objectsLevel("pos"_ns, false);
        NSMutableDictionary* lengths = objectsLevel("length"_ns, false);
        if (!positions || !lengths || positions->count() != lengths->count()) {
            *why = "has no objects.pos and objects.length of the same ids";
            return false;
        }
        NSMutableArray* keys = positions->allKeys();
        for (uint32_t i = 0; i < keys->count(); i++) {
            NSObject* key = keys->objectAtIndex_(i);
            int32_t identifier = 0;
            int32_t offset = 0;
            int32_t length = 0;
            if (!parseIdKey(key, &identifier) ||
                !wholeInt(positions->objectForKey_(key), &offset) ||
                !wholeInt(lengths->objectForKey_(key), &length) || offset < 0 || length <= 0 ||
                offset > kOpenEnd - length || _blocks.count(identifier)) {
                *why = "holds a block entry that is not an id with an offset and a length";
                return false;
            }
            if (identifier > _maxId) {
                *why = "holds id " + std::to_string(identifier) + ", above meta.maxid " +
                       std::to_string(_maxId);
                return false;
            }
            _blocks[identifier] = Block{offset, length};
        }
    }

    // Every type set lists stored ids: a store adds to the set and to the
    // block table in one index write, and a remove takes from both.
    NSObject* types = _index->objectForKey_("types"_ns);
    if (types && !isDictionary(types)) return false;
    NSMutableArray* typeNames = types ? static_cast<NSDictionary*>(types)->allKeys() : nullptr;
    for (uint32_t i = 0, n = typeNames ? typeNames->count() : 0; i < n; i++) {
        NSObject* name = typeNames->objectAtIndex_(i);
        NSObject* set = static_cast<NSDictionary*>(types)->objectForKey_(name);
        if (!name->isKindOfClass_(NSString::classObject()) || !set ||
            !set->isKindOfClass_(NSMutableSet::classObject())) {
            *why = "holds a type that is not a set of ids";
            return false;
        }
        NSArray* members = static_cast<NSSet*>(set)->allObjects();
        for (uint32_t k = 0; k < members->count(); k++) {
            int32_t identifier = 0;
            if (!parseIdKey(members->objectAtIndex_(k), &identifier) ||
                !_blocks.count(identifier)) {
                *why = std::string("lists under type ") +
                       static_cast<NSString*>(name)->UTF8String() + " an object that is not stored";
                return false;
            }
        }
    }

    // The free areas: the gaps between the blocks in order of offset. Two
    // blocks that share bytes can't both be intact, and the first fit that
    // follows from such an index would place new blocks over live ones.
    std::vector<std::pair<int32_t, int32_t>> byOffset;
    byOffset.reserve(_blocks.size());
    for (const auto& entry : _blocks)
        byOffset.emplace_back(entry.second.offset, entry.second.offset + entry.second.length);
    std::sort(byOffset.begin(), byOffset.end());
    for (const auto& block : byOffset) {
        if (block.first < _tail) {
            *why = "places two blocks on the same bytes at " + std::to_string(block.first);
            return false;
        }
        if (block.first > _tail) _gaps.emplace(_tail, block.first - _tail);
        _tail = block.second;
    }
    if (_tail > _size) {
        *why = "places blocks up to " + std::to_string(_tail) + ", beyond its meta.filesize " +
               std::to_string(_size);
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// The index and its file.

NSMutableDictionary* LXContainer::indexLevel(NSString* key, bool create) {
    NSObject* level = _index->objectForKey_(key);
    if (isDictionary(level)) return static_cast<NSMutableDictionary*>(level);
    if (!create) return nullptr;
    NSMutableDictionary* made = NSMutableDictionary::dictionaryWithCapacity_(10);
    _index->setObject_forKey_(made, plainString(key));
    return made;
}

// "objects.pos" and "objects.length" reached without splitting a path: they
// are the levels that every store and read visits.
NSMutableDictionary* LXContainer::objectsLevel(NSString* key, bool create) {
    NSMutableDictionary* objects = indexLevel("objects"_ns, create);
    if (!objects) return nullptr;
    NSObject* level = objects->objectForKey_(key);
    if (isDictionary(level)) return static_cast<NSMutableDictionary*>(level);
    if (!create) return nullptr;
    NSMutableDictionary* made = NSMutableDictionary::dictionaryWithCapacity_(10);
    objects->setObject_forKey_(made, plainString(key));
    return made;
}

// The file is replaced, never rewritten in place: the archive goes to
// "<index>.tmp" in full, and only then is it renamed over the index. POSIX
// rename replaces the target in one step, so there is no moment without an
// index (the remove-then-rename of writeToFile:atomically: has one). Where
// rename refuses an existing target, the old index is removed first, and
// initWithName: completes a rename that a stop interrupted.
//
// No fsync: the promise is that a stopped or killed process loses at most
// the operation in progress, and the kernel keeps what was written when the
// process dies. A checkpoint removes the journal only after the rename, and
// replaying a journal over an index that already holds its changes gives
// that index again, so a stop in between loses nothing.
bool LXContainer::writeIndex() {
    // Reused from write to write (under the lock): the index only grows,
    // so its bytes are not allocated anew at every checkpoint.
    encodeIndex();
    std::string tmpPath = _indexPath + ".tmp";
    if (!writeIndexBytes(tmpPath)) return false;
    // Synchronous, the journal goes only after the index that holds its
    // changes is on the disk under its name, and the blocks it names (a
    // batch's, not yet forced) are there too.
    if (_synchronous && _unsynced && !vtPathSyncData(_dataPath.c_str())) return false;
    if (_synchronous && !vtPathSyncData(tmpPath.c_str())) return false;
    if (!replaceFile(tmpPath, _indexPath)) return false;
    if (_synchronous && !vtPathSyncData(directoryOf(_indexPath).c_str())) return false;
    _indexLength = static_cast<int64_t>(_indexBytes.size());
    // The index on disk no longer names the blocks freed while the journal
    // could not be written: their space may now be reused.
    for (const Block& block : _freedPending) vacate(block.offset, block.length);
    _freedPending.clear();
    return true;
}

bool LXContainer::writeIndexBytes(const std::string& path) {
    return writeWholeFile(path, _indexBytes.data(), _indexBytes.size());
}

void LXContainer::beginBatch() {
    _lock->lock();
    _batchDepth++;
    _lock->unlock();
}

bool LXContainer::endBatch() {
    _lock->lock();
    bool ok = false;
    if (_batchDepth > 0) {
        _batchDepth--;
        ok = _batchDepth > 0 || (!_damaged && (!_journalFailed || checkpointLocked()));
        if (_batchDepth == 0 && _unsynced) {
            _unsynced = false;
            // The blocks first, then the entries; the batch's changes are on
            // the disk only when both are. A journal that is gone was
            // checkpointed into the index, which writeIndex forced.
            bool blocks = vtPathSyncData(_dataPath.c_str());
            bool entries =
                    _journal == kVTInvalidFile ||
                    (vtFileSyncData(_journal) && vtPathSyncData(directoryOf(_journalPath).c_str()));
            if (!blocks || !entries) {
                LOG("LXContainer %s: can't force a batch to the disk", _name->UTF8String());
                ok = false;
            }
        }
    }
    _lock->unlock();
    return ok;
}

bool LXContainer::inBatch() {
    _lock->lock();
    bool open = _batchDepth > 0;
    _lock->unlock();
    return open;
}

// ---------------------------------------------------------------------------
// Free space. freeBlocks derives the free areas from the blocks sorted by
// offset; the same areas are kept here as the index changes, so that a
// store walks only the gaps, not every block. Blocks never share bytes
// (loadTables refuses an index where they do), so the areas are exactly
// the gaps between blocks and the room behind the last one.

void LXContainer::occupy(int32_t offset, int32_t length) {
    int32_t end = offset + length;
    if (offset >= _tail) {
        if (offset > _tail) _gaps.emplace(_tail, offset - _tail);
        _tail = end;
        return;
    }
    auto gap = _gaps.upper_bound(offset);
    --gap;  // first fit only hands out offsets inside a gap
    int32_t gapStart = gap->first;
    int32_t gapEnd = gap->first + gap->second;
    _gaps.erase(gap);
    if (offset > gapStart) _gaps.emplace(gapStart, offset - gapStart);
    if (gapEnd > end) _gaps.emplace(end, gapEnd - end);
}

void LXContainer::vacate(int32_t offset, int32_t length) {
    int32_t start = offset;
    int32_t end = offset + length;
    auto before = _gaps.lower_bound(offset);
    if (before != _gaps.begin()) {
        --before;
        if (before->first + before->second == offset) {
            start = before->first;
            _gaps.erase(before);
        }
    }
    if (end == _tail) {
        _tail = start;
        return;
    }
    auto after = _gaps.find(end);
    if (after != _gaps.end()) {
        end = after->first + after->second;
        _gaps.erase(after);
    }
    _gaps.emplace(start, end - start);
}

int32_t LXContainer::firstFit(int32_t length) const {
    for (const auto& gap : _gaps) {
        if (gap.second >= length) return gap.first;
    }
    return _tail;
}

NSMutableArray* LXContainer::freeBlocks() {
    NSMutableArray* result = NSMutableArray::array();
    for (const auto& gap : _gaps) {
        result->addObject_(NSArray::arrayWithObjects_(NSNumber::numberWithLong_(gap.first),
                                                      NSNumber::numberWithLong_(gap.second),
                                                      nullptr));
    }
    result->addObject_(NSArray::arrayWithObjects_(NSNumber::numberWithLong_(_tail),
                                                  NSNumber::numberWithLong_(kOpenEnd), nullptr));
    return result;
}

long LXContainer::freeBlockForLength_(int length) { return firstFit(length); }

// ---------------------------------------------------------------------------
// Storing, removing, reading.

int LXContainer::store_(LXManagedObject* object) { return store_type_(object, nullptr); }

int LXContainer::store_type_(LXManagedObject* object, NSString* type) {
    if (!object || _damaged) return -1;
    _lock->lock();
    NSObject* existing = object->uniqueId();
    bool isNew = existing == nullptr;
    int identifier = 0;
    if (isNew) {
        if (_maxId == kOpenEnd) {
            // Every id has been given out; a wrapped one would be refused at
            // the next open, so the store is refused now instead.
            _lock->unlock();
            LOG("LXContainer %s: refusing to store a new object: every id up to %d has been given "
                "out",
                _name->UTF8String(), _maxId);
            return -1;
        }
        identifier = _maxId + 1;
        object->setObject_forKeyPath_(NSNumber::numberWithInt_(identifier), "__meta.id"_ns);
        if (type) object->setObject_forKeyPath_(type, "__meta.type"_ns);
    } else {
        identifier = NSSend<int>(existing, NS_SEL("intValue"));
        if (identifier <= 0) {
            // Entered under such an id, the record would make the index
            // unreadable at the next open.
            _lock->unlock();
            LOG("LXContainer %s: refusing to store an object whose id is not a positive number",
                _name->UTF8String());
            return -1;
        }
    }

    NSMutableData* buffer = archive(object);
    buffer->encryptWithKey_(blockKey());
    int32_t length = static_cast<int32_t>(buffer->length());
    // The object's previous block still counts as occupied here, so a new
    // version never lands on the old one.
    int32_t offset = firstFit(length);
    // Synchronous, the block is on the disk before the journal entry that
    // names it; in a batch, both are forced together at its end.
    bool syncNow = _synchronous && _batchDepth == 0;
    bool written = offset <= kOpenEnd - length && writeAt(_dataPath, offset, buffer, syncNow);
    if (written && _synchronous && !syncNow) _unsynced = true;
    buffer->release();
    if (!written) {
        // Nothing reached the index: undo the id, so that a later store
        // gives this object a proper new record (type set included).
        if (isNew) {
            object->removeObjectForKeyPath_("__meta.id"_ns);
            if (type) object->removeObjectForKeyPath_("__meta.type"_ns);
        }
        _lock->unlock();
        LOG("LXContainer %s: can't write a block of %d bytes at %d", _name->UTF8String(), length,
            offset);
        return -1;
    }
    applyStore(identifier, offset, length, isNew, type);
    occupy(offset, length);
    auto old = _blocks.find(identifier);
    bool hadBlock = old != _blocks.end();
    Block previous = hadBlock ? old->second : Block{0, 0};
    _blocks[identifier] = Block{offset, length};
    bool ok = commitChange(
            journalEntry(kStoreEntry, isNew, identifier, offset, length, isNew ? type : nullptr));
    if (hadBlock) releaseBlock(previous, ok);
    compactIfDue();
    _lock->unlock();
    return ok ? identifier : -1;
}

bool LXContainer::remove_(LXManagedObject* object) {
    if (!object || _damaged) return false;
    NSObject* existing = object->uniqueId();
    // An object without an id was never stored: there is nothing to remove
    // and no reason to rewrite the index.
    if (!existing) return false;
    int identifier = NSSend<int>(existing, NS_SEL("intValue"));
    if (identifier <= 0) return false;
    _lock->lock();
    NSObject* typeValue = object->objectForKeyPath_("__meta.type"_ns);
    NSString* type = typeValue && typeValue->isKindOfClass_(NSString::classObject())
                             ? static_cast<NSString*>(typeValue)
                             : nullptr;
    applyRemove(identifier, type);
    auto old = _blocks.find(identifier);
    bool hadBlock = old != _blocks.end();
    Block previous = hadBlock ? old->second : Block{0, 0};
    if (hadBlock) _blocks.erase(old);
    bool ok = commitChange(journalEntry(kRemoveEntry, false, identifier, 0, 0, type));
    if (hadBlock) releaseBlock(previous, ok);
    compactIfDue();
    _lock->unlock();
    return ok;
}

NSData* LXContainer::readBlock(int identifier, FILE* shared) {
    auto found = _blocks.find(identifier);
    if (found == _blocks.end()) return nullptr;
    // "rb", not the update mode: reading must work on a store that the
    // process may not write (an operator's dump of a read-only copy).
    FILE* f = shared ? shared : std::fopen(_dataPath.c_str(), "rb");
    if (!f) return nullptr;
    NSData* block = nullptr;
    uint32_t length = static_cast<uint32_t>(found->second.length);
    void* bytes = std::malloc(length);
    if (bytes && std::fseek(f, found->second.offset, SEEK_SET) == 0 &&
        std::fread(bytes, 1, length, f) == length) {
        block = NSData::dataWithBytes_length_(bytes, length);
    }
    std::free(bytes);
    if (!shared) std::fclose(f);
    return block;
}

LXManagedObject* LXContainer::decodeBlock(NSData* block, int identifier) {
    if (!block) return nullptr;
    block->decryptWithKey_(blockKey());
    NSUnarchiver* reader = NSUnarchiver::alloc()->initForReadingWithData_(block);
    NSObject* object = NSRetain(reader->decodeObject());
    reader->release();
    if (object && !object->isKindOfClass_(LXManagedObject::classObject())) {
        LOG("LXContainer %s: block %d holds a %s, not a managed object", _name->UTF8String(),
            identifier, object->class_()->name());
        object->release();
        return nullptr;
    }
    return static_cast<LXManagedObject*>(NSAutorelease(object));
}

// An id the index doesn't know answers nil (callers only pass ids they got
// from the index, but a record removed meanwhile by another thread must not
// read stale bytes).
LXManagedObject* LXContainer::objectWithId_(int identifier) {
    if (_damaged) return nullptr;
    _lock->lock();
    NSData* block = readBlock(identifier, nullptr);
    _lock->unlock();
    return decodeBlock(block, identifier);
}

NSArray* LXContainer::allIds() { return allIds_(true); }

NSArray* LXContainer::allIds_(bool lock) {
    if (_damaged) return NSMutableArray::array();
    if (lock) _lock->lock();
    NSMutableDictionary* positions = objectsLevel("pos"_ns, false);
    NSArray* ids = positions ? positions->allKeys() : NSMutableArray::array();
    if (lock) _lock->unlock();
    return ids;
}

NSArray* LXContainer::allIdsForType_(NSString* type) { return allIdsForType_locked_(type, true); }

NSArray* LXContainer::allIdsForType_locked_(NSString* type, bool lock) {
    if (_damaged || !type) return NSMutableArray::array();
    if (lock) _lock->lock();
    NSObject* set = _index->objectForKeyPath_("types."_ns->stringByAppendingString_(type));
    NSArray* ids = set && set->isKindOfClass_(NSSet::classObject())
                           ? static_cast<NSSet*>(set)->allObjects()
                           : NSMutableArray::array();
    if (lock) _lock->unlock();
    return ids;
}

// ---------------------------------------------------------------------------
// The journal, checkpoints and compaction.

LXContainer::~LXContainer() {
    unregisterLive(this);
    checkpointIfWritten();
    closeJournal();
}

void LXContainer::checkpointIfWritten() {
    if (!_lock || _damaged) return;
    // A pool of its own: this runs at exit and in releases, where the
    // caller may have none.
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    _lock->lock();
    if ((_wrote || _journalFailed) && !checkpointLocked()) {
        LOG("LXContainer %s: can't write the index; the journal stays", _name->UTF8String());
    }
    _lock->unlock();
    pool->release();
}

void LXContainer::applyStore(int identifier, int32_t offset, int32_t length, bool isNew,
                             NSString* type) {
    NSString* key = idString(identifier);
    if (isNew && type) {
        NSString* path = "types."_ns->stringByAppendingString_(type);
        NSObject* set = _index->objectForKeyPath_(path);
        if (!set || !set->isKindOfClass_(NSMutableSet::classObject())) {
            set = NSMutableSet::set();
            _index->setObject_forKeyPath_(set, path);
        }
        static_cast<NSMutableSet*>(set)->addObject_(key);
        indexKeyChanged(static_cast<NSMutableSet*>(set)->dict(), key);
    }
    NSMutableDictionary* positions = objectsLevel("pos"_ns, true);
    positions->setObject_forKey_(NSNumber::numberWithLong_(offset), key);
    indexKeyChanged(positions, key);
    NSMutableDictionary* lengths = objectsLevel("length"_ns, true);
    lengths->setObject_forKey_(NSNumber::numberWithInt_(length), key);
    indexKeyChanged(lengths, key);
    if (offset + length > _size) {
        _size = offset + length;
        _index->setObject_forKeyPath_(NSNumber::numberWithLong_(_size), "meta.filesize"_ns);
    }
    if (isNew) {
        if (identifier > _maxId) _maxId = identifier;
        _index->setObject_forKeyPath_(NSNumber::numberWithInt_(_maxId), "meta.maxid"_ns);
    }
}

void LXContainer::applyRemove(int identifier, NSString* type) {
    NSString* key = idString(identifier);
    if (type) {
        NSObject* set = _index->objectForKeyPath_("types."_ns->stringByAppendingString_(type));
        if (set && set->isKindOfClass_(NSMutableSet::classObject())) {
            static_cast<NSMutableSet*>(set)->removeObject_(key);
            indexKeyChanged(static_cast<NSMutableSet*>(set)->dict(), key);
        }
    }
    if (NSMutableDictionary* positions = objectsLevel("pos"_ns, false)) {
        positions->removeObjectForKey_(key);
        indexKeyChanged(positions, key);
    }
    if (NSMutableDictionary* lengths = objectsLevel("length"_ns, false)) {
        lengths->removeObjectForKey_(key);
        indexKeyChanged(lengths, key);
    }
}

// Replay stops at the first entry that is cut short, fails its checksum or
// does not parse: what a stop in the middle of an append leaves. Such a
// tail is ignored (the block it pointed at, if any, is free space again)
// and cut off before the next append. Replay writes nothing, so readers of
// a store replay it as its writer does.
bool LXContainer::replayJournal(std::string* why) {
    _journalLength = 0;
    _journalOnDisk = 0;
    FILE* f = std::fopen(_journalPath.c_str(), "rb");
    if (!f) return true;
    std::string bytes;
    char chunk[65536];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes.append(chunk, n);
    std::fclose(f);
    _journalOnDisk = static_cast<int64_t>(bytes.size());
    if (bytes.empty()) return true;
    if (bytes.size() < sizeof kJournalMagic ||
        std::memcmp(bytes.data(), kJournalMagic, sizeof kJournalMagic) != 0) {
        LOG("LXContainer %s: ignoring a journal of %zu bytes without its header",
            _name->UTF8String(), bytes.size());
        return true;
    }
    const unsigned char* p = reinterpret_cast<const unsigned char*>(bytes.data());
    size_t size = bytes.size();
    size_t at = sizeof kJournalMagic;
    int applied = 0;
    while (size - at >= 8) {
        uint32_t length = getLE32(p + at);
        if (length < kEntryFixed || length > size - at - 8) break;
        const unsigned char* e = p + at + 8;
        if (LXCrc32(e, length) != getLE32(p + at + 4)) break;
        uint8_t op = e[0];
        uint8_t flags = e[1];
        int32_t identifier = static_cast<int32_t>(getLE32(e + 2));
        int32_t offset = static_cast<int32_t>(getLE32(e + 6));
        int32_t blockLength = static_cast<int32_t>(getLE32(e + 10));
        uint32_t typeLength = getLE32(e + 14);
        if (typeLength != length - kEntryFixed || identifier <= 0 ||
            (!(flags & kFlagTyped) && typeLength != 0))
            break;
        NSString* type = nullptr;
        if (flags & kFlagTyped) {
            std::string text(reinterpret_cast<const char*>(e + kEntryFixed), typeLength);
            type = NSString::stringWithUTF8String_(text.c_str());
        }
        if (op == kStoreEntry) {
            if (offset < 0 || blockLength <= 0 || offset > kOpenEnd - blockLength) break;
            applyStore(identifier, offset, blockLength, (flags & kFlagNew) != 0, type);
        } else if (op == kRemoveEntry) {
            applyRemove(identifier, type);
        } else {
            break;
        }
        applied++;
        at += 8 + length;
    }
    _journalLength = static_cast<int64_t>(at);
    if (at < size) {
        LOG("LXContainer %s: ignoring a damaged journal tail of %zu bytes at offset %zu",
            _name->UTF8String(), size - at, at);
    }
    return applied == 0 || loadTables(why);
}

void LXContainer::closeJournal() {
    if (_journal == kVTInvalidFile) return;
    vtFileClose(_journal);
    _journal = kVTInvalidFile;
}

bool LXContainer::appendJournal(const std::string& entry) {
    bool ok = !faultNow();
    // A journal made anew must have its name on the disk too, not only
    // its bytes.
    bool created = _journalLength == 0;
    if (ok && _journal == kVTInvalidFile) {
        _journal = vtFileOpenForAppend(_journalPath.c_str());
        // A torn tail, or a journal that belongs to no index, goes first.
        ok = _journal != kVTInvalidFile &&
             (_journalOnDisk == _journalLength ||
              vtFileTruncate(_journal, static_cast<uint64_t>(_journalLength)));
        if (ok) _journalOnDisk = _journalLength;
    }
    if (ok) {
        std::string bytes = _journalLength == 0
                                    ? std::string(kJournalMagic, sizeof kJournalMagic) + entry
                                    : entry;
        size_t part = bytes.size();
        bool dying = dyingStep(&part);
        ok = vtFileAppend(_journal, bytes.data(), static_cast<uint32_t>(part));
        if (dying) die();
        if (ok && _synchronous) {
            if (_batchDepth > 0) {
                _unsynced = true;
            } else {
                ok = vtFileSyncData(_journal) &&
                     (!created || vtPathSyncData(directoryOf(_journalPath).c_str()));
            }
        }
        if (ok) {
            _journalLength += static_cast<int64_t>(bytes.size());
            _journalOnDisk = _journalLength;
            _wrote = true;
        }
    }
    if (!ok) {
        // Part of the entry may be in the file: the whole index is written
        // at the next change instead, and the journal starts anew after it.
        closeJournal();
        _journalOnDisk = -1;
        _journalFailed = true;
        LOG("LXContainer %s: can't write to %s", _name->UTF8String(), _journalPath.c_str());
    }
    return ok;
}

// A checkpoint here may not compact: the caller still holds the place of
// the block its change freed, which a compaction would give to another
// block; it compacts once it has let go of it (compactIfDue).
bool LXContainer::commitChange(const std::string& entry) {
    if (_journalFailed) return _compactionDue = writeCheckpoint();
    if (!appendJournal(entry)) return false;
    int64_t due = std::max(kJournalFloor, _indexLength / kJournalShareDivisor);
    if (_journalLength > due && !(_compactionDue = writeCheckpoint())) {
        // The change is in the journal; the next one tries again.
        LOG("LXContainer %s: can't write the index; the journal grows on", _name->UTF8String());
    }
    return true;
}

void LXContainer::releaseBlock(const Block& block, bool committed) {
    if (committed) {
        vacate(block.offset, block.length);
    } else {
        _freedPending.push_back(block);
    }
}

bool LXContainer::checkpoint() {
    if (_damaged) return false;
    _lock->lock();
    bool ok = checkpointLocked();
    _lock->unlock();
    return ok;
}

bool LXContainer::checkpointLocked() {
    if (!writeCheckpoint()) return false;
    _compactionDue = true;
    compactIfDue();
    return true;
}

bool LXContainer::writeCheckpoint() {
    if (!writeIndex()) return false;
    closeJournal();
    bool gone = !vtFileStatus(_journalPath.c_str(), nullptr) || stepRemove(_journalPath);
    _journalLength = 0;
    _journalOnDisk = gone ? 0 : -1;
    _journalFailed = false;
    _wrote = false;
    return true;
}

void LXContainer::compactIfDue() {
    if (!_compactionDue) return;
    _compactionDue = false;
    int64_t live = 0;
    for (const auto& entry : _blocks) live += entry.second.length;
    int64_t unused = int64_t(_size) - live;
    // Compaction moves blocks, so no journal naming the old places may
    // outlive it: only right after a checkpoint that removed it.
    if (_journalOnDisk == 0 && _journalLength == 0 && unused > kCompactFloor && unused * 2 > _size)
        compactLocked();
}

bool LXContainer::compact() {
    if (_damaged) return false;
    _lock->lock();
    bool ok = checkpointLocked() && _journalOnDisk == 0 && compactLocked();
    _lock->unlock();
    return ok;
}

// Compaction writes a fresh pair beside the old one and then swaps them:
//
//   1. the live blocks, in order of offset, without gaps, to <stem>.vcd.compact;
//   2. the index that places them there to <stem>.vci.compact;
//   3. <stem>.vci is removed;
//   4. <stem>.vcd.compact is renamed over <stem>.vcd;
//   5. <stem>.vci.compact is renamed to <stem>.vci.
//
// Step 3 is the moment of commitment. Before it the old pair stands and is
// what opens, whatever .compact files lie beside it (the next compaction
// overwrites them). After it, an open that finds no index but an index's
// .compact file finishes steps 4 and 5 itself: the new pair was complete
// before the old index went. The data file is renamed before the index, so
// that an index file never stands beside a data file that is not its own.
// The journal was removed by the checkpoint before step 1 and is empty.
bool LXContainer::compactLocked() {
    std::string compactData = _dataPath + ".compact";
    std::string compactIndex = _indexPath + ".compact";
    std::vector<std::pair<int32_t, int>> order;
    order.reserve(_blocks.size());
    for (const auto& entry : _blocks) order.emplace_back(entry.second.offset, entry.first);
    std::sort(order.begin(), order.end());

    // 1. The data.
    std::string copied;
    std::unordered_map<int, int32_t> placed;
    FILE* in = std::fopen(_dataPath.c_str(), "rb");
    // A container that holds nothing may have no data file yet.
    bool ok = in != nullptr || order.empty();
    for (const auto& item : order) {
        if (!ok) break;
        const Block& block = _blocks[item.second];
        placed[item.second] = static_cast<int32_t>(copied.size());
        size_t at = copied.size();
        copied.resize(at + static_cast<size_t>(block.length));
        ok = std::fseek(in, block.offset, SEEK_SET) == 0 &&
             std::fread(&copied[at], 1, static_cast<size_t>(block.length), in) ==
                     static_cast<size_t>(block.length);
    }
    if (in) std::fclose(in);
    int32_t oldSize = _size;
    int32_t newSize = static_cast<int32_t>(copied.size());
    ok = ok && writeWholeFile(compactData, copied.data(), copied.size()) &&
         (!_synchronous || vtPathSyncData(compactData.c_str()));

    // 2. The index, changed in memory and changed back should this fail.
    NSMutableDictionary* positions = objectsLevel("pos"_ns, false);
    auto placeBlocks = [&](bool moved) {
        for (const auto& item : order) {
            int32_t offset = moved ? placed[item.second] : item.first;
            NSString* key = idString(item.second);
            positions->setObject_forKey_(NSNumber::numberWithLong_(offset), key);
            indexKeyChanged(positions, key);
        }
        _size = moved ? newSize : oldSize;
        _index->setObject_forKeyPath_(NSNumber::numberWithLong_(_size), "meta.filesize"_ns);
    };
    if (ok) {
        if (positions) placeBlocks(true);
        encodeIndex();
        ok = writeIndexBytes(compactIndex) &&
             (!_synchronous || vtPathSyncData(compactIndex.c_str()));
        if (!ok && positions) placeBlocks(false);
    }
    // 3. The commitment.
    if (ok && !stepRemove(_indexPath)) {
        ok = false;
        if (positions) placeBlocks(false);
    }
    if (!ok) {
        std::remove(compactData.c_str());
        std::remove(compactIndex.c_str());
        encodeIndex();
        LOG("LXContainer %s: can't compact the data file", _name->UTF8String());
        return false;
    }
    // 4 and 5. A failure here leaves what the next open completes; until
    // then this container refuses changes, as a damaged one does.
    if (!replaceFile(compactData, _dataPath) || !replaceFile(compactIndex, _indexPath)) {
        LOG("LXContainer %s: a compaction could not rename its files; the next open completes it",
            _name->UTF8String());
        _damaged = true;
        return false;
    }
    _indexLength = static_cast<int64_t>(_indexBytes.size());
    for (const auto& item : order) _blocks[item.second].offset = placed[item.second];
    _gaps.clear();
    _tail = newSize;
    // No log line: it would come at the end of every program whose store
    // was compacted, and the programs' standard output is their result.
    return true;
}

void LXContainer::setSynchronous_(bool synchronous) {
    _lock->lock();
    _synchronous = synchronous;
    _lock->unlock();
}

NS_CLASS_BEGIN(LXContainer, NSObject)
    NS_METHOD(initWithName_)
    NS_METHOD(store_)
    NS_METHOD(store_type_)
    NS_METHOD(remove_)
    NS_METHOD(objectWithId_)
    NS_METHOD(allIds)
    NS_METHOD(allIds_)
    NS_METHOD(allIdsForType_)
    NS_METHOD(allIdsForType_locked_)
    NS_METHOD(freeBlocks)
    NS_METHOD(freeBlockForLength_)
    NS_CLASS_METHOD(containerWithName_)
    NS_METHOD(idsForClass_)
    NS_METHOD(count_)
    NS_METHOD(queryById_class_)
    NS_METHOD(query_)
    NS_METHOD(set_)
    NS_METHOD(delete_)
    NS_METHOD(releaseCallback_)
    NS_METHOD(mappingSize)
    NS_FIELD(_name)
    NS_FIELD(_index)
    NS_FIELD(_lock)
    NS_FIELD(_size)
    NS_FIELD(_maxId)
NS_CLASS_END(LXContainer)

// The storage layer of LXContainer: opening, blocks, the index and its
// file. The object layer is in LXContainerQueries.cpp.
#include "storage/LXContainer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "foundation/NSArray.h"
#include "foundation/NSData.h"
#include "foundation/NSSet.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "foundation/platform/Platform.h"
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

// A key entered in the index is a plain NSString, as the pieces of a key
// path are: the archive names a constant string's class differently.
NSString* plainString(NSString* constant) { return NSString::stringWithUTF8String_(constant->UTF8String()); }

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

bool isDictionary(NSObject* value) { return value && value->isKindOfClass_(NSMutableDictionary::classObject()); }

// Whole-number value of a number that is one and fits 32 bits.
bool wholeInt(NSObject* value, int32_t* out) {
    if (!isNumber(value)) return false;
    double d = static_cast<NSNumber*>(value)->doubleValue();
    if (!(d >= -2147483648.0 && d <= 2147483647.0) || d != static_cast<double>(static_cast<int32_t>(d))) {
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
bool hasOnlyKeys(NSDictionary* level, std::initializer_list<const char*> allowed, std::string* why) {
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

// Writes all of `data` at `offset` of an existing file.
bool writeAt(const std::string& path, long offset, NSData* data) {
    if (faultNow()) return false;
    FILE* f = std::fopen(path.c_str(), "rb+");
    if (!f) return false;
    void* bytes = data->bytes();
    bool ok = std::fseek(f, offset, SEEK_SET) == 0 &&
              std::fwrite(bytes, 1, data->length(), f) == data->length();
    std::free(bytes);
    // fclose flushes: a failure there (a full disk) is a failed write too.
    if (std::fclose(f) != 0) ok = false;
    return ok;
}

}  // namespace

void LXContainer::failWriteForTesting(int n) { gWriteFault = n; }

// ---------------------------------------------------------------------------
// Opening.

LXContainer* LXContainer::initWithName_(NSString* name) {
    _name.set(name);
    _lock.adopt(static_cast<NSLock*>(NSLock::alloc()->init()));
    std::string stem = name ? name->UTF8String() : "";
    _indexPath = stem + ".vci";
    _dataPath = stem + ".vcd";
    std::string tmpPath = _indexPath + ".tmp";

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
    LOG("LXContainer %s: damaged store, left untouched: %s", _name ? _name->UTF8String() : "",
        why);
}

bool LXContainer::createNew() {
    _index.adopt(LXManagedObject::alloc()->init());
    _index->setObject_forKeyPath_(NSNumber::numberWithLong_(0), "meta.filesize"_ns);
    _index->setObject_forKeyPath_(NSNumber::numberWithInt_(0), "meta.maxid"_ns);
    if (!writeIndex()) {
        markDamaged("the index can't be created");
        return false;
    }
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
    std::string shape;
    if (!loadTables(&shape)) {
        std::string why = indexPath + " " + shape;
        markDamaged(why.c_str());
        return false;
    }

    long end = _tail;
    long length = fileLength(dataPath);
    if (length < 0 && end == 0) {
        // Nothing is stored: a missing data file loses nothing, and it has
        // to exist for the next store to open it for update.
        if (FILE* f = std::fopen(dataPath.c_str(), "wb")) {
            std::fclose(f);
            length = 0;
        }
    }
    if (length < end) {
        // Blocks beyond the end of the data file are lost or the file is
        // not this index's: refuse rather than fill the gap with new data.
        char why[256];
        std::snprintf(why, sizeof why, "the data file holds %ld bytes, the index places blocks up to %ld",
                      length < 0 ? 0L : length, end);
        markDamaged(why);
        return false;
    }
    if (length < _size) {
        // Only free space behind the last block is gone: nothing stored is
        // lost, and the next store past the end writes the file out again.
        LOG("LXContainer %s: the data file holds %ld bytes, the index recorded %d; the tail held no object",
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
    if (!isDictionary(meta) || !hasOnlyKeys(static_cast<NSDictionary*>(meta), {"filesize", "maxid"}, why)) {
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
            if (!parseIdKey(key, &identifier) || !wholeInt(positions->objectForKey_(key), &offset) ||
                !wholeInt(lengths->objectForKey_(key), &length) || offset < 0 || length <= 0 ||
                offset > kOpenEnd - length || _blocks.count(identifier)) {
                *why = "holds a block entry that is not an id with an offset and a length";
                return false;
            }
            if (identifier > _maxId) {
                *why = "holds id " + std::to_string(identifier) + ", above meta.maxid " + std::to_string(_maxId);
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
            if (!parseIdKey(members->objectAtIndex_(k), &identifier) || !_blocks.count(identifier)) {
                *why = std::string("lists under type ") + static_cast<NSString*>(name)->UTF8String() +
                       " an object that is not stored";
                return false;
            }
        }
    }

    // The free areas: the gaps between the blocks in order of offset. Two
    // blocks that share bytes can't both be intact, and the first fit that
    // follows from such an index would place new blocks over live ones.
    std::vector<std::pair<int32_t, int32_t>> byOffset;
    byOffset.reserve(_blocks.size());
    for (const auto& entry : _blocks) byOffset.emplace_back(entry.second.offset, entry.second.offset + entry.second.length);
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
        *why = "places blocks up to " + std::to_string(_tail) + ", beyond its meta.filesize " + std::to_string(_size);
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
// process dies. Syncing each store would cost a disk flush per operation
// and guard against power loss, which the two files cannot survive anyway
// without syncing the data file and its directory too.
bool LXContainer::writeIndex() {
    // Reused from store to store (under the lock): the index only grows,
    // so its bytes are not allocated anew at every store.
    encodeIndex();
    const std::string& buffer = _indexBytes;
    std::string tmpPath = _indexPath + ".tmp";
    bool ok = !faultNow();
    FILE* f = ok ? std::fopen(tmpPath.c_str(), "wb") : nullptr;
    if (f) {
        ok = std::fwrite(buffer.data(), 1, buffer.size(), f) == buffer.size();
        if (std::fclose(f) != 0) ok = false;
    } else {
        ok = false;
    }
    if (!ok) return false;
    if (std::rename(tmpPath.c_str(), _indexPath.c_str()) != 0) {
        std::remove(_indexPath.c_str());
        if (std::rename(tmpPath.c_str(), _indexPath.c_str()) != 0) return false;
    }
    // The index on disk no longer names the blocks a batch freed: their
    // space may now be reused.
    if (_batchDepth == 0) {
        for (const Block& block : _freedInBatch) vacate(block.offset, block.length);
        _freedInBatch.clear();
    }
    return true;
}

void LXContainer::freeBlock(const Block& block) {
    if (_batchDepth > 0 || !_freedInBatch.empty()) {
        _freedInBatch.push_back(block);
    } else {
        vacate(block.offset, block.length);
    }
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
        ok = _batchDepth > 0 || (!_damaged && writeIndex());
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
                                                      NSNumber::numberWithLong_(gap.second), nullptr));
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
            LOG("LXContainer %s: refusing to store a new object: every id up to %d has been given out",
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
    bool written = offset <= kOpenEnd - length && writeAt(_dataPath, offset, buffer);
    buffer->release();
    if (!written) {
        // Nothing reached the index: undo the id, so that a later store
        // gives this object a proper new record (type set included).
        if (isNew) {
            object->removeObjectForKeyPath_("__meta.id"_ns);
            if (type) object->removeObjectForKeyPath_("__meta.type"_ns);
        }
        _lock->unlock();
        LOG("LXContainer %s: can't write a block of %d bytes at %d", _name->UTF8String(), length, offset);
        return -1;
    }
    if (isNew) _maxId = identifier;

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
    occupy(offset, length);
    auto old = _blocks.find(identifier);
    if (old != _blocks.end()) freeBlock(old->second);
    _blocks[identifier] = Block{offset, length};
    if (offset + length > _size) {
        _size = offset + length;
        _index->setObject_forKeyPath_(NSNumber::numberWithLong_(_size), "meta.filesize"_ns);
    }
    if (isNew) _index->setObject_forKeyPath_(NSNumber::numberWithInt_(_maxId), "meta.maxid"_ns);
    bool ok = _batchDepth > 0 || writeIndex();
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
    NSString* key = idString(identifier);
    NSObject* type = object->objectForKeyPath_("__meta.type"_ns);
    if (type && type->isKindOfClass_(NSString::classObject())) {
        NSObject* set = _index->objectForKeyPath_("types."_ns->stringByAppendingString_(static_cast<NSString*>(type)));
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
    auto old = _blocks.find(identifier);
    if (old != _blocks.end()) {
        freeBlock(old->second);
        _blocks.erase(old);
    }
    bool ok = _batchDepth > 0 || writeIndex();
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
    if (bytes && std::fseek(f, found->second.offset, SEEK_SET) == 0 && std::fread(bytes, 1, length, f) == length) {
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
        LOG("LXContainer %s: block %d holds a %s, not a managed object", _name->UTF8String(), identifier,
            object->class_()->name());
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
    NSArray* ids = set && set->isKindOfClass_(NSSet::classObject()) ? static_cast<NSSet*>(set)->allObjects()
                                                                      : NSMutableArray::array();
    if (lock) _lock->unlock();
    return ids;
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

// The archive of a container's index, written straight into a byte string.
//
// Every store rewrites the whole index, so its encoding is the part of a
// store that grows with the container. The index holds only dictionaries,
// sets, strings, numbers and the shared null; for these the bytes are
// produced here without a message per object, and they are exactly the
// bytes NSArchiver writes (tests compare the two). Any other class in the
// tree goes through NSArchiver itself.
//
// The large dictionaries (the block table and the type sets) keep the
// bytes of each bucket from one write to the next. A dictionary's key
// order is its bucket order, and the bucket of a key is its hash modulo
// the bucket count, which never changes; the container reports each key it
// changes (indexKeyChanged), and only those buckets are encoded again.
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/NSArray.h"
#include "foundation/NSData.h"
#include "foundation/NSNull.h"
#include "foundation/NSSet.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "storage/LXContainer.h"
#include "storage/NSArchiver.h"

namespace {

// The bucket table of a dictionary, reached as the class itself reaches
// it: a pointer to the protected member, taken through a derived class.
struct BucketsOf : NSDictionary {
    static constexpr Ref<NSMutableArray> NSDictionary::*kArray = &BucketsOf::_array;
};

void appendField(std::string* out, const void* bytes, uint32_t length) {
    const char prefix[4] = {static_cast<char>(length), static_cast<char>(length >> 8),
                            static_cast<char>(length >> 16), static_cast<char>(length >> 24)};
    out->append(prefix, 4);
    out->append(static_cast<const char*>(bytes), length);
}

void appendName(std::string* out, NSObject* object) {
    const char* name = object->class_()->name();
    appendField(out, name, static_cast<uint32_t>(std::strlen(name)) + 1);
}

void appendNumber(std::string* out, double value) {
    static const char kName[] = "NSNumber";
    appendField(out, kName, sizeof kName);
    uint64_t bits;
    std::memcpy(&bits, &value, 8);
    char bytes[8];
    for (int i = 0; i < 8; i++) bytes[i] = static_cast<char>(bits >> (8 * i));
    appendField(out, bytes, 8);
}

using Caches = std::unordered_map<NSDictionary*, LXContainer::BucketCache>;

void appendObject(std::string* out, NSObject* object, Caches* caches);

void appendBucket(std::string* out, NSObject* slot, Caches* caches) {
    if (slot == NSNull::null()) return;
    NSArray* bucket = static_cast<NSArray*>(slot);
    for (uint32_t i = 0; i + 1 < bucket->count(); i += 2) {
        appendObject(out, bucket->objectAtIndex_(i), caches);
        appendObject(out, bucket->objectAtIndex_(i + 1), caches);
    }
}

void appendDictionaryBody(std::string* out, NSDictionary* dictionary, Caches* caches) {
    appendNumber(out, dictionary->count());
    NSMutableArray* buckets = (dictionary->*BucketsOf::kArray).get();
    uint32_t n = buckets ? buckets->count() : 0;
    auto cached = caches->find(dictionary);
    if (cached == caches->end() || cached->second.bytes.size() != n) {
        for (uint32_t b = 0; b < n; b++) appendBucket(out, buckets->objectAtIndex_(b), caches);
        return;
    }
    LXContainer::BucketCache& cache = cached->second;
    for (uint32_t b = 0; b < n; b++) {
        if (!cache.valid[b]) {
            cache.bytes[b].clear();
            appendBucket(&cache.bytes[b], buckets->objectAtIndex_(b), caches);
            cache.valid[b] = true;
        }
        out->append(cache.bytes[b]);
    }
}

void appendObject(std::string* out, NSObject* object, Caches* caches) {
    if (!object) return;
    Class cls = object->class_();
    if (cls == NSString::classObject() || cls == NSConstantString::classObject() ||
        cls == NSMutableString::classObject()) {
        NSString* string = static_cast<NSString*>(object);
        appendName(out, object);
        uint32_t length =
                static_cast<uint32_t>(strnlen(string->UTF8String(), string->byteLength()));
        appendField(out, string->UTF8String(), length + 1);
    } else if (cls == NSNumber::classObject()) {
        appendNumber(out, static_cast<NSNumber*>(object)->doubleValue());
    } else if (cls == NSMutableDictionary::classObject() || cls == LXManagedObject::classObject()) {
        appendName(out, object);
        appendDictionaryBody(out, static_cast<NSDictionary*>(object), caches);
    } else if (cls == NSMutableSet::classObject()) {
        appendName(out, object);
        appendObject(out, static_cast<NSSet*>(object)->dict(), caches);
    } else if (cls == NSNull::classObject()) {
        appendName(out, object);
        appendNumber(out, 0);
    } else {
        NSMutableData* data = static_cast<NSMutableData*>(NSMutableData::alloc()->init());
        NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(data);
        archiver->encodeObject_(object);
        archiver->release();
        void* bytes = data->bytes();
        out->append(static_cast<const char*>(bytes), data->length());
        std::free(bytes);
        data->release();
    }
}

// Small dictionaries cost less to encode than to keep.
constexpr uint32_t kCachedFrom = 64;

}  // namespace

void LXContainer::indexKeyChanged(NSDictionary* dictionary, NSObject* key) {
    auto cached = _bucketCache.find(dictionary);
    if (cached == _bucketCache.end() || cached->second.bytes.empty()) return;
    cached->second.valid[key->hash() % cached->second.bytes.size()] = false;
}

void LXContainer::encodeIndex() {
    // The dictionaries whose buckets are kept: only those whose every
    // change goes through store:type: and remove:, which report it.
    std::vector<NSDictionary*> large;
    if (NSMutableDictionary* positions = objectsLevel("pos"_ns, false)) large.push_back(positions);
    if (NSMutableDictionary* lengths = objectsLevel("length"_ns, false)) large.push_back(lengths);
    if (NSMutableDictionary* types = indexLevel("types"_ns, false)) {
        NSMutableArray* sets = types->allValues();
        for (uint32_t i = 0; i < sets->count(); i++) {
            NSObject* set = sets->objectAtIndex_(i);
            if (set->isKindOfClass_(NSMutableSet::classObject()))
                large.push_back(static_cast<NSSet*>(set)->dict());
        }
    }
    for (NSDictionary* dictionary : large) {
        uint32_t buckets = dictionary->bucketCount();
        if (dictionary->count() < kCachedFrom || _bucketCache.count(dictionary)) continue;
        BucketCache& cache = _bucketCache[dictionary];
        cache.dictionary.set(dictionary);
        cache.bytes.resize(buckets);
        cache.valid.assign(buckets, false);
    }
    _indexBytes.clear();
    appendObject(&_indexBytes, _index, &_bucketCache);
}

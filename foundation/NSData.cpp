#include "NSData.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "NSString.h"

namespace {
constexpr uint32_t kInitialCapacity = 1024;
constexpr uint32_t kChunk = 4096;
// The largest block that doubling from 1024 reaches in 32 bits.
constexpr uint32_t kLargestCapacity = 0x80000000u;
}  // namespace

NSData::~NSData() { std::free(_buffer); }

NSData* NSData::init() {
    std::free(_buffer);
    _buffer = static_cast<uint8_t*>(std::malloc(kInitialCapacity));
    _size = 0;
    _capacity = kInitialCapacity;
    return this;
}

NSData* NSData::data() { return NSAutorelease(alloc()->init()); }

void NSData::enlarge() {
    // An instance that never saw init has no block yet: it starts at 1024,
    // so that the capacity stays 1024 times a power of two.
    uint32_t grown = _capacity ? _capacity * 2 : kInitialCapacity;
    uint8_t* block = static_cast<uint8_t*>(std::malloc(grown));
    if (_size) std::memcpy(block, _buffer, _size);
    std::free(_buffer);
    _buffer = block;
    _capacity = grown;
}

void NSData::reserve(uint32_t needed) {
    if (needed > kLargestCapacity) NSFatalProgramError("NSData", false, "data of more than 2 GiB");
    while (_capacity < needed) enlarge();
}

void NSData::appendRaw(const void* bytes, uint32_t length) {
    if (!length) return;
    if (uint64_t(_size) + length > kLargestCapacity)
        NSFatalProgramError("NSData", false, "data of more than 2 GiB");
    reserve(_size + length);
    std::memcpy(_buffer + _size, bytes, length);
    _size += length;
}

NSData* NSData::initWithBytes_length_(const void* bytes, uint32_t length) {
    init();
    appendRaw(bytes, length);
    return this;
}

NSData* NSData::dataWithBytes_length_(const void* bytes, uint32_t length) {
    return NSAutorelease(alloc()->initWithBytes_length_(bytes, length));
}

NSData* NSData::initWithData_(NSData* data) {
    init();
    NSData* other = NSDynamicCast<NSData>(data);
    if (other) appendRaw(other->_buffer, other->_size);
    return this;
}

NSData* NSData::dataWithData_(NSData* other) {
    return NSAutorelease(alloc()->initWithData_(other));
}

NSData* NSData::initWithContentsOfFile_(NSString* path) {
    init();
    std::FILE* file = path ? std::fopen(path->UTF8String(), "rb") : nullptr;
    // A missing file and an empty one look the same: empty data, not nil.
    if (!file) return this;
    reserve(kChunk);
    for (;;) {
        if (_capacity - _size < kChunk) enlarge();
        size_t got = std::fread(_buffer + _size, 1, kChunk, file);
        _size += static_cast<uint32_t>(got);
        // fread answers a short count only at the end of the file or on a
        // read error; both end the reading.
        if (got < kChunk) break;
    }
    std::fclose(file);
    return this;
}

NSData* NSData::dataWithContentsOfFile_(NSString* path) {
    return NSAutorelease(alloc()->initWithContentsOfFile_(path));
}

bool NSData::writeToFile_atomically_(NSString* path, bool atomically) {
    if (!path) return false;
    std::string target = path->UTF8String();
    if (atomically) target += ".tmp";
    std::FILE* file = std::fopen(target.c_str(), "wb");
    if (!file) return false;
    size_t written = _size ? std::fwrite(_buffer, 1, _size, file) : 0;
    // The runtime library buffers writes, so a full disk often shows only
    // when the buffer is flushed at fclose: a failed close counts as bytes
    // not written. Either way the ".tmp" file stays behind.
    bool closed = std::fclose(file) == 0;
    if (written < _size || !closed) return false;
    if (!atomically) return true;
#ifdef _WIN32
    // The Windows runtime library's rename refuses an existing target, so
    // the old file goes first; a crash in between leaves only the ".tmp".
    std::remove(path->UTF8String());
#endif
    // POSIX rename(2) replaces an existing target atomically: the path holds
    // the old contents or the new ones at every moment. Removing the old file
    // first would only open a window in which the path holds nothing, so on
    // POSIX (the Winelib build included, which uses the C library's rename)
    // the old file stays in place until the rename.
    return std::rename(target.c_str(), path->UTF8String()) == 0;
}

void* NSData::bytes() {
    // At least one byte, so that even empty data gives a real block that
    // the caller frees like any other.
    void* copy = std::malloc(_size ? _size : 1);
    if (_size) std::memcpy(copy, _buffer, _size);
    return copy;
}

void NSData::getBytes_range_(void* buffer, _NSRange range) {
    if (range.length) std::memcpy(buffer, _buffer + range.location, range.length);
}

NSData* NSData::subdataWithRange_(_NSRange range) {
    return NSData::dataWithBytes_length_(_buffer + range.location, range.length);
}

NSObject* NSData::mutableCopyWithZone_(NSZone*) {
    return NSMutableData::alloc()->initWithBytes_length_(_buffer, _size);
}

// ---------------------------------------------------------------------------

NSMutableData* NSMutableData::data() {
    return static_cast<NSMutableData*>(NSAutorelease(alloc()->init()));
}

NSMutableData* NSMutableData::dataWithBytes_length_(const void* bytes, uint32_t length) {
    return static_cast<NSMutableData*>(
            NSAutorelease(alloc()->initWithBytes_length_(bytes, length)));
}

NSMutableData* NSMutableData::dataWithData_(NSData* other) {
    return static_cast<NSMutableData*>(NSAutorelease(alloc()->initWithData_(other)));
}

NSMutableData* NSMutableData::dataWithContentsOfFile_(NSString* path) {
    return static_cast<NSMutableData*>(NSAutorelease(alloc()->initWithContentsOfFile_(path)));
}

void NSMutableData::appendData_(NSData* data) {
    NSData* other = NSDynamicCast<NSData>(data);
    if (!other) return;
    uint32_t length = other->_size;
    if (!length) return;
    if (uint64_t(_size) + length > kLargestCapacity)
        NSFatalProgramError("NSMutableData", false, "data of more than 2 GiB");
    reserve(_size + length);
    // Read the source's block only now: when it is the receiver itself,
    // reserve may just have replaced it.
    std::memcpy(_buffer + _size, other->_buffer, length);
    _size += length;
}

void NSMutableData::appendBytes_length_(const void* bytes, uint32_t length) {
    // The same as appending a temporary data object of those bytes, without
    // making one: no inner pointer is ever handed out, so the bytes can't
    // lie in the receiver's own block.
    appendRaw(bytes, length);
}

NSObject* NSMutableData::copyWithZone_(NSZone* zone) { return mutableCopyWithZone_(zone); }

NS_CLASS_BEGIN(NSData, NSObject)
    NS_METHOD(init)
    NS_CLASS_METHOD(data)
    NS_METHOD(enlarge)
    NS_METHOD(initWithBytes_length_)
    NS_CLASS_METHOD(dataWithBytes_length_)
    NS_METHOD(initWithData_)
    NS_CLASS_METHOD(dataWithData_)
    NS_METHOD(initWithContentsOfFile_)
    NS_CLASS_METHOD(dataWithContentsOfFile_)
    NS_METHOD(writeToFile_atomically_)
    NS_METHOD(length)
    NS_METHOD(bytes)
    NS_METHOD(getBytes_range_)
    NS_METHOD(subdataWithRange_)
    NS_METHOD(mutableCopyWithZone_)
    NS_FIELD(_size)
    NS_FIELD(_capacity)
NS_CLASS_END(NSData)

NS_CLASS_BEGIN(NSMutableData, NSData)
    NS_METHOD(appendData_)
    NS_METHOD(appendBytes_length_)
    NS_METHOD(copyWithZone_)
    NS_CLASS_METHOD(data)
    NS_CLASS_METHOD(dataWithBytes_length_)
    NS_CLASS_METHOD(dataWithData_)
    NS_CLASS_METHOD(dataWithContentsOfFile_)
NS_CLASS_END(NSMutableData)

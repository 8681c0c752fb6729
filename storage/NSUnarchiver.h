// Reads archives. The reader is a trust boundary: archives come from disk
// and from the network, and data deciphered with a wrong key lands here. It
// never reads outside the data, never allocates more than the remaining
// bytes could describe, and never recurses without bound; on the first
// malformed element it logs one line, stops, and every decodeObject of
// this unarchiver answers nil from then on.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "foundation/NSCoder.h"
#include "foundation/Ref.h"

class NSArray;
class NSData;
class NSMutableArray;
class NSString;

class NSUnarchiver : public NSCoder {
    NS_DECLARE_CLASS(NSUnarchiver, NSCoder)

public:
    // Nesting of objects within objects that the reader accepts. Real
    // archives nest a handful of levels (a record, its dictionary, its
    // values); the limit only exists so that a hostile archive cannot
    // overflow the stack, and 1000 levels of three frames each stay well
    // inside the 1 MB stack of a Win32 thread.
    static constexpr uint32_t kMaxDepth = 1000;

    // Retains the data and reads from position 0. The bytes are taken once
    // here: a later change to the data (the cipher works in place) does not
    // reach this reader.
    NSUnarchiver* initForReadingWithData_(NSData* data);
    // One object; it lives as long as the unarchiver (retain it to keep it
    // longer). nil for an object of a class without a body ("initWithCoder
    // -- abstract!"), and for a malformed archive, with one log line that
    // starts with "NSUnarchiver: ".
    NSObject* decodeObject() override;
    // A new malloc'd block with the field's bytes (at least one byte long,
    // so that it is never null for an empty field); the caller frees it.
    // null with *length 0 when the field runs past the end.
    void* decodeBytesWithReturnedLength_(uint32_t* length) override;
    // Appends the object to decodedObjects and gives up the caller's
    // reference; answers the object.
    NSObject* addToDecodedObjects_(NSObject* object);
    // The file's one object, retained and autoreleased; nil for a missing
    // or empty file and for one that does not decode.
    static NSObject* unarchiveObjectWithFile_(NSString* path);

    uint32_t pos() const { return _pos; }
    NSMutableArray* decodedObjects() { return _decodedObjects.get(); }

    bool decodingFailed() override { return _failed; }
    void failDecoding(const char* reason) override;
    uint32_t bytesLeft() override { return _length - _pos; }
    void didDecodeKey_forDictionary(NSObject* key, NSDictionary* dictionary) override;

    // Keeps the order in which each dictionary's keys stood in the archive
    // (a dictionary read back lists them by its own bucket order), for
    // tools that show an archive as it is. Off by default.
    void recordKeyOrder() { _recordKeys = true; }
    // The keys of a dictionary decoded by this unarchiver in archive order,
    // or null when it was not recorded.
    const std::vector<NSObject*>* keysInArchiveOrder(NSDictionary* dictionary) const;

    NSUnarchiver() = default;

protected:
    ~NSUnarchiver() override;

private:
    // Points at the next field's bytes and moves past them, or fails.
    const char* readField(uint32_t* length);
    void fail(const char* format, ...) __attribute__((format(printf, 2, 3)));

    Ref<NSData> _data;
    uint32_t _pos = 0;
    Ref<NSMutableArray> _decodedObjects;
    unsigned char* _bytes = nullptr;  // malloc'd copy of the data
    uint32_t _length = 0;
    uint32_t _fieldStart = 0;  // where the last field began, for log lines
    uint32_t _depth = 0;
    bool _failed = false;
    bool _recordKeys = false;
    std::unordered_map<NSDictionary*, std::vector<NSObject*>> _keyOrder;
};

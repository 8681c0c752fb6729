// Writes archives: a plain recursive dump of a tree of objects. Each object
// is its class name as a string field, then the body its encodeWithCoder:
// writes. The byte format is written down in docs/archive-format.md.
#pragma once

#include <cstdint>
#include <string>

#include "foundation/NSCoder.h"
#include "foundation/Ref.h"

class NSMutableData;
class NSString;

class NSArchiver : public NSCoder {
    NS_DECLARE_CLASS(NSArchiver, NSCoder)

public:
    // Retains the buffer; writing appends behind whatever it holds.
    NSArchiver* initForWritingWithMutableData_(NSMutableData* data);
    // The buffer, holding everything encoded so far.
    NSMutableData* archiverData();
    // The object's class name (its actual class), then its body. nil
    // writes nothing at all. The tree must not have cycles.
    void encodeObject_(NSObject* object) override;
    // The same as encodeObject:.
    void encodeRootObject_(NSObject* object);
    // The 32-bit little-endian length, then the bytes.
    void encodeBytes_length_(const void* bytes, uint32_t length) override;
    // The archive of the object in a new buffer; autoreleased.
    static NSMutableData* archivedDataWithRootObject_(NSObject* object);
    // Encodes into a new buffer and writes it with writeToFile:atomically:
    // set; answers that operation's result.
    static bool archiveRootObject_toFile_(NSObject* object, NSString* path);

    NSArchiver() = default;

protected:
    ~NSArchiver() override;

private:
    void flush();

    Ref<NSMutableData> _data;
    // Bytes gathered during one top-level encodeObject: and appended to
    // _data in one go when it ends; appending field by field to the data
    // object costs a temporary object per field. Nobody can see _data
    // before the outermost call returns, so the result is the same.
    std::string _pending;
    uint32_t _depth = 0;
};

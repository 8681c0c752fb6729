// The coder interface every archive reader and writer shares, and the C++
// hooks through which the bodies of the value classes report a malformed
// archive to the reader. The interface belongs to the foundation, so that
// the value classes can say how they are coded without knowing any format;
// the archive format itself (NSArchiver, NSUnarchiver) is the storage
// layer's.
#pragma once

#include <cstdint>

#include "foundation/NSObject.h"

class NSDictionary;

class NSCoder : public NSObject {
    NS_DECLARE_CLASS(NSCoder, NSObject)

public:
    // The four operations of every coder. Here each one logs
    // "<name> -- abstract!" and does nothing; the decoders answer nil.
    virtual void encodeObject_(NSObject* object);
    virtual NSObject* decodeObject();
    virtual void encodeBytes_length_(const void* bytes, uint32_t length);
    // A malloc'd block the caller frees, its length in *length.
    virtual void* decodeBytesWithReturnedLength_(uint32_t* length);

    // C++ hooks for the bodies of initWithCoder: (not in the class table).
    //
    // True once the archive being read has proved malformed. Every body
    // checks it after each decodeObject and, when set, releases what it
    // built and answers nil, so an error deep inside a tree makes the whole
    // decode answer nil.
    virtual bool decodingFailed() { return false; }
    // Marks the archive malformed; a reader logs the reason once.
    virtual void failDecoding(const char* reason) { (void)reason; }
    // Bytes not yet read: an upper bound for counts, so that an absurd
    // count fails before anything is allocated for it.
    virtual uint32_t bytesLeft() { return UINT32_MAX; }
    // Told each key of a dictionary as it is read, in archive order.
    virtual void didDecodeKey_forDictionary(NSObject* key, NSDictionary* dictionary) {
        (void)key;
        (void)dictionary;
    }

protected:
    ~NSCoder() override = default;
};

// The data cipher: each byte XOR the complement of the low 8 bits of the key
// character at its position modulo the key's length. No salt, no block
// structure, no integrity check; it is its own inverse. Every call starts
// at key position 0, so the framing of the callers (one call per container
// block, file and socket payload) is part of the format.
#include <vector>

#include "foundation/NSData.h"
#include "foundation/NSString.h"
#include "storage/LXDataKey.h"

NSString* LXDataKey() {
    static NSString* const key = NSRetain(NSString::stringWithUTF8String_(kLXDataKey));
    return key;
}

void NSData::encryptWithKey_(NSString* key) {
    // Empty data never looks at the key.
    if (_size == 0) return;
    uint32_t keyLength = key ? key->length() : 0;
    // The system's keys are never empty; an empty key has no key stream,
    // and leaving the bytes alone is the one answer that neither divides
    // by zero nor invents one.
    if (keyLength == 0) return;
    // The key stream for one period, computed once.
    std::vector<uint8_t> stream(keyLength);
    for (uint32_t k = 0; k < keyLength; k++)
        stream[k] = static_cast<uint8_t>(~key->characterAtIndex_(k));
    uint32_t k = 0;
    for (uint32_t i = 0; i < _size; i++) {
        _buffer[i] ^= stream[k];
        if (++k == keyLength) k = 0;
    }
}

void NSData::decryptWithKey_(NSString* key) {
    // Sent as a message, as the cipher's inverse is the cipher itself.
    NSSend<void>(this, NSSelectorFromCString("encryptWithKey:"), key);
}

NS_EXTEND_CLASS(NSData, Cipher)
NS_METHOD(encryptWithKey_)
NS_METHOD(decryptWithKey_)
NS_EXTEND_END

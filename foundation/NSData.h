// Byte buffers. A data object hands out copies of its bytes, never an inner
// pointer: whoever asks for the bytes owns the block and frees it.
#pragma once

#include <cstdint>

#include "NSObject.h"

class NSMutableData;

class NSData : public NSObject {
    NS_DECLARE_CLASS(NSData, NSObject)

public:
    // Empty, with a block of 1024 bytes.
    NSData* init() override;
    // Autoreleased, empty.
    static NSData* data();
    // Doubles the block: a new one, the old contents copied, the old freed.
    void enlarge();
    // A copy of bytes[0, length). The class form answers it autoreleased.
    NSData* initWithBytes_length_(const void* bytes, uint32_t length);
    static NSData* dataWithBytes_length_(const void* bytes, uint32_t length);
    // A copy of the other's contents; nil gives empty data.
    NSData* initWithData_(NSData* other);
    static NSData* dataWithData_(NSData* other);
    // The whole file; a file that can't be opened gives empty data, not nil.
    NSData* initWithContentsOfFile_(NSString* path);
    static NSData* dataWithContentsOfFile_(NSString* path);
    // Writes the contents to path; with `atomically` through "<path>.tmp",
    // renamed over path at the end. False when the file can't be written.
    bool writeToFile_atomically_(NSString* path, bool atomically);
    uint32_t length() { return _size; }
    // A new block from the runtime library's malloc with a copy of the
    // contents (a block of at least one byte even when empty). The caller
    // owns it and frees it with free.
    void* bytes();
    // Copies the range into buffer. The range is not checked.
    void getBytes_range_(void* buffer, _NSRange range);
    // Autoreleased data with the bytes of the range. Not checked either.
    NSData* subdataWithRange_(_NSRange range);
    // A new NSMutableData with the same contents, owned by the caller.
    NSObject* mutableCopyWithZone_(NSZone* zone) override;
    // The cipher works on the contents in place (storage/NSDataCipher.cpp).
    void encryptWithKey_(NSString* key);
    void decryptWithKey_(NSString* key);
    // Archiving (storage/ValueCoding.cpp).
    void encodeWithCoder_(NSCoder* coder) override;
    NSObject* initWithCoder_(NSCoder* coder) override;

    // The size of the block; only ever 1024 times a power of two.
    uint32_t capacity() const { return _capacity; }

protected:
    // Mutable data reads the block of any data object it appends.
    friend class NSMutableData;
    ~NSData() override;
    // Enlarges until the block holds `needed` bytes.
    void reserve(uint32_t needed);
    void appendRaw(const void* bytes, uint32_t length);

    uint8_t* _buffer = nullptr;  // owned, malloc'd
    uint32_t _size = 0;
    uint32_t _capacity = 0;
};

class NSMutableData : public NSData {
    NS_DECLARE_CLASS(NSMutableData, NSData)

public:
    // The class forms of NSData, answering mutable data.
    static NSMutableData* data();
    static NSMutableData* dataWithBytes_length_(const void* bytes, uint32_t length);
    static NSMutableData* dataWithData_(NSData* other);
    static NSMutableData* dataWithContentsOfFile_(NSString* path);

    // Enlarges as needed, then copies the other's bytes behind the current
    // ones. Appending the receiver to itself doubles it; nil appends nothing.
    void appendData_(NSData* other);
    void appendBytes_length_(const void* bytes, uint32_t length);
    // As mutableCopyWithZone:: a new, independent NSMutableData.
    NSObject* copyWithZone_(NSZone* zone) override;
};

#include "NSArchiver.h"

#include <cstring>

#include "foundation/NSData.h"
#include "foundation/NSString.h"

NSArchiver::~NSArchiver() = default;

NSArchiver* NSArchiver::initForWritingWithMutableData_(NSMutableData* data) {
    _data.set(data);
    return this;
}

NSMutableData* NSArchiver::archiverData() {
    flush();
    return _data.get();
}

void NSArchiver::flush() {
    if (_pending.empty()) return;
    if (_data) _data->appendBytes_length_(_pending.data(), static_cast<uint32_t>(_pending.size()));
    _pending.clear();
}

void NSArchiver::encodeObject_(NSObject* object) {
    if (!object) return;
    _depth++;
    // The class name is the text the run-time knows for the object's actual
    // class: what className would answer, without making a string for it.
    const char* name = object->class_()->name();
    encodeBytes_length_(name, static_cast<uint32_t>(std::strlen(name)) + 1);
    object->encodeWithCoder_(this);
    if (--_depth == 0) flush();
}

void NSArchiver::encodeRootObject_(NSObject* object) { encodeObject_(object); }

void NSArchiver::encodeBytes_length_(const void* bytes, uint32_t length) {
    const unsigned char prefix[4] = {
            static_cast<unsigned char>(length), static_cast<unsigned char>(length >> 8),
            static_cast<unsigned char>(length >> 16), static_cast<unsigned char>(length >> 24)};
    _pending.append(reinterpret_cast<const char*>(prefix), 4);
    if (length) _pending.append(static_cast<const char*>(bytes), length);
    if (_depth == 0) flush();
}

NSMutableData* NSArchiver::archivedDataWithRootObject_(NSObject* object) {
    Ref<NSMutableData> data = NSMake<NSMutableData>();
    NSMake<NSArchiver>(&NSArchiver::initForWritingWithMutableData_, data.get())
            ->encodeRootObject_(object);
    return NSAutorelease(data.leak());
}

bool NSArchiver::archiveRootObject_toFile_(NSObject* object, NSString* path) {
    return archivedDataWithRootObject_(object)->writeToFile_atomically_(path, true);
}

NS_CLASS_BEGIN(NSArchiver, NSCoder)
    NS_METHOD(initForWritingWithMutableData_)
    NS_METHOD(archiverData)
    NS_METHOD(encodeObject_)
    NS_METHOD(encodeRootObject_)
    NS_METHOD(encodeBytes_length_)
    NS_CLASS_METHOD(archivedDataWithRootObject_)
    NS_CLASS_METHOD(archiveRootObject_toFile_)
    NS_FIELD(_data)
NS_CLASS_END(NSArchiver)

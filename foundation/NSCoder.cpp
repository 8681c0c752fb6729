#include "NSCoder.h"

void NSCoder::encodeObject_(NSObject*) { LOG("encodeObject -- abstract!"); }

NSObject* NSCoder::decodeObject() {
    LOG("decodeObject -- abstract!");
    return nullptr;
}

void NSCoder::encodeBytes_length_(const void*, uint32_t) { LOG("encodeBytes -- abstract!"); }

void* NSCoder::decodeBytesWithReturnedLength_(uint32_t* length) {
    LOG("decodeBytes -- abstract!");
    if (length) *length = 0;
    return nullptr;
}

NS_CLASS_BEGIN(NSCoder, NSObject)
    NS_METHOD(encodeObject_)
    NS_METHOD(decodeObject)
    NS_METHOD(encodeBytes_length_)
    NS_METHOD(decodeBytesWithReturnedLength_)
NS_CLASS_END(NSCoder)

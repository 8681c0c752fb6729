#include "NSUnarchiver.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "foundation/NSArray.h"
#include "foundation/NSData.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSNull.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"

NSUnarchiver::~NSUnarchiver() { std::free(_bytes); }

NSUnarchiver* NSUnarchiver::initForReadingWithData_(NSData* data) {
    _data.set(data);
    _pos = 0;
    _decodedObjects.adopt(NSMutableArray::alloc()->initWithCapacity_(100));
    std::free(_bytes);
    _bytes = data ? static_cast<unsigned char*>(data->bytes()) : nullptr;
    _length = data ? data->length() : 0;
    return this;
}

void NSUnarchiver::fail(const char* format, ...) {
    if (_failed) return;
    _failed = true;
    char reason[256];
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(reason, sizeof reason, format, ap);
    va_end(ap);
    LOG("NSUnarchiver: %s", reason);
}

void NSUnarchiver::failDecoding(const char* reason) { fail("%s at byte %u", reason, _fieldStart); }

const char* NSUnarchiver::readField(uint32_t* length) {
    *length = 0;
    if (_failed) return nullptr;
    _fieldStart = _pos;
    if (_length - _pos < 4) {
        fail("length field past the end at byte %u", _pos);
        return nullptr;
    }
    const unsigned char* p = _bytes + _pos;
    uint32_t n = uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
    // Compared without adding, so that no length can wrap around.
    if (n > _length - _pos - 4) {
        fail("field of %u bytes past the end at byte %u", n, _pos);
        return nullptr;
    }
    _pos += 4 + n;
    *length = n;
    return reinterpret_cast<const char*>(p + 4);
}

void* NSUnarchiver::decodeBytesWithReturnedLength_(uint32_t* length) {
    uint32_t n;
    const char* field = readField(&n);
    if (length) *length = n;
    if (!field) return nullptr;
    void* block = std::malloc(n ? n : 1);
    if (n) std::memcpy(block, field, n);
    return block;
}

NSObject* NSUnarchiver::addToDecodedObjects_(NSObject* object) {
    _decodedObjects->addObject_(object);
    NSRelease(object);
    return object;
}

namespace {

// Class names are printed in log lines; an archive may hold any bytes.
std::string printable(const char* name, uint32_t length) {
    std::string out;
    for (uint32_t i = 0; i < length && i < 64; i++) {
        unsigned char c = static_cast<unsigned char>(name[i]);
        out.push_back(c >= 0x20 && c < 0x7F ? static_cast<char>(c) : '?');
    }
    if (length > 64) out += "...";
    return out;
}

// The classes that archives name most, looked up without the run-time's
// lock. Any other name goes to the class table.
Class knownClass(const char* name, uint32_t length) {
    struct Known {
        const char* name;
        Class (*cls)();
    };
    static const Known known[] = {
            {"NSString", &NSString::classObject},
            // A constant string reads back as a plain one.
            {"NSConstantString", &NSString::classObject},
            {"NSMutableString", &NSMutableString::classObject},
            {"NSNumber", &NSNumber::classObject},
            {"NSData", &NSData::classObject},
            {"NSMutableData", &NSMutableData::classObject},
            {"NSArray", &NSArray::classObject},
            {"NSMutableArray", &NSMutableArray::classObject},
            {"NSDictionary", &NSDictionary::classObject},
            {"NSMutableDictionary", &NSMutableDictionary::classObject},
    };
    for (const Known& k : known) {
        if (std::strlen(k.name) == length && std::memcmp(k.name, name, length) == 0) return k.cls();
    }
    return NSClassFromCString(std::string(name, length).c_str());
}

bool hasBody(Class cls) {
    static const SEL sel = NSSelectorFromCString("initWithCoder:");
    static const IMP abstract = NSObject::classObject()->lookupMethod(sel);
    IMP imp = cls->lookupMethod(sel);
    return imp && imp != abstract;
}

}  // namespace

NSObject* NSUnarchiver::decodeObject() {
    if (_failed) return nullptr;
    if (_depth >= kMaxDepth) {
        fail("objects nested deeper than %u at byte %u", kMaxDepth, _pos);
        return nullptr;
    }
    uint32_t start = _pos;
    uint32_t fieldLength;
    const char* field = readField(&fieldLength);
    if (!field) return nullptr;
    // The name is the text up to the first NUL of its field.
    const void* nul = std::memchr(field, 0, fieldLength);
    uint32_t nameLength =
            nul ? static_cast<uint32_t>(static_cast<const char*>(nul) - field) : fieldLength;

    NSObject* result;
    _depth++;
    if (nameLength == 6 && std::memcmp(field, "NSNull", 6) == 0) {
        // The body (a number 0) is read and dropped: it stays among the
        // decoded objects like everything else read.
        decodeObject();
        result = _failed ? nullptr : NSNull::null()->retain();
    } else {
        Class cls = knownClass(field, nameLength);
        if (!cls) {
            // The body cannot be skipped: no length covers it.
            fail("unknown class '%s' at byte %u", printable(field, nameLength).c_str(), start);
            _depth--;
            return nullptr;
        }
        if (!hasBody(cls)) {
            // The stream stays aligned: nothing follows the name. The class
            // is not instantiated at all, since a name from an archive may
            // be any class, and its alloc and dealloc were never meant to
            // run on behalf of a file.
            LOG("initWithCoder -- abstract!");
            result = nullptr;
        } else {
            NSObject* object = cls->alloc();
            result = object ? object->initWithCoder_(this) : nullptr;
            // A body that missed the failure must not hand out a half-read
            // object.
            if (_failed && result) {
                result->release();
                result = nullptr;
            }
        }
    }
    _depth--;
    if (_failed) return nullptr;
    return addToDecodedObjects_(result);
}

void NSUnarchiver::didDecodeKey_forDictionary(NSObject* key, NSDictionary* dictionary) {
    if (_recordKeys) _keyOrder[dictionary].push_back(key);
}

const std::vector<NSObject*>* NSUnarchiver::keysInArchiveOrder(NSDictionary* dictionary) const {
    auto it = _keyOrder.find(dictionary);
    return it == _keyOrder.end() ? nullptr : &it->second;
}

NSObject* NSUnarchiver::unarchiveObjectWithFile_(NSString* path) {
    NSData* data = NSData::dataWithContentsOfFile_(path);
    if (!data || data->length() == 0) return nullptr;
    NSUnarchiver* unarchiver = NSUnarchiver::alloc()->initForReadingWithData_(data);
    NSObject* object = NSRetain(unarchiver->decodeObject());
    unarchiver->release();
    return NSAutorelease(object);
}

NS_CLASS_BEGIN(NSUnarchiver, NSCoder)
    NS_METHOD(initForReadingWithData_)
    NS_METHOD(decodeObject)
    NS_METHOD(decodeBytesWithReturnedLength_)
    NS_METHOD(addToDecodedObjects_)
    NS_CLASS_METHOD(unarchiveObjectWithFile_)
    NS_FIELD(_data)
    NS_FIELD(_pos)
    NS_FIELD(_decodedObjects)
NS_CLASS_END(NSUnarchiver)

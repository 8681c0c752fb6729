#include "NSFileHandle.h"

#include <cstdlib>

#include "NSData.h"
#include "NSString.h"

namespace {

std::FILE* openPath(NSString* path, const char* mode) {
    return path ? std::fopen(path->UTF8String(), mode) : nullptr;
}

}  // namespace

NSFileHandle* NSFileHandle::initForReadingAtPath_(NSString* path) {
    NSObject::init();
    closeFile();
    _file = openPath(path, "rb");
    return this;
}

NSFileHandle* NSFileHandle::initForWritingAtPath_(NSString* path) {
    NSObject::init();
    closeFile();
    _file = openPath(path, "wb");
    return this;
}

NSFileHandle* NSFileHandle::fileHandleForReadingAtPath_(NSString* path) {
    return NSAutorelease(NSFileHandle::alloc()->initForReadingAtPath_(path));
}

NSFileHandle* NSFileHandle::fileHandleForWritingAtPath_(NSString* path) {
    return NSAutorelease(NSFileHandle::alloc()->initForWritingAtPath_(path));
}

void NSFileHandle::writeData_(NSData* contents) {
    NSData* data = NSDynamicCast<NSData>(contents);
    if (!_file || !data) return;
    uint32_t length = data->length();
    void* bytes = data->bytes();
    std::fwrite(bytes, 1, length, _file);
    std::free(bytes);
}

void NSFileHandle::closeFile() {
    if (!_file) return;
    std::fclose(_file);
    _file = nullptr;
}

void NSFileHandle::dealloc() {
    closeFile();
    NSObject::dealloc();
}

NS_CLASS_BEGIN(NSFileHandle, NSObject)
    NS_METHOD(initForReadingAtPath_)
    NS_METHOD(initForWritingAtPath_)
    NS_CLASS_METHOD(fileHandleForReadingAtPath_)
    NS_CLASS_METHOD(fileHandleForWritingAtPath_)
    NS_METHOD(writeData_)
    NS_METHOD(closeFile)
    NS_METHOD(dealloc)
NS_CLASS_END(NSFileHandle)

// libFuzzer entry for the archive reader: each input is decoded as one
// archive, as the CTest fuzz test does with its own mutations. Whatever
// decodes is archived again. Built by scripts/fuzz-archive.sh (clang-14).
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSData.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    if (size > 1 << 20) return 0;
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    NSData* data = NSData::alloc()->initWithBytes_length_(bytes, static_cast<uint32_t>(size));
    NSUnarchiver* unarchiver = NSUnarchiver::alloc()->initForReadingWithData_(data);
    NSObject* object = unarchiver->decodeObject();
    if (object) {
        NSMutableData* out = static_cast<NSMutableData*>(NSMutableData::alloc()->init());
        NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(out);
        archiver->encodeRootObject_(object);
        archiver->release();
        out->release();
    }
    unarchiver->release();
    data->release();
    pool->release();
    return 0;
}

// Benchmarks need containers of many records; storing them one by one would
// write the growing index n times. This writes a container's two files
// directly, in the format of docs/container-format.md, with one bucket per
// entry in the index's dictionaries, as any index has after it is opened.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "foundation/Foundation.h"
#include "storage/LXDataKey.h"
#include "storage/LXManagedObject.h"
#include "storage/NSArchiver.h"

inline std::string bytesOf(NSData* data) {
    void* bytes = data->bytes();
    std::string out(static_cast<char*>(bytes), data->length());
    std::free(bytes);
    return out;
}

// The block of a dictionary record stored under `id` by set:, enciphered,
// byte for byte what the container writes.
inline std::string containerBlock(int id, NSMutableDictionary* record) {
    LXManagedObject* managed = LXManagedObject::managedObject();
    managed->setObject_forKeyPath_(record->valueForKey_("count"_ns), "count"_ns);
    managed->setObject_forKeyPath_(record->valueForKey_("array"_ns), "array"_ns);
    managed->setObject_forKeyPath_(NSNumber::numberWithInt_(id), "__meta.id"_ns);
    managed->setObject_forKeyPath_("NSMutableDictionary"_ns, "__meta.type"_ns);
    NSMutableData* block = NSArchiver::archivedDataWithRootObject_(managed);
    block->encryptWithKey_(LXDataKey());
    return bytesOf(block);
}

// Writes <stem>.vcd and <stem>.vci holding the records make(1) ... make(n)
// under the ids 1 ... n. make answers an autoreleased dictionary.
template <class Make>
void writeContainerInBulk(const std::string& stem, int n, Make make) {
    LXManagedObject* index = LXManagedObject::managedObject();
    NSMutableDictionary* positions = NSMutableDictionary::dictionaryWithCapacity_(n);
    NSMutableDictionary* lengths = NSMutableDictionary::dictionaryWithCapacity_(n);
    NSMutableSet* ids = NSMutableSet::setWithCapacity_(n);
    FILE* data = std::fopen((stem + ".vcd").c_str(), "wb");
    long offset = 0;
    for (int id = 1; id <= n; id++) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        std::string bytes = containerBlock(id, make(id));
        std::fwrite(bytes.data(), 1, bytes.size(), data);
        NSString* key = NSString::stringWithFormat_("%d", id);
        positions->setObject_forKey_(NSNumber::numberWithLong_(offset), key);
        lengths->setObject_forKey_(NSNumber::numberWithInt_(static_cast<int>(bytes.size())), key);
        ids->addObject_(key);
        offset += static_cast<long>(bytes.size());
        inner->release();
    }
    std::fclose(data);
    index->setObject_forKeyPath_(NSNumber::numberWithLong_(offset), "meta.filesize"_ns);
    index->setObject_forKeyPath_(NSNumber::numberWithInt_(n), "meta.maxid"_ns);
    index->setObject_forKeyPath_(positions, "objects.pos"_ns);
    index->setObject_forKeyPath_(lengths, "objects.length"_ns);
    index->setObject_forKeyPath_(ids, "types.NSMutableDictionary"_ns);
    NSArchiver::archiveRootObject_toFile_(index,
                                          NSString::stringWithUTF8String_((stem + ".vci").c_str()));
}

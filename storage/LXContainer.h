// A container: the system's persistent store of objects under integer ids,
// in a pair of files that share a stem. "<stem>.vcd" holds one enciphered
// block per object at arbitrary offsets; "<stem>.vci" is a plain archive of
// the index, which says where each block lies. The index file as last
// replaced is the committed state: blocks are never overwritten while the
// index points at them, and the whole index is rewritten after every
// change. The byte format is written down in docs/container-format.md.
//
// Two layers: the storage layer (store:type:, remove:, objectWithId:) works
// with managed objects; the object layer (set:, delete:, query:) maps plain
// objects, by address, to the managed objects that hold their attributes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/NSDictionary.h"
#include "foundation/NSLock.h"
#include "storage/LXManagedObject.h"

class NSData;
class NSMutableData;

class LXContainer : public NSObject {
    NS_DECLARE_CLASS(LXContainer, NSObject)

public:
    // ---- Storage layer -------------------------------------------------

    // Opens the pair of files of that stem, or creates it when neither the
    // index nor a non-empty data file exists. A store found damaged (an
    // index that does not decode, blocks beyond the end of the data file, a
    // data file without its index) is reported with a log line and opened
    // refusing: it answers no objects, every change fails, and no file is
    // touched. See isDamaged().
    LXContainer* initWithName_(NSString* name);
    // store:type: with a nil type.
    int store_(LXManagedObject* object);
    // Stores the object in a new block, giving it the next id if it has
    // none (and, being new, the type). Answers the id, or -1 when the block
    // or the index could not be written.
    int store_type_(LXManagedObject* object, NSString* type);
    // Removes the object's id from the index. Answers whether the index
    // could be written.
    bool remove_(LXManagedObject* object);
    // A new managed object decoded from the id's block, autoreleased; nil
    // for an id the index doesn't know or a block that doesn't decode.
    LXManagedObject* objectWithId_(int identifier);
    // Id strings, autoreleased, in the order of the index's dictionary or
    // set. The flag says whether to take the lock.
    NSArray* allIds();
    NSArray* allIds_(bool lock);
    NSArray* allIdsForType_(NSString* type);
    NSArray* allIdsForType_locked_(NSString* type, bool lock);
    // The free areas as pairs (offset, length) ordered by offset, the last
    // one of length 0x7FFFFFFF; autoreleased. Caller holds the lock.
    NSMutableArray* freeBlocks();
    // First fit by position over freeBlocks. Caller holds the lock.
    long freeBlockForLength_(int length);

    // ---- Object layer --------------------------------------------------

    // alloc, initWithName:, autorelease.
    static LXContainer* containerWithName_(NSString* name);
    // The same for a container that exists, and nil, with no file touched,
    // when there is none of that stem: no index, no temporary index and no
    // data in a data file. For tools that read: naming a store must not
    // create one.
    static LXContainer* existingContainerWithName_(NSString* name);
    // Ids of the records stored under the class's name (exactly; not its
    // subclasses), autoreleased.
    NSArray* idsForClass_(Class cls);
    uint32_t count_(Class cls);
    // A new plain object of `cls` built from the record, autoreleased; nil
    // when the record can't be read.
    NSObject* queryById_class_(int identifier, Class cls);
    // All objects of the class; the array holds the only references.
    NSMutableArray* query_(Class cls);
    NSMutableArray* query_predicate_(Class cls, class NSPredicate* predicate);  // LXContainerPredicates.cpp
    NSMutableArray* select_type_(class NSPredicate* predicate, NSString* type);
    // Creates or updates the record of the object: store:type:'s result.
    int set_(NSObject* object);
    // Removes the record of an object this container knows; else nothing.
    void delete_(NSObject* object);
    // The release callback of every object handed out or stored: forgets
    // the object's managed object. The record stays.
    void releaseCallback_(NSObject* object);
    uint32_t mappingSize();

    // ---- Beyond the documented interface -------------------------------

    // Whether a record's attributes can be installed in a new object of
    // `cls`. A dictionary takes its count and bucket table as they stand
    // (see queryById:class:), so they must agree: a table of at least one
    // bucket, each the null or a list of key and value pairs, and a count
    // equal to the number of pairs. A set
    // takes a dictionary. Other classes take any value. On false, *why
    // says what is wrong.
    static bool recordFits(LXManagedObject* record, Class cls, std::string* why);

    // True when the store was found damaged at open and is left untouched.
    bool isDamaged() const { return _damaged; }
    NSString* name() { return _name; }
    int32_t size() const { return _size; }
    int32_t maxId() const { return _maxId; }
    // A fault layer for tests: the n-th file write from now (1 = the next
    // one) fails as a full disk would; 0 turns it off. Process-wide.
    static void failWriteForTesting(int n);

    // Bulk loading. The index file is rewritten in full at every change
    // (some 13 ms at 100,000 records), so many changes in a row are made
    // inside a batch: between beginBatch and endBatch, store:type: and
    // remove: write their blocks and change the index in memory as usual,
    // but leave the index file alone; endBatch writes it once and answers
    // whether that worked. Batches nest; only the outermost endBatch
    // writes. endBatch without a batch answers false and writes nothing.
    //
    // Inside a batch, store:type: answers the id once its block is written,
    // and this process reads the changes at once. Another opener of the
    // files sees none of them before endBatch: the index file on disk is
    // still the one from before the batch.
    //
    // A stop inside a batch therefore loses all of the batch's changes, and
    // only those: at the next open the container is as it was before
    // beginBatch, and the batch's new blocks lie in space the old index
    // counts as free. To keep the old index's blocks intact until then, the
    // space of a block freed inside the batch (an object stored again or
    // removed) is not reused before the index that no longer names it is
    // written. A failed endBatch keeps the changes in memory, as a failed
    // store does; the next successful index write carries them.
    void beginBatch();
    bool endBatch();
    bool inBatch();

    // The encoded bytes of each bucket of one index dictionary (see
    // LXContainerArchive.cpp).
    struct BucketCache {
        Ref<NSDictionary> dictionary;  // held, so that its address stays its own
        std::vector<std::string> bytes;
        std::vector<bool> valid;
    };

protected:
    ~LXContainer() override = default;

private:
    struct Block {
        int32_t offset;
        int32_t length;
    };

    bool openExisting(const std::string& indexPath, const std::string& dataPath);
    bool createNew();
    void markDamaged(const char* why);
    // Reads the index's block table into _blocks and the free areas; false
    // with the reason when the index is not shaped as a container's index.
    bool loadTables(std::string* why);
    bool writeIndex();
    // The archive of the index, byte for byte what NSArchiver writes, into
    // _indexBytes (LXContainerArchive.cpp).
    void encodeIndex();
    // Tells the encoder that `key` of an index dictionary changed.
    void indexKeyChanged(NSDictionary* dictionary, NSObject* key);
    int32_t firstFit(int32_t length) const;
    void occupy(int32_t offset, int32_t length);
    void vacate(int32_t offset, int32_t length);
    // vacate, or outside the free areas until the batch's index is written.
    void freeBlock(const Block& block);
    // The enciphered block of an id, autoreleased; nil when the id is
    // unknown or the block can't be read. Reads through `shared` when given
    // (an unbuffered handle that query: opens once), else opens the file.
    // Caller holds the lock.
    NSData* readBlock(int identifier, FILE* shared);
    NSMutableDictionary* indexLevel(NSString* key, bool create);
    NSMutableDictionary* objectsLevel(NSString* key, bool create);
    LXManagedObject* decodeBlock(NSData* block, int identifier);
    // A new plain object (owned by the caller) built from a managed object.
    NSObject* buildObject(LXManagedObject* managed, Class cls);
    void enterMapping(NSObject* object, LXManagedObject* managed);

    Ref<NSString> _name;
    Ref<LXManagedObject> _index;
    Ref<NSLock> _lock;
    int32_t _size = 0;
    int32_t _maxId = 0;

    // What the index says, kept in step with it so that a store or a read
    // costs no walk of the index's dictionaries: each id's block, the free
    // areas between blocks (offset -> length) and the end of the last
    // block, behind which all room is free.
    std::unordered_map<int, Block> _blocks;
    std::map<int32_t, int32_t> _gaps;
    int32_t _tail = 0;
    bool _damaged = false;
    // Batches open (under the lock), and the blocks freed inside them,
    // handed to vacate only once an index without them is on disk.
    int _batchDepth = 0;
    std::vector<Block> _freedInBatch;
    // The encoded buckets of the index's large dictionaries (the block
    // table and the type sets), kept from one write to the next: a store
    // changes one bucket of each, and only that bucket is encoded again.
    std::unordered_map<NSDictionary*, BucketCache> _bucketCache;
    std::string _indexBytes;
    std::string _indexPath;
    std::string _dataPath;
    // The mapping from live plain objects (by address) to their managed
    // objects. Not the dictionary of 10 buckets keyed by NSValue that the
    // documented field is: nothing observes its buckets, and at 10 buckets
    // entering the objects of a query of 100,000 records would scan 10,000
    // entries per object. The user's and the transceiver's threads reach it
    // outside the container's lock, and releases happen on any thread, so
    // it has a lock of its own; recursive, because a release inside it may
    // come back through releaseCallback:.
    std::unordered_map<NSObject*, Ref<LXManagedObject>> _mapping;
    std::recursive_mutex _mappingMutex;
};

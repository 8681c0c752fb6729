// A container: the system's persistent store of objects under integer ids,
// in a pair of files that share a stem. "<stem>.vcd" holds one enciphered
// block per object at arbitrary offsets; "<stem>.vci" is a plain archive of
// the index, which says where each block lies. Blocks are never overwritten
// while the committed state points at them. Each store and remove appends
// its change of the index to the journal "<stem>.vcj"; the whole index is
// rewritten (a checkpoint) only when the journal has grown past a share of
// the index, and when a container that wrote is released, after which the
// journal is gone. The committed state is the index file plus the journal
// replayed over it. The byte formats are written down in
// docs/container-format.md.
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
#include "foundation/platform/Platform.h"
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
    // when there is none of that stem: no index, no temporary or compacted
    // index and no data in a data file. For tools that read: naming a store must not
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
    NSMutableArray* query_predicate_(Class cls,
                                     class NSPredicate* predicate);  // LXContainerPredicates.cpp
    NSMutableArray* select_type_(class NSPredicate* predicate, NSString* type);
    // Creates or updates the record of the object: store:type:'s result.
    int set_(NSObject* object);
    // Removes the record of an object this container knows; else nothing.
    void delete_(NSObject* object);
    // The release callback of every object handed out or stored: forgets
    // the object's managed object. The record stays.
    void releaseCallback_(NSObject* object);
    uint32_t mappingSize();

    // ---- For tools and tests ---------------------------------------------

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

    // A fault layer for crash tests: the n-th step of writing from now (a
    // write of a block, a journal entry or an index, a rename or a removal
    // of a file; 1 = the next one) ends the process with status
    // kCrashStatusForTesting, as a kill would. A write first puts down
    // perMille/1000 of its bytes. 0 turns it off. Process-wide.
    static void crashAtWriteForTesting(int n, int perMille);
    static constexpr int kCrashStatusForTesting = 86;

    // With true, every change is on stable storage before the operation
    // answers: the data block is forced to the disk (fdatasync) before the
    // journal entry that names it, then the entry; a checkpoint forces the
    // new index and its name before the journal goes. Inside a batch the
    // forcing waits for its end, which forces all of the batch's changes
    // at once (what a group commit needs). Off by default: a stop of the
    // process loses at most the operation in progress either way.
    void setSynchronous_(bool synchronous);
    // Rewrites the whole index and removes the journal, then compacts the
    // data file when most of it is free (see compact). False when the index
    // could not be written or the store is damaged.
    bool checkpoint();
    // A checkpoint, then the live blocks copied in order of offset into a
    // fresh pair of files that replaces the old one; the data file then
    // holds no free space. False, with a log line, when that could not be
    // done: before the old index is removed the container is as it was;
    // after it (a rename failed), it refuses changes until the next open
    // completes the compaction.
    bool compact();
    // The bytes of the journal that replay reaches, 0 when there is none.
    int64_t journalLength() const { return _journalLength; }

    // Batches: changes inside one are journaled like any other; a
    // synchronous container forces them to the disk only at the outermost
    // end. endBatch answers false without a batch; at the outermost end it
    // answers whether every change of the batch reached the disk (forced,
    // when synchronous), writing the index at once if a journal write had
    // failed.
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
    // A container that wrote to its journal checkpoints before it goes.
    ~LXContainer() override;

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
    // Writes the index through "<index>.tmp" and a rename.
    bool writeIndex();
    // Writes _indexBytes to `path` in full.
    bool writeIndexBytes(const std::string& path);
    // The changes of the index a store and a remove make, the same when
    // made live and when replayed from the journal. They keep _size and
    // _maxId, but not the block table and free areas: a replay rebuilds
    // those with loadTables once it is done.
    void applyStore(int identifier, int32_t offset, int32_t length, bool isNew, NSString* type);
    void applyRemove(int identifier, NSString* type);
    // Reads the journal at open and applies its entries; false with the
    // reason when the index after them is not a container's index.
    bool replayJournal(std::string* why);
    // Appends one entry; on failure the container writes the whole index
    // at the next change instead (journalFailed).
    bool appendJournal(const std::string& entry);
    // The journal entry, checkpoint when due, or the index when the journal
    // failed: what makes one change committed. Caller holds the lock.
    bool commitChange(const std::string& entry);
    // A checkpoint, then a compaction if most of the data file is free.
    bool checkpointLocked();
    // The index written and the journal removed, no compaction.
    bool writeCheckpoint();
    // The compaction a checkpoint found due, once no change holds the
    // place of a block any more.
    void compactIfDue();
    bool compactLocked();
    void closeJournal();
    // The archive of the index, byte for byte what NSArchiver writes, into
    // _indexBytes (LXContainerArchive.cpp).
    void encodeIndex();
    // Tells the encoder that `key` of an index dictionary changed.
    void indexKeyChanged(NSDictionary* dictionary, NSObject* key);
    int32_t firstFit(int32_t length) const;
    void occupy(int32_t offset, int32_t length);
    void vacate(int32_t offset, int32_t length);
    // vacate once the change that freed the block is committed; else held
    // back until an index without the block is written.
    void releaseBlock(const Block& block, bool committed);
    // The checkpoint of a container that wrote since the last one: at its
    // release and at the end of the program.
    void checkpointIfWritten();
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
    int _batchDepth = 0;
    // Synchronous, changes of the open batch not yet forced to the disk.
    bool _unsynced = false;
    // A checkpoint happened; whether to compact is decided by compactIfDue.
    bool _compactionDue = false;
    // Blocks freed while the files may still name them (a journal write
    // failed): handed to vacate once an index without them is on disk.
    std::vector<Block> _freedPending;
    // The journal: its path, the handle kept open for appends, the bytes
    // replay reaches, the bytes in the file (more after a torn tail, -1
    // when not known), and whether an append failed since the last index.
    std::string _journalPath;
    VTFile _journal = kVTInvalidFile;
    int64_t _journalLength = 0;
    int64_t _journalOnDisk = 0;
    bool _journalFailed = false;
    bool _synchronous = false;
    // Whether this container appended since the last checkpoint, and the
    // length of the index file as last written or read.
    bool _wrote = false;
    int64_t _indexLength = 0;
    // The encoded buckets of the index's large dictionaries (the block
    // table and the type sets), kept from one write to the next: a store
    // changes one bucket of each, and only that bucket is encoded again.
    std::unordered_map<NSDictionary*, BucketCache> _bucketCache;
    std::string _indexBytes;
    std::string _indexPath;
    std::string _dataPath;
    // The mapping from live plain objects (by address) to their managed
    // objects. Not a dictionary of 10 buckets keyed by NSValue, as the field
    // was first conceived: nothing observes its buckets, and at 10 buckets
    // entering the objects of a query of 100,000 records would scan 10,000
    // entries per object. The user's and the transceiver's threads reach it
    // outside the container's lock, and releases happen on any thread, so
    // it has a lock of its own; recursive, because a release inside it may
    // come back through releaseCallback:.
    std::unordered_map<NSObject*, Ref<LXManagedObject>> _mapping;
    std::recursive_mutex _mappingMutex;
};

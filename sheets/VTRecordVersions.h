// The versions a record carries so that every installation ends with the
// same record, whatever order changes reach it in (see docs/replication.md).
//
// Reserved keys, beside the stamps of VTMatrix.h:
//   __versions  dictionary: field name to the version text (sync/LXVersion.h)
//               of the write that set the field's present value; a field
//               without an entry is at version zero (written before
//               versions existed)
//   __history   array of entries { field, value, version }: values that
//               lost to a newer one, here or elsewhere; per field the
//               kHistoryPerField newest by version, kept sorted by field,
//               then newest first, so that equal sets are equal arrays
//   __removed   version text of the record's removal. The record counts as
//               removed while no field has a newer version; a removed
//               record is kept as a tombstone (same store, not a row of
//               the matrix) until kTombstoneLifetimeMillis have passed.
//
// All operations change records in place and work on any mutable
// dictionary; the matrix decides what is stored and when.
#pragma once

#include <cstdint>

class NSArray;
class NSDictionary;
class NSMutableDictionary;
class NSObject;
class NSString;

namespace vt_versions {

constexpr uint32_t kHistoryPerField = 32;
constexpr uint64_t kTombstoneLifetimeMillis = 30ull * 24 * 3600 * 1000;

// Whether a key is reserved (starts with two underscores).
bool isReservedKey(NSObject* key);
// The version of a field's present value; nil for version zero.
NSString* versionOfField(NSDictionary* record, NSString* field);
// The newest version of any field; nil when none has one.
NSString* newestFieldVersion(NSDictionary* record);
// Whether the record's removal is newer than every field's version.
bool isRemoved(NSDictionary* record);

// A local commit: each of `fields` (once each, reserved keys skipped)
// gets a new version of `writer`, newer than the one it replaces; the
// value the field had in `before` (the record before the transaction, nil
// for a new record) goes into the history.
void stampChange(NSMutableDictionary* record, NSDictionary* before, NSArray* fields,
                 NSString* writer);
// A local removal: __removed becomes a new version of `writer`, newer than
// every field's; answers it.
NSString* stampRemoval(NSMutableDictionary* record, NSString* writer);
// A removal from elsewhere: __removed becomes the newer of its present
// value and `version`. A removal without a version (from a writer that
// keeps none) removes the record as it stands. Answers whether the record
// changed.
bool mergeRemoval(NSMutableDictionary* record, NSString* version);

// Takes in a copy of the same record from elsewhere: every field that the
// other copy lists in `listed` or carries a version for is taken if its
// version is newer (or, both at version zero, if the record lacks the
// field); the value that loses, on either side, goes into the history. The
// histories and removals are merged too, and stamps the record lacks are
// taken. The clock observes every version seen. Answers whether the
// record changed.
bool mergeIncoming(NSMutableDictionary* record, NSDictionary* incoming, NSArray* listed);

}  // namespace vt_versions

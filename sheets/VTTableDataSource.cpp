#include "VTTableDataSource.h"

#include <mutex>

#include "foundation/NSDate.h"
#include "foundation/NSNull.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "sheets/VTMatrix.h"
#include "toolkit/NSTableColumn.h"

namespace {

// The identity of the current user, one copy per process, taken at the
// first filtering and kept (filtering runs on the main thread and on the
// transceiver's, hence the lock around taking it).
std::mutex gIdentityMutex;
NSString* gIdentity = nullptr;

NSString* identityFor(VTMatrix* matrix) {
    std::lock_guard<std::mutex> guard(gIdentityMutex);
    if (!gIdentity) {
        NSString* id =
                NSSend<NSString*>(matrix ? matrix->workspace() : nullptr, NS_SEL("currentUserId"));
        if (id) gIdentity = static_cast<NSString*>(id->mutableCopy());
    }
    return gIdentity;
}

VTMatrix* matrixOfSheet(NSDictionary* sheets, NSObject* sheetName) {
    NSObject* sheet = sheets && sheetName ? sheets->objectForKey_(sheetName) : nullptr;
    return NSSend<VTMatrix*>(sheet, NS_SEL("matrix"));
}

const char* textOf(NSDictionary* record, NSString* key) {
    NSObject* v = record->objectForKey_(key);
    return v ? static_cast<NSString*>(v->description())->UTF8String() : "";
}

// A referenced record's display text; as the matrix forms it, but a missing
// record gives the empty text.
NSString* displayTextOf(VTMatrix* target, NSString* id, NSArray* displayFields) {
    NSDictionary* record = target ? target->objectWithRecordId_(id) : nullptr;
    if (!record) return ""_ns;
    return VTMatrix::displayText(record, displayFields);
}

bool containsEqual(NSArray* list, NSObject* object) {
    for (uint32_t i = 0, n = list->count(); i < n; i++)
        if (list->objectAtIndex_(i)->isEqual_(object)) return true;
    return false;
}

}  // namespace

NSString* VTTableDataSource::cachedIdentity() {
    std::lock_guard<std::mutex> guard(gIdentityMutex);
    return gIdentity;
}

void VTTableDataSource::resetIdentityForTesting() {
    std::lock_guard<std::mutex> guard(gIdentityMutex);
    NSRelease(gIdentity);
    gIdentity = nullptr;
}

void VTTableDataSource::dealloc() { super::dealloc(); }

NSObject* VTTableDataSource::resolveValue_forField_(NSObject* value, NSString* field) {
    auto* descriptor = static_cast<NSArray*>(field ? _fields->objectForKey_(field) : nullptr);
    if (!descriptor) return value;
    NSMutableString* text = NSMutableString::string();
    if (!value) return text;
    VTMatrix* target = matrixOfSheet(_sheets, descriptor->objectAtIndex_(2));
    auto* displayFields = static_cast<NSArray*>(descriptor->objectAtIndex_(3));
    NSMutableArray* ids = static_cast<NSString*>(value->description())->split();
    for (uint32_t i = 0, n = ids->count(); i < n; i++) {
        auto* id = static_cast<NSString*>(ids->objectAtIndex_(i));
        if (!target || !target->objectWithRecordId_(id)) continue;
        text->appendString_(displayTextOf(target, id, displayFields));
        text->appendString_("; "_ns);
    }
    uint32_t length = text->length();
    return length >= 2 ? text->substringToIndex_(length - 2) : static_cast<NSString*>(text);
}

bool VTTableDataSource::passesFilter_(NSDictionary* record) {
    if (!record) return false;
    // 1. Identity.
    NSString* identity = identityFor(_matrix);

    // 2. Current user.
    NSObject* userField =
            _specialFilters ? _specialFilters->objectForKey_("currentUser"_ns) : nullptr;
    if (userField && userField != NSNull::null()) {
        NSObject* userId = record->objectForKey_(userField);
        VTMatrix* users = matrixOfSheet(_sheets, "user"_ns);
        NSDictionary* user =
                users && userId
                        ? users->objectWithRecordId_(static_cast<NSString*>(userId->description()))
                        : nullptr;
        if (!user) return false;
        NSString* text = NSString::stringWithFormat_(
                "%s %s/%s/%s", textOf(user, "firstName"_ns), textOf(user, "lastName"_ns),
                textOf(user, "orgUnit"_ns), textOf(user, "company"_ns));
        if (!text->isEqual_(identity)) return false;
    }

    // 3. Own records.
    if (_readOwn) {
        NSObject* creator = record->objectForKey_("__creator"_ns);
        if (!creator || !creator->isEqual_(identity)) return false;
    }

    // 4. Value filters: alternatives within a key, every key must match.
    NSMutableArray* keys = _filters->allKeys();
    for (uint32_t k = 0, nk = keys->count(); k < nk; k++) {
        NSObject* key = keys->objectAtIndex_(k);
        NSObject* value = record->objectForKey_(key);
        if (!value || !containsEqual(_filters->objectsForKey_(key), value->description()))
            return false;
    }

    // 5. Date filters: every pair must hold.
    keys = _dateFilters->allKeys();
    for (uint32_t k = 0, nk = keys->count(); k < nk; k++) {
        NSObject* key = keys->objectAtIndex_(k);
        NSObject* value = record->objectForKey_(key);
        if (!value || !value->isKindOfClass_(NSDate::classObject())) {
            LOG("not NSDate!");
            continue;
        }
        auto* date = static_cast<NSDate*>(value);
        NSMutableArray* pairs = _dateFilters->objectsForKey_(key);
        for (uint32_t p = 0, np = pairs->count(); p < np; p++) {
            auto* pair = static_cast<NSArray*>(pairs->objectAtIndex_(p));
            float from = static_cast<NSString*>(pair->objectAtIndex_(0))->floatValue();
            float to = static_cast<NSString*>(pair->objectAtIndex_(1))->floatValue();
            // Days are single precision; days times 24 is rounded to single
            // precision before it becomes seconds.
            NSDate* lower = NSDate::date()->addTimeInterval_(
                    static_cast<double>(static_cast<float>(from * 24.0f)) * 3600.0);
            NSDate* upper = NSDate::date()->addTimeInterval_(
                    static_cast<double>(static_cast<float>(to * 24.0f)) * 3600.0);
            if (date->compare_(lower) < 0 || date->compare_(upper) > 0) return false;
        }
    }

    // 6. Reference filters: some allowed text equals some display text.
    keys = _referenceFilters->allKeys();
    for (uint32_t k = 0, nk = keys->count(); k < nk; k++) {
        auto* key = static_cast<NSArray*>(keys->objectAtIndex_(k));
        NSObject* field = key->objectAtIndex_(0);
        NSObject* value = record->objectForKey_(field);
        if (!value) return false;
        NSMutableArray* ids =
                static_cast<NSString*>(value->description())->componentsSeparatedByString_(" "_ns);
        auto* descriptor = static_cast<NSArray*>(_fields->objectForKey_(field));
        NSArray* displayFields =
                descriptor ? static_cast<NSArray*>(descriptor->objectAtIndex_(3)) : nullptr;
        VTMatrix* target = matrixOfSheet(_sheets, key->objectAtIndex_(1));
        NSMutableArray* allowed = _referenceFilters->objectsForKey_(key);
        bool any = false;
        for (uint32_t i = 0, n = ids->count(); i < n && !any; i++) {
            NSString* text = displayTextOf(target, static_cast<NSString*>(ids->objectAtIndex_(i)),
                                           displayFields);
            any = containsEqual(allowed, text);
        }
        if (!any) return false;
    }
    return true;
}

void VTTableDataSource::filter() {
    NSMutableArray* records = _matrix ? _matrix->allObjectsSorted() : nullptr;
    uint32_t n = records ? records->count() : 0;
    _objectIndices.adopt(NSMutableArray::alloc()->initWithCapacity_(n ? n : 1));
    for (uint32_t i = 0; i < n; i++) {
        if (passesFilter_(static_cast<NSDictionary*>(records->objectAtIndex_(i))))
            _objectIndices->addObject_(NSNumber::numberWithInt_(static_cast<int>(i)));
    }
}

NSMutableArray* VTTableDataSource::allObjectsFiltered() {
    uint32_t n = _objectIndices ? _objectIndices->count() : 0;
    NSMutableArray* result = NSMutableArray::arrayWithCapacity_(n ? n : 1);
    NSMutableArray* records = _matrix->allObjectsSorted();
    for (uint32_t i = 0; i < n; i++) {
        int row = static_cast<NSNumber*>(_objectIndices->objectAtIndex_(i))->intValue();
        if (row >= 0 && static_cast<uint32_t>(row) < records->count())
            result->addObject_(records->objectAtIndex_(row));
    }
    return result;
}

int32_t VTTableDataSource::translateIndexReversely_(int32_t matrixRow) {
    // The index is ascending: a binary search finds the position.
    int32_t lo = 0;
    int32_t hi = _objectIndices ? static_cast<int32_t>(_objectIndices->count()) - 1 : -1;
    while (lo <= hi) {
        int32_t mid = lo + (hi - lo) / 2;
        int v = static_cast<NSNumber*>(_objectIndices->objectAtIndex_(mid))->intValue();
        if (v == matrixRow) return mid;
        if (v < matrixRow)
            lo = mid + 1;
        else
            hi = mid - 1;
    }
    return -1;
}

int32_t VTTableDataSource::translateIndex_(int32_t row) {
    if (!_objectIndices || row < 0 || static_cast<uint32_t>(row) >= _objectIndices->count())
        return -1;
    return static_cast<NSNumber*>(_objectIndices->objectAtIndex_(row))->intValue();
}

NSObject* VTTableDataSource::tableView_objectValueForTableColumn_row_(NSObject* tableView,
                                                                      NSTableColumn* column,
                                                                      int32_t row) {
    int32_t matrixRow = translateIndex_(row);
    if (matrixRow < 0 || !_matrix) return nullptr;
    NSObject* value =
            _matrix->tableView_objectValueForTableColumn_row_(tableView, column, matrixRow);
    if (value && value->isKindOfClass_(NSDate::classObject()))
        value = static_cast<NSDate*>(value)->vantorDescription();
    auto* identifier = static_cast<NSString*>(column ? column->identifier() : nullptr);
    if (value && identifier &&
        (identifier->isEqual_("__creator"_ns) || identifier->isEqual_("__modifier"_ns))) {
        NSMutableArray* parts =
                static_cast<NSString*>(value->description())->componentsSeparatedByString_("/"_ns);
        value = parts->objectAtIndex_(0);
    }
    return resolveValue_forField_(value, identifier);
}

int32_t VTTableDataSource::numberOfRowsInTableView_(NSObject*) {
    return _objectIndices ? static_cast<int32_t>(_objectIndices->count()) : 0;
}

VTTableDataSource* VTTableDataSource::
        initWithMatrix_fields_sheets_filters_referenceFilters_dateFilters_specialFilters_readOwn_(
                VTMatrix* matrix, NSArray* fields, NSDictionary* sheets, VTKeyedArrays* filters,
                VTKeyedArrays* referenceFilters, VTKeyedArrays* dateFilters,
                NSDictionary* specialFilters, uint8_t readOwn) {
    NSObject::init();
    _matrix.set(matrix);
    _fields.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    for (uint32_t i = 0, n = fields ? fields->count() : 0; i < n; i++) {
        auto* descriptor = static_cast<NSArray*>(fields->objectAtIndex_(i));
        if (descriptor->count() < 4) continue;
        NSObject* type = descriptor->objectAtIndex_(1);
        if (type->isEqual_("reference"_ns) || type->isEqual_("multireference"_ns))
            _fields->setObject_forKey_(descriptor, descriptor->objectAtIndex_(0));
    }
    // The sheets map is not retained: it holds the sheets, a sheet holds its
    // table view and the table view this data source, so retaining it would
    // close a cycle that keeps every sheet alive. The workspace owns it for
    // as long as any sheet exists.
    _sheets = sheets;
    _filters.set(filters);
    _referenceFilters.set(referenceFilters);
    _dateFilters.set(dateFilters);
    _specialFilters.set(specialFilters);
    _readOwn = readOwn;
    return this;
}

NS_CLASS_BEGIN(VTTableDataSource, NSObject)
    NS_METHOD(dealloc)
    NS_METHOD(resolveValue_forField_)
    NS_METHOD(passesFilter_)
    NS_METHOD(filter)
    NS_METHOD(allObjectsFiltered)
    NS_METHOD(objectIndices)
    NS_METHOD(translateIndexReversely_)
    NS_METHOD(translateIndex_)
    NS_METHOD(tableView_objectValueForTableColumn_row_)
    NS_METHOD(numberOfRowsInTableView_)
    NS_METHOD(
            initWithMatrix_fields_sheets_filters_referenceFilters_dateFilters_specialFilters_readOwn_)
    NS_PROTOCOL("NSTableDataSource")
    NS_FIELD(_matrix)
    NS_FIELD(_fields)
    NS_FIELD(_sheets)
    NS_FIELD(_filters)
    NS_FIELD(_referenceFilters)
    NS_FIELD(_dateFilters)
    NS_FIELD(_objectIndices)
    NS_FIELD(_specialFilters)
    NS_FIELD(_readOwn)
NS_CLASS_END(VTTableDataSource)

// ---------------------------------------------------------------------------

void VTSimpleDataSource::dealloc() { super::dealloc(); }

int32_t VTSimpleDataSource::indexOfItem_(NSString* item) {
    for (uint32_t i = 0, n = _items->count(); i < n; i++)
        if (_items->objectAtIndex_(i)->isEqual_(item)) return static_cast<int32_t>(i);
    return -1;
}

NSObject* VTSimpleDataSource::tableView_objectValueForTableColumn_row_(NSObject*, NSTableColumn*,
                                                                       int32_t row) {
    if (row < 0 || static_cast<uint32_t>(row) >= _items->count()) return nullptr;
    return _items->objectAtIndex_(static_cast<uint32_t>(row));
}

int32_t VTSimpleDataSource::numberOfRowsInTableView_(NSObject*) {
    return static_cast<int32_t>(_items->count());
}

void VTSimpleDataSource::removeAllItems() { _items->removeAllObjects(); }

void VTSimpleDataSource::addAnItem_(NSString* item) { _items->addObject_(item); }

VTSimpleDataSource* VTSimpleDataSource::init() {
    NSObject::init();
    _items.adopt(NSMutableArray::alloc()->initWithCapacity_(10));
    return this;
}

NS_CLASS_BEGIN(VTSimpleDataSource, NSObject)
    NS_METHOD(dealloc)
    NS_METHOD(indexOfItem_)
    NS_METHOD(tableView_objectValueForTableColumn_row_)
    NS_METHOD(numberOfRowsInTableView_)
    NS_METHOD(removeAllItems)
    NS_METHOD(addAnItem_)
    NS_METHOD(init)
    NS_PROTOCOL("NSTableDataSource")
    NS_FIELD(_items)
NS_CLASS_END(VTSimpleDataSource)

// Between a sheet's table view and its matrix: decides which records the
// user sees (the filter stages below), translates table rows to matrix
// rows and turns stored values into cell text. Other sheets ask it for the
// records a reference control may offer (allObjectsFiltered).
//
// Filter stages, in order; the first that fails ends the test:
//   1. the identity of the current user, taken once per process
//   2. current user: the record's user reference must name that identity
//   3. own records (readOwn): __creator must be that identity
//   4. value filters: every key, one of its allowed texts
//   5. date filters: every (from, to) pair of days around now, inclusive;
//      a value that is no date logs "not NSDate!" and is not stopped
//   6. reference filters: some allowed text equals some display text
//
// Nothing is cached but the row index: filter walks every record anew.
#pragma once

#include <cstdint>

#include "foundation/NSArray.h"
#include "foundation/NSDictionary.h"
#include "structures/VTKeyedArrays.h"

class NSTableColumn;
class VTMatrix;

class VTTableDataSource : public NSObject {
    NS_DECLARE_CLASS(VTTableDataSource, NSObject)

public:
    void dealloc() override;
    // References: the display texts of the ids, "; " between them; ids that
    // don't resolve vanish. Other fields: the value as it is.
    NSObject* resolveValue_forField_(NSObject* value, NSString* field);
    bool passesFilter_(NSDictionary* record);
    // Rebuilds the row index from the matrix's present order. The table
    // view is not reloaded.
    void filter();
    // Autoreleased, in table order.
    NSMutableArray* allObjectsFiltered();
    NSMutableArray* objectIndices() { return _objectIndices; }
    // Table row of a matrix row; -1 when the record is filtered out.
    int32_t translateIndexReversely_(int32_t matrixRow);
    // Matrix row of a table row; -1 when the position holds nothing.
    int32_t translateIndex_(int32_t row);
    NSObject* tableView_objectValueForTableColumn_row_(NSObject* tableView, NSTableColumn* column,
                                                       int32_t row);
    int32_t numberOfRowsInTableView_(NSObject* tableView);
    // Keeps the reference and multireference descriptors of `fields`.
    VTTableDataSource*
    initWithMatrix_fields_sheets_filters_referenceFilters_dateFilters_specialFilters_readOwn_(
            VTMatrix* matrix, NSArray* fields, NSDictionary* sheets, VTKeyedArrays* filters,
            VTKeyedArrays* referenceFilters, VTKeyedArrays* dateFilters,
            NSDictionary* specialFilters, uint8_t readOwn);

    VTMatrix* matrix() { return _matrix; }
    // The identity every data source filters with, once taken.
    static NSString* cachedIdentity();
    // Forgets it, so that a test can filter as another user.
    static void resetIdentityForTesting();

protected:
    ~VTTableDataSource() override = default;

private:
    Ref<VTMatrix> _matrix;
    Ref<NSMutableDictionary> _fields;
    NSDictionary* _sheets = nullptr;  // the workspace's; see initWith...
    Ref<VTKeyedArrays> _filters;
    Ref<VTKeyedArrays> _referenceFilters;
    Ref<VTKeyedArrays> _dateFilters;
    Ref<NSMutableArray> _objectIndices;
    Ref<NSDictionary> _specialFilters;
    uint8_t _readOwn = 0;
};

// The plain list behind the table of a multireference field.
class VTSimpleDataSource : public NSObject {
    NS_DECLARE_CLASS(VTSimpleDataSource, NSObject)

public:
    void dealloc() override;
    // Position of an equal string, or -1.
    int32_t indexOfItem_(NSString* item);
    // The item at the row, whatever the column; nil beyond the list.
    NSObject* tableView_objectValueForTableColumn_row_(NSObject* tableView, NSTableColumn* column,
                                                       int32_t row);
    int32_t numberOfRowsInTableView_(NSObject* tableView);
    void removeAllItems();
    void addAnItem_(NSString* item);
    VTSimpleDataSource* init() override;

    NSMutableArray* items() { return _items; }

protected:
    ~VTSimpleDataSource() override = default;

private:
    Ref<NSMutableArray> _items;
};

// A table of rows from a data source: any object that answers
// numberOfRowsInTableView: and tableView:objectValueForTableColumn:row:
// (VTMatrix, VTTableDataSource, VTSimpleDataSource).
//
// This is the object side: the columns, the data source and the selected
// row live in fields, so that a table exists and can be asked long before
// any window does (every sheet has one from its initialization on). The
// native list view is made by the Win32 side (toolkit/win32/) when hWnd is
// first asked for; until then the operations that would talk to it keep
// their state in fields only and report that nothing was written.
#pragma once

#include <cstdint>

#include "foundation/NSArray.h"
#include "toolkit/NSResponder.h"
#include "toolkit/NSTableColumn.h"

class NSIndexSet;
class NSMutableIndexSet;

// Based on NSResponder until the toolkit's NSControl stands; the table then
// takes NSControl as its base, which keeps frame, target and action.
class NSTableView : public NSResponder {
    NS_DECLARE_CLASS(NSTableView, NSResponder)

public:
    // Keeps the frame and creates the column list.
    NSTableView* initWithFrame_(_NSRect frame);
    // Retains; does not reload.
    void setDataSource_(NSObject* dataSource);
    NSObject* dataSource() { return _dataSource; }
    // Appends the column and makes the table its table.
    void addTableColumn_(NSTableColumn* column);
    NSMutableArray* tableColumns() { return _columns; }
    // Asks the data source for every cell of every row (the description of
    // each answer) and hands each row to insertTableRow:atIndex:; keeps the
    // selection on the same row number, or the last row if the table got
    // shorter.
    void reloadData();
    // Without a native list nothing can hold the row: false.
    bool insertTableRow_atIndex_(NSArray* strings, int32_t row);
    // Without a native list there is nothing to delete: false.
    bool deleteAllItems();
    int32_t selectedRow() { return _selectedRow; }
    // Stores the row; the native side also selects it on screen.
    void setSelectedRow_(int32_t row);
    // The natively selected rows: none without a native list. Autoreleased.
    NSMutableIndexSet* selectedRowIndexes();
    void selectRowIndexes_byExtendingSelection_(NSIndexSet* indexes, bool extend);
    // Stored only; nothing reads them.
    NSArray* sortDescriptors() { return _sortDescriptors; }
    void setSortDescriptors_(NSArray* descriptors) { _sortDescriptors.set(descriptors); }
    void sortByColumn_(NSTableColumn*) {}

    _NSRect frame() { return _frame; }
    // The rows the data source has now, asked by message.
    int32_t numberOfRows();

protected:
    ~NSTableView() override = default;

private:
    Ref<NSObject> _dataSource;
    Ref<NSMutableArray> _columns;
    int32_t _selectedRow = 0;
    Ref<NSArray> _sortDescriptors;
    _NSRect _frame = {};
};

// A table of rows from a data source: any object that answers
// numberOfRowsInTableView: and tableView:objectValueForTableColumn:row:
// (VTMatrix, VTTableDataSource, VTSimpleDataSource).
//
// The native list is a report list view that holds the text of every cell
// as it was at the last reloadData: no virtual list, no partial update.
// Until hWnd is first asked for, the columns, the data source and the
// selected row live in fields only, so that a table exists and can be asked
// long before any window does (every sheet has one from its initialization
// on); the operations that would talk to the list then report that nothing
// was written.
//
// Threads: reloadData may come from the transceiver's thread. The reload
// then runs on the main thread, which made the list, through one native
// message that waits until the main thread serves it; the caller must hold
// no lock the main thread may wait for.
#pragma once

#include <cstdint>

#include "foundation/NSArray.h"
#include "toolkit/NSControl.h"
#include "toolkit/NSTableColumn.h"

class NSIndexSet;
class NSMutableIndexSet;

class NSTableView : public NSControl {
    NS_DECLARE_CLASS(NSTableView, NSControl)

public:
    // Keeps the frame and creates the column list.
    NSTableView* initWithFrame_(_NSRect frame);
    // Makes the native list in the superview (or its window) on the first
    // call: registered as a table view and as a control, selection cleared
    // (selectedRow -1), and the columns added so far inserted.
    void* hWnd() override;
    // Retains; does not reload.
    void setDataSource_(NSObject* dataSource);
    NSObject* dataSource() { return _dataSource; }
    // Appends the column and makes the table its table. A column of width
    // 0 shares the free width with the other flexible columns: they are all
    // set to the new share. Makes the native list if it can.
    void addTableColumn_(NSTableColumn* column);
    NSMutableArray* tableColumns() { return _columns; }
    // After a change of the list's size: the flexible columns share what
    // the fixed ones leave of the native width; fixed columns stay.
    void relayoutColumns();
    // Asks the data source for every cell of every row (the description of
    // each answer) and hands each row to insertTableRow:atIndex:; keeps the
    // selection on the same row number, or the last row if the table got
    // shorter, through setSelectedRow: (so a selection notification
    // follows).
    void reloadData();
    // One row of cell texts at the row; false if the list refused it, and
    // without a native list.
    bool insertTableRow_atIndex_(NSArray* strings, int32_t row);
    // Without a native list there is nothing to delete: false.
    bool deleteAllItems();
    int32_t selectedRow() { return _selectedRow; }
    // -1 clears the native selection. A row of the data source other than
    // the selected one is selected and focused natively (rows selected
    // before stay selected) and scrolled into view; anything else is only
    // stored.
    void setSelectedRow_(int32_t row);
    // The natively selected rows: none without a native list. Autoreleased.
    NSMutableIndexSet* selectedRowIndexes();
    // Selects the rows of the set; unless extending, deselects the others.
    void selectRowIndexes_byExtendingSelection_(NSIndexSet* indexes, bool extend);
    // Stored only; nothing reads them.
    NSArray* sortDescriptors() { return _sortDescriptors; }
    void setSortDescriptors_(NSArray* descriptors) { _sortDescriptors.set(descriptors); }
    void sortByColumn_(NSTableColumn*) {}

    // The frame in the parent (bounds).
    _NSRect frame() { return _bounds; }
    // The rows the data source has now, asked by message.
    int32_t numberOfRows();

protected:
    ~NSTableView() override = default;

private:
    // reloadData on the list's thread.
    void reloadRows();
    // The share of the width that the fixed ones of the first `count`
    // columns leave, less `slack`, among their flexible ones and
    // `extraColumns` more.
    int32_t flexibleShare(uint32_t count, int32_t width, int32_t slack, int32_t extraColumns);
    // Sets the flexible ones of the first `count` columns to the share.
    void setFlexibleWidths(uint32_t count, int32_t share);
    // Inserts the column at `index` into the list, sharing the width with
    // the columns before it.
    void insertNativeColumn(uint32_t index);

    Ref<NSObject> _dataSource;
    Ref<NSMutableArray> _columns;
    int32_t _selectedRow = 0;
    Ref<NSArray> _sortDescriptors;
};

#include "NSTableView.h"

#include "foundation/NSIndexSet.h"
#include "foundation/NSString.h"

NSTableView* NSTableView::initWithFrame_(_NSRect frame) {
    NSObject::init();
    _frame = frame;
    _columns.adopt(NSMutableArray::alloc()->initWithCapacity_(10));
    return this;
}

void NSTableView::setDataSource_(NSObject* dataSource) { _dataSource.set(dataSource); }

void NSTableView::addTableColumn_(NSTableColumn* column) {
    if (!column) return;
    _columns->addObject_(column);
    column->setTableView_(this);
}

int32_t NSTableView::numberOfRows() {
    return NSSend<int32_t>(_dataSource, NS_SEL("numberOfRowsInTableView:"), this);
}

void NSTableView::reloadData() {
    int32_t remembered = _selectedRow;
    _selectedRow = -1;
    deleteAllItems();
    // The count is asked anew before each row: a data source may shrink
    // while it is read (a delta on the transceiver's thread).
    int32_t rows = 0;
    for (int32_t row = 0; row < numberOfRows(); row++) {
        uint32_t n = _columns->count();
        NSMutableArray* strings = NSMutableArray::arrayWithCapacity_(n ? n : 1);
        for (uint32_t c = 0; c < n; c++) {
            NSObject* value = NSSend<NSObject*>(_dataSource,
                                                NS_SEL("tableView:objectValueForTableColumn:row:"),
                                                this, _columns->objectAtIndex_(c), row);
            strings->addObject_(value ? value->description() : nullptr);
        }
        insertTableRow_atIndex_(strings, row);
        rows = row + 1;
    }
    if (remembered >= 0) {
        while (remembered >= rows && remembered >= 0) remembered--;
        if (remembered >= 0) setSelectedRow_(remembered);
    }
}

bool NSTableView::insertTableRow_atIndex_(NSArray*, int32_t) { return false; }

bool NSTableView::deleteAllItems() { return false; }

void NSTableView::setSelectedRow_(int32_t row) { _selectedRow = row; }

NSMutableIndexSet* NSTableView::selectedRowIndexes() { return NSMutableIndexSet::indexSet(); }

void NSTableView::selectRowIndexes_byExtendingSelection_(NSIndexSet*, bool) {}

NS_CLASS_BEGIN(NSTableView, NSResponder)
    NS_METHOD(initWithFrame_)
    NS_METHOD(setDataSource_)
    NS_METHOD(dataSource)
    NS_METHOD(addTableColumn_)
    NS_METHOD(tableColumns)
    NS_METHOD(reloadData)
    NS_METHOD(insertTableRow_atIndex_)
    NS_METHOD(deleteAllItems)
    NS_METHOD(selectedRow)
    NS_METHOD(setSelectedRow_)
    NS_METHOD(selectedRowIndexes)
    NS_METHOD(selectRowIndexes_byExtendingSelection_)
    NS_METHOD(sortDescriptors)
    NS_METHOD(setSortDescriptors_)
    NS_METHOD(sortByColumn_)
    NS_FIELD(_dataSource)
    NS_FIELD(_columns)
    NS_FIELD(_selectedRow)
    NS_FIELD(_sortDescriptors)
NS_CLASS_END(NSTableView)

#include "toolkit/NSTableView.h"

#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSIndexSet.h"
#include "foundation/NSString.h"
#include "toolkit/NSApplication.h"

namespace {
// Native list item states.
constexpr uint32_t kSelected = 0x2;  // LVIS_SELECTED
constexpr uint32_t kFocused = 0x1;   // LVIS_FOCUSED
}  // namespace

NSTableView* NSTableView::initWithFrame_(_NSRect frame) {
    NSControl::initWithFrame_(frame);
    _columns.adopt(NSMutableArray::alloc()->initWithCapacity_(10));
    return this;
}

void* NSTableView::hWnd() {
    const NSNativeToolkit* native = NSNative();
    if (_hWnd || !native || !_superview) return _hWnd;
    void* parent = _superview->parentHandleForChildren();
    _hWnd = native->createListView(parent, _superview->nativeRectOf(_bounds));
    if (!_hWnd) return nullptr;
    _unicode = true;
    NSApplication* app = NSApplication::sharedApplication();
    app->registerTableView_(this);
    registerAndSubclass(NSNativeProc::Control, false);
    _selectedRow = -1;
    addNativeTip(parent);
    // Columns added before the list existed, with the widths they would
    // have had if added now one by one.
    for (uint32_t i = 0, n = _columns->count(); i < n; i++) insertNativeColumn(i);
    return _hWnd;
}

void NSTableView::setDataSource_(NSObject* dataSource) { _dataSource.set(dataSource); }

int32_t NSTableView::flexibleShare(uint32_t count, int32_t width, int32_t slack,
                                   int32_t extraColumns) {
    int32_t fixedSum = 0;
    int32_t fixedCount = 0;
    for (uint32_t i = 0; i < count; i++) {
        float w = static_cast<NSTableColumn*>(_columns->objectAtIndex_(i))->width();
        if (w > 0) {
            fixedSum += static_cast<int32_t>(w);
            fixedCount++;
        }
    }
    int32_t flexible = static_cast<int32_t>(count) - fixedCount + extraColumns;
    if (flexible <= 0) return 0;
    return (width - fixedSum - slack) / flexible;
}

void NSTableView::setFlexibleWidths(uint32_t count, int32_t share) {
    for (uint32_t i = 0; i < count; i++) {
        auto* column = static_cast<NSTableColumn*>(_columns->objectAtIndex_(i));
        if (column->width() <= 0) NSNative()->listSetColumnWidth(_hWnd, static_cast<int>(i), share);
    }
}

void NSTableView::insertNativeColumn(uint32_t index) {
    // The new column counts as flexible for the share, fixed or not.
    int32_t share = flexibleShare(index, static_cast<int32_t>(_bounds.size.width), 1, 1);
    setFlexibleWidths(index, share);
    auto* column = static_cast<NSTableColumn*>(_columns->objectAtIndex_(index));
    NSString* title = column->headerCell() ? column->headerCell()->stringValue() : nullptr;
    if (!title && column->identifier()) title = column->identifier()->description();
    int32_t width = column->width() > 0 ? static_cast<int32_t>(column->width()) : share;
    NSNative()->listInsertColumn(_hWnd, static_cast<int>(index), width, NSNativeText(title));
}

void NSTableView::addTableColumn_(NSTableColumn* column) {
    if (!column) return;
    // The table asks for its list here: in a tab page this makes it at
    // once, ahead of the page's other controls.
    bool native = hWnd() != nullptr;
    _columns->addObject_(column);
    column->setTableView_(this);
    if (native) insertNativeColumn(_columns->count() - 1);
}

void NSTableView::relayoutColumns() {
    if (!_hWnd || !NSNative()) return;
    uint32_t count = _columns->count();
    setFlexibleWidths(count, flexibleShare(count, NSNative()->windowRect(_hWnd).width, 3, 0));
}

int32_t NSTableView::numberOfRows() {
    return NSSend<int32_t>(_dataSource, NS_SEL("numberOfRowsInTableView:"), this);
}

void NSTableView::reloadData() {
    // From another thread (the transceiver's) the whole reload runs on the
    // list's thread, through one native message: one wait instead of one
    // per cell, and the data source is then read on the thread that edits
    // it, between two of its messages.
    if (_hWnd && NSNative())
        NSNative()->callOnWindowThread(
                _hWnd, [](void* table) { static_cast<NSTableView*>(table)->reloadRows(); }, this);
    else
        reloadRows();
}

void NSTableView::reloadRows() {
    int32_t remembered = _selectedRow;
    _selectedRow = -1;
    // A list that paints stays at work after each message (and under Wine
    // asks the server to mark what must be painted): unpainted, a cell
    // costs an eighth. It is painted anew once, at the end.
    const NSNativeToolkit* native = _hWnd ? NSNative() : nullptr;
    if (native) native->listSetRedraw(_hWnd, false);
    deleteAllItems();
    // The count is asked anew before each row: a data source may shrink
    // while it is read (a delta on the transceiver's thread).
    SEL cell = NS_SEL("tableView:objectValueForTableColumn:row:");
    int32_t rows = 0;
    for (int32_t row = 0; row < numberOfRows(); row++) {
        // The descriptions of one row end with it: a reload of many rows
        // must not pile them up in the caller's pool.
        NSAutoreleasePoolScope pool;
        uint32_t n = _columns->count();
        NSMutableArray* strings = NSMutableArray::arrayWithCapacity_(n ? n : 1);
        for (uint32_t c = 0; c < n; c++) {
            NSObject* value =
                    NSSend<NSObject*>(_dataSource, cell, this, _columns->objectAtIndex_(c), row);
            strings->addObject_(value ? value->description() : nullptr);
        }
        insertTableRow_atIndex_(strings, row);
        rows = row + 1;
    }
    if (native) native->listSetRedraw(_hWnd, true);
    if (remembered >= 0) {
        if (remembered >= rows) remembered = rows - 1;
        if (remembered >= 0) setSelectedRow_(remembered);
    }
}

bool NSTableView::insertTableRow_atIndex_(NSArray* strings, int32_t row) {
    const NSNativeToolkit* native = NSNative();
    if (!_hWnd || !native || !strings) return false;
    uint32_t n = strings->count();
    auto text = [&](uint32_t i) {
        return NSNativeText(NSDynamicCast<NSString>(n > i ? strings->objectAtIndex_(i) : nullptr));
    };
    int at = native->listInsertItem(_hWnd, row, text(0));
    if (at < 0) return false;
    for (uint32_t i = 1; i < n; i++)
        native->listSetItemText(_hWnd, at, static_cast<int>(i), text(i));
    return true;
}

bool NSTableView::deleteAllItems() {
    if (!_hWnd || !NSNative()) return false;
    return NSNative()->listDeleteAll(_hWnd);
}

void NSTableView::setSelectedRow_(int32_t row) {
    const NSNativeToolkit* native = _hWnd ? NSNative() : nullptr;
    if (row == -1) {
        if (native) native->listSetItemState(_hWnd, -1, 0, kSelected);
        _selectedRow = -1;
        return;
    }
    if (row < 0 || row >= numberOfRows() || row == _selectedRow || !native) {
        _selectedRow = row;
        return;
    }
    native->listSetItemState(_hWnd, row, kSelected | kFocused, kSelected | kFocused);
    native->listEnsureVisible(_hWnd, row);
    _selectedRow = row;
}

NSMutableIndexSet* NSTableView::selectedRowIndexes() {
    NSMutableIndexSet* set = NSMutableIndexSet::indexSet();
    if (!_hWnd || !NSNative()) return set;
    for (int32_t row = 0, n = numberOfRows(); row < n; row++)
        if (NSNative()->listItemState(_hWnd, row, kSelected) & kSelected)
            set->addIndex_(static_cast<uint32_t>(row));
    return set;
}

void NSTableView::selectRowIndexes_byExtendingSelection_(NSIndexSet* indexes, bool extend) {
    if (!_hWnd || !NSNative()) return;
    for (int32_t row = 0, n = numberOfRows(); row < n; row++) {
        bool chosen = indexes && indexes->containsIndex_(static_cast<uint32_t>(row));
        if (chosen)
            NSNative()->listSetItemState(_hWnd, row, kSelected, kSelected);
        else if (!extend)
            NSNative()->listSetItemState(_hWnd, row, 0, kSelected);
    }
}

NS_CLASS_BEGIN(NSTableView, NSControl)
    NS_METHOD(initWithFrame_)
    NS_METHOD(hWnd)
    NS_METHOD(setDataSource_)
    NS_METHOD(dataSource)
    NS_METHOD(addTableColumn_)
    NS_METHOD(tableColumns)
    NS_METHOD(relayoutColumns)
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

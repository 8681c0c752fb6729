// The history of the selected record on the screen: a History button
// below the form opens a window of the sheet's own with the values that
// newer ones replaced (VTSheetHistory.cpp), newest first per field, and a
// Restore button that writes the chosen value back. Restoring is a Save of
// that one field, by the same rules and rights: it gets a new version, so
// it wins everywhere, and the value it replaces joins the history.
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSaveRules.h"
#include "sheets/VTSheet.h"
#include "toolkit/NSAlert.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSTableColumn.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSWindow.h"

// The rows of the history table: one entry each, a cell per key.
class VTHistoryDataSource : public NSObject {
    NS_DECLARE_CLASS(VTHistoryDataSource, NSObject)

public:
    void setEntries_(NSArray* entries) { _entries.set(entries); }
    NSArray* entries() { return _entries; }
    int32_t numberOfRowsInTableView_(NSObject*) {
        return _entries ? static_cast<int32_t>(_entries->count()) : 0;
    }
    NSObject* tableView_objectValueForTableColumn_row_(NSObject*, NSTableColumn* column,
                                                       int32_t row) {
        if (!_entries || row < 0 || static_cast<uint32_t>(row) >= _entries->count()) return nullptr;
        auto* entry =
                static_cast<NSDictionary*>(_entries->objectAtIndex_(static_cast<uint32_t>(row)));
        NSObject* value = entry->objectForKey_(column->identifier());
        return value ? value->description() : nullptr;
    }

protected:
    ~VTHistoryDataSource() override = default;

private:
    Ref<NSArray> _entries;
};

NS_CLASS_BEGIN(VTHistoryDataSource, NSObject)
    NS_METHOD(numberOfRowsInTableView_)
    NS_METHOD(tableView_objectValueForTableColumn_row_)
    NS_METHOD(setEntries_)
    NS_METHOD(entries)
NS_CLASS_END(VTHistoryDataSource)

namespace {

template <class T>
Ref<T> make(float x, float y, float width, float height) {
    return adoptRef(static_cast<T*>(T::alloc()->initWithFrame_(NSMakeRect(x, y, width, height))));
}

Ref<NSButton> makeButton(NSView* parent, float x, float y, NSString* title, NSObject* target,
                         const char* action) {
    Ref<NSButton> button = make<NSButton>(x, y, 100, 25);
    button->setTitle_(title);
    button->setTarget_(target);
    button->setAction_(NSSelectorFromCString(action));
    button->setBezelStyle_(1);
    parent->addSubview_(button);
    return button;
}

}  // namespace

void VTSheet::addHistoryButton(NSView* parent, float height, float r) {
    // Below the information lines, where the form ends.
    Ref<NSButton> button =
            makeButton(parent, 10, height - r - 35, localized("history"), this, "showHistory:");
    button->setEnabled_(false);
    _historyButton.set(button.get());
    _guiObjects->addObject_(button);
}

void VTSheet::fillHistory() {
    auto* source = static_cast<VTHistoryDataSource*>(_historyTable->dataSource());
    source->setEntries_(_historyRecordId ? historyOfRecordWithId_(_historyRecordId)
                                         : NSMutableArray::array());
    _historyTable->reloadData();
}

void VTSheet::showHistory_(NSObject*) {
    if (_activeRow < 0 || static_cast<uint32_t>(_activeRow) >= _matrix->numberOfRows()) return;
    auto* record = static_cast<NSDictionary*>(
            _matrix->allObjectsSorted()->objectAtIndex_(static_cast<uint32_t>(_activeRow)));
    _historyRecordId.set(static_cast<NSString*>(record->objectForKey_("__recordId"_ns)));
    auto* window = static_cast<NSWindow*>(_historyWindow);
    if (!window) {
        window = static_cast<NSWindow*>(
                NSWindow::alloc()->initWithContentRect_styleMask_backing_defer_(
                        NSMakeRect(120, 120, 600, 330), 1, 2, true));
        _historyWindow = window;
        NSView* content = window->contentView();
        float height = content->bounds().size.height;
        _historyTable = make<NSTableView>(10, 45, 570, height - 55);
        Ref<VTHistoryDataSource> source =
                adoptRef(static_cast<VTHistoryDataSource*>(VTHistoryDataSource::alloc()->init()));
        _historyTable->setDataSource_(source);
        content->addSubview_(_historyTable);
        struct Column {
            const char* key;
            float width;
        };
        for (const Column& c :
             {Column{"field", 100}, Column{"n", 30}, Column{"value", 0}, Column{"writer", 0}}) {
            NSString* key = NSString::stringWithUTF8String_(c.key);
            Ref<NSTableColumn> column = adoptRef(
                    static_cast<NSTableColumn*>(NSTableColumn::alloc()->initWithIdentifier_(key)));
            column->headerCell()->setStringValue_(key);
            column->setWidth_(c.width);
            _historyTable->addTableColumn_(column);
        }
        _restoreButton.set(
                makeButton(content, 10, 10, localized("restore"), this, "restoreHistoryEntry:")
                        .get());
    }
    window->setTitle_(NSString::stringWithFormat_("%s: %s", localized("history")->UTF8String(),
                                                  _title->UTF8String()));
    fillHistory();
    window->orderFront_(nullptr);
}

void VTSheet::restoreHistoryEntry_(NSObject*) {
    if (!_historyTable || !_historyRecordId) return;
    auto* source = static_cast<VTHistoryDataSource*>(_historyTable->dataSource());
    int32_t row = _historyTable->selectedRow();
    if (row < 0 || static_cast<uint32_t>(row) >= source->entries()->count()) return;
    auto* entry = static_cast<NSDictionary*>(
            source->entries()->objectAtIndex_(static_cast<uint32_t>(row)));
    NSMutableDictionary* record = _matrix->objectWithRecordId_(_historyRecordId);
    if (!record) return;
    // The rights of the Save button for this record.
    if (!mayUpdate(record)) {
        NSBeep();
        return;
    }
    auto* field = static_cast<NSString*>(entry->objectForKey_("field"_ns));
    NSDictionary* values = NSDictionary::dictionaryWithObjectsAndKeys_(
            entry->objectForKey_("value"_ns), field, nullptr);
    if (NSString* empty = VTSaveFirstEmptyField(this, values, record)) {
        NSAlert::
                alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                        localized("validation_error"), "OK"_ns, nullptr, nullptr,
                        VTSaveEmptyFieldMessage(this, empty, localized("validation_notempty")))
                        ->runModal();
        return;
    }
    _matrix->beginTransaction();
    int32_t written =
            VTSaveWriteFields(this, values, static_cast<int32_t>(_matrix->rowForObject_(record)));
    if (!_matrix->commitTransaction()) {
        NSSend<void>(_workspace, NS_SEL("commitFailedInSheet:"), static_cast<NSObject*>(this));
        return;
    }
    _matrix->markAsSeen_rowIndex_(true, static_cast<uint32_t>(written));
    reloadTable();
    NSSend<void>(_workspace, NS_SEL("refreshSheetsExceptThisOne:"), static_cast<NSObject*>(this));
    newAction();
    fillHistory();
}

NS_EXTEND_CLASS(VTSheet, HistoryWindow)
NS_METHOD(showHistory_)
NS_METHOD(restoreHistoryEntry_)
NS_EXTEND_END

// Working on records in the sheet's form: selecting a row loads it, New
// clears the form, Save validates and writes, Remove deletes after a
// question, the action buttons start actions on the selected record.
//
// Save never changes what the user did not touch. Each pop-up, list and
// date control remembers what it showed when the record was loaded (its
// snapshot in _keptValues); while it still shows exactly that, Save leaves
// the field out of the form values and the record keeps its stored value.
// A stored value that a control can't offer among its choices (an enum
// value outside the list, a reference to a record that is gone or hidden
// by the target's filters) is shown as a marked entry, "... (not among the
// choices)", so the user sees it and can choose another. A reference is
// selected by the position of its record, never by its text, so two
// records with the same display text stay apart.
#include <vector>

#include "foundation/NSDate.h"
#include "foundation/NSIndexSet.h"
#include "foundation/NSNotification.h"
#include "foundation/NSNotificationCenter.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSaveRules.h"
#include "sheets/VTSheet.h"
#include "sheets/VTTableDataSource.h"
#include "toolkit/NSAlert.h"
#include "toolkit/NSDatePicker.h"
#include "toolkit/NSPopUpButton.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSTextField.h"

namespace {

bool typeIs(NSArray* descriptor, const char* type) {
    return descriptor->objectAtIndex_(1)->isEqual_(NSString::stringWithUTF8String_(type));
}

NSString* keyOf(NSArray* descriptor) {
    return static_cast<NSString*>(descriptor->objectAtIndex_(0));
}

NSString* textOf(NSObject* value) {
    if (!value) return ""_ns;
    if (auto* text = NSDynamicCast<NSString>(value)) return text;
    return value->description();
}

void setEnabled(NSObject* control, bool enabled) {
    if (auto* c = NSDynamicCast<NSControl>(control)) c->setEnabled_(enabled);
}

// The selected rows of a list, ascending.
std::vector<uint32_t> selectedRows(NSTableView* table) {
    NSMutableIndexSet* set = table->selectedRowIndexes();
    std::vector<uint32_t> rows;
    int32_t count = table->numberOfRows();
    for (int32_t r = 0; r < count && set; r++)
        if (set->containsIndex_(static_cast<uint32_t>(r))) rows.push_back(static_cast<uint32_t>(r));
    return rows;
}

// Clears the unseen mark of a table row in the list itself.
void clearUnseenMark(NSTableView* table, int32_t row) {
    const NSNativeToolkit* native = NSNative();
    if (row < 0 || !native || !table->currentHWnd()) return;
    native->listSetItemText(table->currentHWnd(), row, 0, u"");
}

// What a control shows now, in a form that compares with isEqual:; nil for
// a text control, which shows its value exactly.
NSString* snapshotOf(NSObject* control) {
    if (auto* popup = NSDynamicCast<NSPopUpButton>(control))
        return NSString::stringWithFormat_("%d", popup->indexOfSelectedItem());
    if (auto* picker = NSDynamicCast<NSDatePicker>(control)) {
        NSDate* date = picker->dateValue();
        return date ? date->description() : ""_ns;
    }
    if (auto* table = NSDynamicCast<NSTableView>(control)) {
        NSMutableString* text = NSMutableString::string();
        for (uint32_t row : selectedRows(table)) text->appendFormat_("%u ", row);
        return text;
    }
    return nullptr;
}

}  // namespace

void VTSheet::setInformationLines(NSDictionary* record) {
    NSString* user = NSSend<NSString*>(_workspace, NS_SEL("currentUserId"));
    NSString* now = NSDate::date()->vantorDescription();
    struct Line {
        const char* key;
        NSString* empty;  // the line of a new record
    };
    for (const Line& line : {Line{"__creator", user}, Line{"__created", now},
                             Line{"__modifier", user}, Line{"__modified", now}}) {
        NSString* key = NSString::stringWithUTF8String_(line.key);
        NSString* text = line.empty;
        if (record) {
            NSObject* value = record->objectForKey_(key);
            auto* date = NSDynamicCast<NSDate>(value);
            text = !value ? "???"_ns : date ? date->vantorDescription() : textOf(value);
        }
        auto* field = NSDynamicCast<NSControl>(_fieldControls->objectForKey_(key));
        if (field) field->setStringValue_(text ? text : ""_ns);
    }
}

bool VTSheet::isOwnRecord(NSDictionary* record) {
    NSObject* creator = record->objectForKey_("__creator"_ns);
    NSString* user = NSSend<NSString*>(_workspace, NS_SEL("currentUserId"));
    return creator && user && creator->isEqual_(user);
}

bool VTSheet::mayUpdate(NSDictionary* record) {
    NSObject* self = this;
    return NSSend<bool>(_workspace, NS_SEL("currentUserCanUpdate:"), self) ||
           (isOwnRecord(record) &&
            NSSend<bool>(_workspace, NS_SEL("currentUserCanUpdateOwn:"), self));
}

void VTSheet::updateButtonsForRecord(NSDictionary* record) {
    bool own = isOwnRecord(record);
    NSObject* self = this;
    bool remove = NSSend<bool>(_workspace, NS_SEL("currentUserCanRemove:"), self) ||
                  (own && NSSend<bool>(_workspace, NS_SEL("currentUserCanRemoveOwn:"), self));
    setEnabled(_saveButton, mayUpdate(record));
    setEnabled(_removeButton, remove);
    setEnabled(_historyButton, true);
}

void VTSheet::rowSelected_(NSNotification* note) {
    if (_ignoreRowSelection || !_matrix) return;
    auto* table = NSDynamicCast<NSTableView>(note ? note->object() : nullptr);
    if (!table) return;
    auto* source = NSDynamicCast<VTTableDataSource>(table->dataSource());
    int32_t row = source ? source->translateIndex_(table->selectedRow()) : -1;
    // A cleared selection (New, a reload) leaves the form as it is.
    if (row < 0 || static_cast<uint32_t>(row) >= _matrix->numberOfRows()) return;
    _activeRow = row;
    VTSendRowHook(this, NS_SEL("didSelectRow:"), row);
    _matrix->markAsSeen_rowIndex_(true, static_cast<uint32_t>(row));
    // The "*" goes at once, in the list itself, without a reload.
    clearUnseenMark(table, source->translateIndexReversely_(row));

    auto* record = static_cast<NSDictionary*>(
            _matrix->allObjectsSorted()->objectAtIndex_(static_cast<uint32_t>(row)));
    setInformationLines(record);
    updateButtonsForRecord(record);
    _keptValues->removeAllObjects();
    for (uint32_t i = 0, n = _fields->count(); i < n; i++)
        showRecordInControl(static_cast<NSArray*>(_fields->objectAtIndex_(i)), record);
}

void VTSheet::showRecordInControl(NSArray* descriptor, NSDictionary* record) {
    NSString* key = keyOf(descriptor);
    NSObject* control = _fieldControls->objectForKey_(key);
    if (!control) return;  // a hidden field
    NSObject* value = record->objectForKey_(key);
    NSString* marked = localized("notamongchoices");
    if (typeIs(descriptor, "string") || typeIs(descriptor, "multiline")) {
        static_cast<NSControl*>(control)->setStringValue_(textOf(value));
        return;
    }
    if (auto* picker = NSDynamicCast<NSDatePicker>(control)) {
        auto* date = NSDynamicCast<NSDate>(value);
        picker->setDateValue_(date ? date : NSDate::date());
    } else if (typeIs(descriptor, "enum")) {
        auto* popup = static_cast<NSPopUpButton*>(control);
        // Rebuilt, which also drops a marked entry of the former record.
        popup->removeAllItems();
        auto* values = NSDynamicCast<NSArray>(descriptor->objectAtIndex_(2));
        for (uint32_t i = 0, n = values ? values->count() : 0; i < n; i++)
            popup->addItemWithTitle_(static_cast<NSString*>(values->objectAtIndex_(i)));
        NSString* text = textOf(value);
        if (text->length() > 0 && (!values || values->indexOfObject_(text) < 0))
            popup->addItemWithTitle_(
                    NSString::stringWithFormat_(marked->UTF8String(), text->UTF8String()));
        popup->selectItemWithTitle_(text);
        if (text->length() > 0 && popup->indexOfSelectedItem() < 0)
            popup->selectItemAtIndex_(static_cast<int>(popup->items()->count()) - 1);
    } else if (typeIs(descriptor, "reference") || typeIs(descriptor, "multireference")) {
        auto* popup = NSDynamicCast<NSPopUpButton>(control);
        auto* table = NSDynamicCast<NSTableView>(control);
        if (popup) popup->removeAllItems();
        if (table) NSSend<void>(table->dataSource(), NS_SEL("removeAllItems"));
        NSMutableDictionary* positions = fillReferenceControl(descriptor);
        int32_t count = static_cast<int32_t>(positions->count());
        if (popup) popup->selectItemWithTitle_(""_ns);
        auto* target = static_cast<NSString*>(descriptor->objectAtIndex_(2));
        auto* sheets = NSSend<NSDictionary*>(_workspace, NS_SEL("sheets"));
        auto* targetSheet =
                sheets ? NSDynamicCast<VTSheet>(sheets->objectForKey_(target)) : nullptr;
        auto* displayFields = NSDynamicCast<NSArray>(descriptor->objectAtIndex_(3));
        NSMutableIndexSet* rows = NSMutableIndexSet::indexSet();
        NSArray* ids = textOf(value)->split();
        for (uint32_t i = 0, n = ids->count(); i < n; i++) {
            auto* id = static_cast<NSString*>(ids->objectAtIndex_(i));
            if (id->length() == 0) continue;
            auto* position = static_cast<NSNumber*>(positions->objectForKey_(id));
            int32_t index;
            if (position) {
                index = position->intValue();
            } else {
                // Gone, or hidden by the target's filters: a marked entry
                // that stands for the stored id.
                NSDictionary* referenced =
                        targetSheet ? targetSheet->matrix()->objectWithRecordId_(id) : nullptr;
                NSString* shown =
                        referenced ? VTMatrix::displayText(referenced, displayFields) : id;
                NSString* text =
                        NSString::stringWithFormat_(marked->UTF8String(), shown->UTF8String());
                index = count++;
                if (popup) popup->addItemWithTitle_(text);
                if (table) NSSend<void>(table->dataSource(), NS_SEL("addAnItem:"), text);
                _referenceObjects->setObject_forKey_(
                        referenced ? static_cast<NSObject*>(referenced)
                                   : NSDictionary::dictionaryWithObjectsAndKeys_(
                                             id, "__recordId"_ns, nullptr),
                        NSString::stringWithFormat_("%s-%d", key->UTF8String(), index));
            }
            if (popup) popup->selectItemAtIndex_(index);
            rows->addIndex_(static_cast<uint32_t>(index));
        }
        if (table) {
            table->reloadData();
            table->selectRowIndexes_byExtendingSelection_(rows, false);
        }
    }
    if (NSString* snapshot = snapshotOf(control)) _keptValues->setObject_forKey_(snapshot, key);
}

void VTSheet::newAction() { newAction_(1); }

void VTSheet::newAction_(uint8_t rebuildReferences) {
    _activeRow = -1;
    _keptValues->removeAllObjects();
    setEnabled(_removeButton, false);
    setEnabled(_historyButton, false);
    setEnabled(_saveButton, NSSend<bool>(_workspace, NS_SEL("currentUserCanDeposit:"),
                                         static_cast<NSObject*>(this)));
    setInformationLines(nullptr);
    for (uint32_t i = 0, n = _fields->count(); i < n; i++) {
        auto* descriptor = static_cast<NSArray*>(_fields->objectAtIndex_(i));
        NSString* key = keyOf(descriptor);
        NSObject* control = _fieldControls->objectForKey_(key);
        if (!control) continue;
        auto* fallback = static_cast<NSString*>(_defaultValues->objectForKey_(key));
        if (typeIs(descriptor, "string") || typeIs(descriptor, "multiline")) {
            static_cast<NSControl*>(control)->setStringValue_(fallback ? fallback : ""_ns);
        } else if (auto* picker = NSDynamicCast<NSDatePicker>(control)) {
            picker->setDateValue_(NSDate::date());
        } else if (typeIs(descriptor, "enum")) {
            auto* popup = static_cast<NSPopUpButton*>(control);
            auto* values = NSDynamicCast<NSArray>(descriptor->objectAtIndex_(2));
            // A marked entry of the record shown before goes.
            if (values && popup->items()->count() != values->count()) {
                popup->removeAllItems();
                for (uint32_t v = 0; v < values->count(); v++)
                    popup->addItemWithTitle_(static_cast<NSString*>(values->objectAtIndex_(v)));
            }
            popup->selectItemWithTitle_(fallback ? fallback : ""_ns);
        } else if (rebuildReferences) {
            auto* popup = NSDynamicCast<NSPopUpButton>(control);
            auto* table = NSDynamicCast<NSTableView>(control);
            if (popup) popup->removeAllItems();
            if (table) NSSend<void>(table->dataSource(), NS_SEL("removeAllItems"));
            fillReferenceControl(descriptor);
            if (popup) popup->selectItemWithTitle_(""_ns);
            if (table) table->reloadData();
        }
    }
    _tableView->setSelectedRow_(-1);
}

NSMutableDictionary* VTSheet::formValues() {
    NSMutableDictionary* values = NSMutableDictionary::dictionary();
    for (uint32_t i = 0, n = _fields->count(); i < n; i++) {
        auto* descriptor = static_cast<NSArray*>(_fields->objectAtIndex_(i));
        NSString* key = keyOf(descriptor);
        NSObject* control = _fieldControls->objectForKey_(key);
        if (!control) continue;
        NSObject* kept = _keptValues->objectForKey_(key);
        if (kept && kept->isEqual_(snapshotOf(control))) continue;  // untouched
        NSObject* value = nullptr;
        if (typeIs(descriptor, "string") || typeIs(descriptor, "multiline")) {
            value = static_cast<NSControl*>(control)->stringValue();
        } else if (auto* picker = NSDynamicCast<NSDatePicker>(control)) {
            value = picker->dateValue();
        } else if (typeIs(descriptor, "enum")) {
            auto* popup = static_cast<NSPopUpButton*>(control);
            auto* values = NSDynamicCast<NSArray>(descriptor->objectAtIndex_(2));
            int index = popup->indexOfSelectedItem();
            // The marked entry stands after the list's values.
            bool listed = index >= 0 && values && static_cast<uint32_t>(index) < values->count();
            value = listed ? values->objectAtIndex_(static_cast<uint32_t>(index)) : ""_ns;
        } else if (auto* popup = NSDynamicCast<NSPopUpButton>(control)) {
            int index = popup->indexOfSelectedItem();
            auto* record = NSDynamicCast<NSDictionary>(
                    index < 0 ? nullptr
                              : _referenceObjects->objectForKey_(NSString::stringWithFormat_(
                                        "%s-%d", key->UTF8String(), index)));
            NSObject* id = record ? record->objectForKey_("__recordId"_ns) : nullptr;
            value = id ? id : ""_ns;
        } else if (auto* table = NSDynamicCast<NSTableView>(control)) {
            NSMutableString* ids = NSMutableString::string();
            for (uint32_t r : selectedRows(table)) {
                auto* record = NSDynamicCast<NSDictionary>(_referenceObjects->objectForKey_(
                        NSString::stringWithFormat_("%s-%u", key->UTF8String(), r)));
                if (NSObject* id = record ? record->objectForKey_("__recordId"_ns) : nullptr)
                    ids->appendFormat_("%s ", textOf(id)->UTF8String());
            }
            value = ids->trim();
        }
        if (value) values->setObject_forKey_(value, key);
    }
    return values;
}

void VTSheet::save() {
    NSDictionary* record =
            _activeRow >= 0 && static_cast<uint32_t>(_activeRow) < _matrix->numberOfRows()
                    ? static_cast<NSDictionary*>(_matrix->allObjectsSorted()->objectAtIndex_(
                              static_cast<uint32_t>(_activeRow)))
                    : nullptr;
    if (!record) _activeRow = -1;
    NSMutableDictionary* values = formValues();
    if (NSString* empty = VTSaveFirstEmptyField(this, values, record)) {
        NSString* message = VTSaveEmptyFieldMessage(this, empty, localized("validation_notempty"));
        NSAlert::
                alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                        localized("validation_error"), "OK"_ns, nullptr, nullptr, message)
                        ->runModal();
        return;
    }
    _matrix->beginTransaction();
    int32_t formRow = _activeRow;
    _activeRow = VTSaveWriteFields(this, values, _activeRow);
    if (!_matrix->commitTransaction()) {
        // The matrix is as it was, and so is the form; the workspace tells
        // the user.
        _activeRow = formRow;
        NSSend<void>(_workspace, NS_SEL("commitFailedInSheet:"), static_cast<NSObject*>(this));
        return;
    }
    _matrix->markAsSeen_rowIndex_(true, static_cast<uint32_t>(_activeRow));
    reloadTable();
    NSSend<void>(_workspace, NS_SEL("refreshSheetsExceptThisOne:"), static_cast<NSObject*>(this));
    newAction();
}

void VTSheet::remove() {
    if (_activeRow < 0 || static_cast<uint32_t>(_activeRow) >= _matrix->numberOfRows()) return;
    int answer =
            NSAlert::
                    alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                            localized("removing"), "OK"_ns, "Cancel"_ns, nullptr,
                            localized("areyousure"))
                            ->runModal();
    if (answer != 1) return;
    _matrix->beginTransaction();
    _matrix->removeRow_(static_cast<uint32_t>(_activeRow));
    if (!_matrix->commitTransaction()) {
        NSSend<void>(_workspace, NS_SEL("commitFailedInSheet:"), static_cast<NSObject*>(this));
        return;
    }
    reloadTable();
    NSSend<void>(_workspace, NS_SEL("refreshSheetsExceptThisOne:"), static_cast<NSObject*>(this));
    newAction();
}

void VTSheet::customAction_(NSObject* button) {
    auto* descriptor = NSDynamicCast<NSArray>(_actionInfos->objectForKey_(button));
    if (!descriptor || _tableView->selectedRow() < 0) return;
    auto* source = NSDynamicCast<VTTableDataSource>(_tableView->dataSource());
    int32_t row = source ? source->translateIndex_(_tableView->selectedRow()) : -1;
    if (row < 0) return;
    Class cls = NSClassFromString(static_cast<NSString*>(descriptor->objectAtIndex_(1)));
    if (!cls) return;
    // The sheet doesn't release the action: it lives as long as it needs,
    // and may keep a window of its own.
    NSObject* action = cls->alloc()->init();
    NSString* base = static_cast<NSString*>(descriptor->objectAtIndex_(2));
    SEL selector = NSSelectorFromString(NSString::stringWithFormat_("%s::", base->UTF8String()));
    NSObject* extra = descriptor->objectAtIndex_(3);
    NSObject* second = NSDynamicCast<NSArray>(extra)
                               ? static_cast<NSObject*>(NSArray::arrayWithObjects_(
                                         static_cast<NSObject*>(_matrix.get()), extra, nullptr))
                               : static_cast<NSObject*>(_matrix.get());
    if (!action->respondsToSelector_(selector)) {
        action->release();
        return;
    }
    action->performSelector_withObject_withObject_(selector, NSNumber::numberWithInt_(row), second);
}

NS_EXTEND_CLASS(VTSheet, Editing)
NS_METHOD(rowSelected_)
NS_METHOD(newAction)
NS_METHOD(newAction_)
NS_METHOD(save)
NS_METHOD(remove)
NS_METHOD(customAction_)
NS_EXTEND_END

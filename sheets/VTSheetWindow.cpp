// The sheet on a screen: a row of buttons along the top, a form of
// labelled controls down the left, the record table on the right and four
// read-only lines with the record's creator and modifier. The same screen
// is built in a tab page of the main window or in the sheet's own window.
#include "foundation/NSDate.h"
#include "foundation/NSNotificationCenter.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "sheets/VTSheetDelegate.h"
#include "sheets/VTTableDataSource.h"
#include "sheets/VTWrapper.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSDatePicker.h"
#include "toolkit/NSPopUpButton.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSTextView.h"
#include "toolkit/NSWindow.h"

namespace {

// Form geometry: labels at x 10, controls at x 120, rows from r = 55 down.
constexpr float kLabelX = 10;
constexpr float kControlX = 120;
constexpr float kWidth = 200;
constexpr float kFirstRow = 55;

template <class T>
Ref<T> make(float x, float y, float width, float height) {
    return adoptRef(static_cast<T*>(T::alloc()->initWithFrame_(NSMakeRect(x, y, width, height))));
}

bool typeIs(NSArray* descriptor, const char* type) {
    return descriptor->objectAtIndex_(1)->isEqual_(NSString::stringWithUTF8String_(type));
}

// A read-only line of text: a label or an information value.
Ref<NSTextField> makeLabel(NSView* parent, float x, float y, float width, NSString* text) {
    Ref<NSTextField> label = make<NSTextField>(x, y, width, 20);
    label->setStringValue_(text);
    label->setEditable_(false);
    label->setBordered_(false);
    parent->addSubview_(label);
    return label;
}

// A column whose header click sorts the sheet's table.
void addColumn(NSTableView* table, NSString* identifier, NSString* header, NSObject* sheet,
               float width) {
    Ref<NSTableColumn> column = adoptRef(
            static_cast<NSTableColumn*>(NSTableColumn::alloc()->initWithIdentifier_(identifier)));
    column->headerCell()->setStringValue_(header);
    if (sheet) {
        column->headerCell()->setTarget_(sheet);
        column->headerCell()->setAction_(NS_SEL("columnAction:"));
    }
    column->setWidth_(width);
    table->addTableColumn_(column);
}

}  // namespace

NSString* VTSheet::localized(const char* key) {
    NSString* k = NSString::stringWithUTF8String_(key);
    auto* text = NSSend<NSString*>(_workspace, NS_SEL("localizedString:"), k);
    return text ? text : NSString::stringWithFormat_("[%s]", key);
}

void VTSheet::prepare_(uint8_t front) {
    if (auto* window = static_cast<NSWindow*>(_window)) {
        if (front) window->restore();
        return;
    }
    _guiObjects->removeAllObjects();
    // The sheet keeps its window for the rest of its life: closing hides it.
    auto* window =
            static_cast<NSWindow*>(NSWindow::alloc()->initWithContentRect_styleMask_backing_defer_(
                    NSMakeRect(55, 55, 850, 680), 1, 2, true));
    _window = window;
    window->setTitle_(_title);
    window->setDelegate_(NSAutorelease(VTSheetDelegate::alloc()->initWithSheet_(this)));
    show_(window->contentView());
    if (front) window->orderFront_(nullptr);
}

void VTSheet::show() { prepare_(1); }

void VTSheet::refresh() {
    if (isFullyInitialized() && _tableView) reloadTable();
}

void VTSheet::reloadTable() {
    uint8_t ignoring = _ignoreRowSelection;
    _ignoreRowSelection = 1;
    NSSend<void>(_tableView->dataSource(), NS_SEL("filter"));
    _tableView->reloadData();
    _ignoreRowSelection = ignoring;
}

void VTSheet::show_(NSView* parent) {
    _fullyInitialized = 1;
    float height = parent->bounds().size.height;

    struct Fixed {
        float x;
        const char* title;
        const char* action;
        Ref<NSObject>* field;
    };
    for (const Fixed& f : {Fixed{10, "bt_new", "newAction", &_newButton},
                           Fixed{115, "bt_save", "save", &_saveButton},
                           Fixed{220, "bt_remove", "remove", &_removeButton}}) {
        Ref<NSButton> button = make<NSButton>(f.x, height - 30, 100, 25);
        button->setTitle_(localized(f.title));
        button->setTarget_(this);
        button->setAction_(NSSelectorFromCString(f.action));
        button->setBezelStyle_(1);
        f.field->set(button.get());
        _guiObjects->addObject_(button);
        parent->addSubview_(button);
    }
    for (uint32_t i = 0, n = _actions->count(); i < n; i++) {
        auto* descriptor = static_cast<NSArray*>(_actions->objectAtIndex_(i));
        Ref<NSButton> button =
                make<NSButton>(330 + 105 * static_cast<float>(i), height - 30, 100, 25);
        button->setTitle_(static_cast<NSString*>(descriptor->objectAtIndex_(0)));
        button->setTarget_(this);
        button->setAction_(NS_SEL("customAction:"));
        button->setBezelStyle_(1);
        _guiObjects->addObject_(button);
        parent->addSubview_(button);
        _actionInfos->setObject_forKey_(descriptor, button.get());
    }

    parent->addSubview_(_tableView);
    addColumn(_tableView, "_seen_"_ns, ""_ns, nullptr, 20);

    NSMutableSet* roles = NSSend<NSMutableSet*>(_workspace, NS_SEL("rolesForCurrentUser"));
    float r = kFirstRow;
    NSObject* firstText = nullptr;
    NSObject* lastText = nullptr;
    for (uint32_t i = 0, n = _fields->count(); i < n; i++)
        addFieldControl(parent, static_cast<NSArray*>(_fields->objectAtIndex_(i)), height, &r,
                        roles, &firstText, &lastText);
    if (lastText)
        static_cast<NSResponder*>(lastText)->setNextResponder_(
                static_cast<NSResponder*>(firstText));

    struct Optional {
        bool on;
        const char* key;
        const char* header;
    };
    for (const Optional& o : {Optional{createdInView(), "__created", "created"},
                              Optional{modifiedInView(), "__modified", "modified"},
                              Optional{creatorInView(), "__creator", "creator"},
                              Optional{modifierInView(), "__modifier", "modifier"}}) {
        if (o.on)
            addColumn(_tableView, NSString::stringWithUTF8String_(o.key), localized(o.header), this,
                      0);
    }
    addInformationLines(parent, height, r);
    addHistoryButton(parent, height, r + 4 * 20);

    NSNotificationCenter::defaultCenter()->addObserver_selector_name_object_(
            this, NS_SEL("rowSelected:"), "NSTableViewSelectionDidChangeNotification"_ns,
            _tableView);
    makeDataSource();
    reloadTable();

    newAction_(0);
    static_cast<NSControl*>(_saveButton.get())->setEnabled_(false);
    static_cast<NSControl*>(_removeButton.get())->setEnabled_(false);
    if (!NSSend<bool>(_workspace, NS_SEL("currentUserCanDeposit:"), static_cast<NSObject*>(this)))
        static_cast<NSControl*>(_newButton.get())->setEnabled_(false);
}

void VTSheet::addFieldControl(NSView* parent, NSArray* descriptor, float height, float* r,
                              NSMutableSet* roles, NSObject** firstText, NSObject** lastText) {
    auto* key = static_cast<NSString*>(descriptor->objectAtIndex_(0));
    // A hidden field has neither label, column nor control.
    if (_hiddenFields->objectForKey_(key)) return;
    auto* label = static_cast<NSString*>(_fieldLabels->objectForKey_(key));
    if (!label) label = key;
    if (_inView->member_(key)) addColumn(_tableView, key, label, this, 0);

    Ref<NSTextField> labelField = makeLabel(parent, kLabelX, height - *r, 100, label);
    _guiObjects->addObject_(labelField);

    Ref<NSControl> control;
    bool text = false;
    if (typeIs(descriptor, "string")) {
        control = make<NSTextField>(kControlX, height - *r, kWidth, 20);
        *r += 25;
        text = true;
    } else if (typeIs(descriptor, "multiline")) {
        control = make<NSTextView>(kControlX, height - 100 - *r, kWidth, 120);
        *r += 125;
        text = true;
    } else if (typeIs(descriptor, "datetimepicker") || typeIs(descriptor, "datepicker")) {
        Ref<NSDatePicker> picker = make<NSDatePicker>(kControlX, height - *r, kWidth, 20);
        if (typeIs(descriptor, "datepicker")) picker->setDateOnly_(true);
        control = picker;
        *r += 25;
    } else if (typeIs(descriptor, "enum") || typeIs(descriptor, "reference")) {
        Ref<NSPopUpButton> popup = make<NSPopUpButton>(kControlX, height - 100 - *r, kWidth, 120);
        if (typeIs(descriptor, "enum")) {
            auto* values = NSDynamicCast<NSArray>(descriptor->objectAtIndex_(2));
            for (uint32_t i = 0, n = values ? values->count() : 0; i < n; i++)
                popup->addItemWithTitle_(static_cast<NSString*>(values->objectAtIndex_(i)));
        }
        control = popup;
        *r += 25;
    } else if (typeIs(descriptor, "multireference")) {
        Ref<NSTableView> table = make<NSTableView>(kControlX, height - 100 - *r, kWidth, 120);
        control = table;
        *r += 125;
    } else {
        return;
    }
    control->setToolTip_(static_cast<NSString*>(_toolTips->objectForKey_(key)));
    _fieldControls->setObject_forKey_(control, key);
    parent->addSubview_(control);

    if (auto* table = NSDynamicCast<NSTableView>(control.get())) {
        Ref<VTSimpleDataSource> source =
                adoptRef(static_cast<VTSimpleDataSource*>(VTSimpleDataSource::alloc()->init()));
        table->setDataSource_(source);
        // Narrower than the list, so that no horizontal scroll bar shows
        // beside a vertical one.
        addColumn(table, key, label, nullptr, kWidth - 25);
    }
    if (typeIs(descriptor, "reference") || typeIs(descriptor, "multireference"))
        fillReferenceControl(descriptor);

    if (text) {
        if (!*firstText) *firstText = control.get();
        if (*lastText) static_cast<NSResponder*>(*lastText)->setNextResponder_(control);
        *lastText = control.get();
    }
    // Field rights: roles of an access clause, none of which the user has,
    // leave the control disabled, its value still shown.
    NSArray* allowed = _access->objectsForKey_(key);
    if (allowed->count() > 0) {
        bool holds = false;
        for (uint32_t i = 0, n = allowed->count(); i < n && !holds; i++)
            holds = roles && roles->member_(allowed->objectAtIndex_(i));
        if (!holds) control->setEnabled_(false);
    }
}

void VTSheet::addInformationLines(NSView* parent, float height, float r) {
    NSString* user = NSSend<NSString*>(_workspace, NS_SEL("currentUserId"));
    NSString* now = NSDate::date()->description();
    struct Line {
        const char* label;
        const char* key;
        NSString* value;
    };
    for (const Line& line :
         {Line{"creator", "__creator", user}, Line{"created", "__created", now},
          Line{"modifier", "__modifier", user}, Line{"modified", "__modified", now}}) {
        Ref<NSTextField> label = makeLabel(parent, kLabelX, height - r, 100, localized(line.label));
        _guiObjects->addObject_(label);
        Ref<NSTextField> value =
                makeLabel(parent, kControlX, height - r, kWidth, line.value ? line.value : ""_ns);
        _fieldControls->setObject_forKey_(value, NSString::stringWithUTF8String_(line.key));
        r += 20;
    }
}

NSMutableDictionary* VTSheet::fillReferenceControl(NSArray* descriptor) {
    auto* key = static_cast<NSString*>(descriptor->objectAtIndex_(0));
    auto* target = static_cast<NSString*>(descriptor->objectAtIndex_(2));
    auto* displayFields = NSDynamicCast<NSArray>(descriptor->objectAtIndex_(3));
    NSMutableDictionary* positions = NSMutableDictionary::dictionary();
    NSObject* control = _fieldControls->objectForKey_(key);
    auto* sheets = NSSend<NSDictionary*>(_workspace, NS_SEL("sheets"));
    auto* targetSheet = sheets ? NSDynamicCast<VTSheet>(sheets->objectForKey_(target)) : nullptr;
    NSTableView* targetTable = targetSheet ? targetSheet->sheetTableView() : nullptr;
    auto* records =
            targetTable ? NSSend<NSArray*>(targetTable->dataSource(), NS_SEL("allObjectsFiltered"))
                        : nullptr;
    NSMutableArray* wrappers = NSMutableArray::array();
    for (uint32_t i = 0, n = records ? records->count() : 0; i < n; i++) {
        auto* record = static_cast<NSDictionary*>(records->objectAtIndex_(i));
        NSString* display = VTMatrix::displayText(record, displayFields);
        wrappers->addObject_(
                NSAutorelease(VTWrapper::alloc()->initWithObject_value_(record, display)));
    }
    NSArray* sorted = wrappers->sortedArrayUsingSelector_(NS_SEL("compareWithWrapper:"));
    auto* popup = NSDynamicCast<NSPopUpButton>(control);
    auto* table = NSDynamicCast<NSTableView>(control);
    for (uint32_t i = 0, n = sorted->count(); i < n; i++) {
        auto* wrapper = static_cast<VTWrapper*>(sorted->objectAtIndex_(i));
        auto* text = static_cast<NSString*>(wrapper->value());
        if (popup) popup->addItemWithTitle_(text);
        if (table) NSSend<void>(table->dataSource(), NS_SEL("addAnItem:"), text);
        _referenceObjects->setObject_forKey_(
                wrapper->object(), NSString::stringWithFormat_("%s-%d", key->UTF8String(), i));
        NSObject* id =
                static_cast<NSDictionary*>(wrapper->object())->objectForKey_("__recordId"_ns);
        if (id) positions->setObject_forKey_(NSNumber::numberWithInt_(static_cast<int32_t>(i)), id);
    }
    if (table) table->reloadData();
    return positions;
}

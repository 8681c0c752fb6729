// The tab gallery: a main window with a tab view of two pages, the first
// with a filled table and the controls of a record, the second with a small
// form, all made the way the sheets make them (the pages' controls at their
// timer). Not a test and not installed; run it under a real display:
//
//   wine build/tests/toolkit/toolkit-tabs.exe.so
//
// It runs until its window is closed.
#include "foundation/Foundation.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSPopUpButton.h"
#include "toolkit/NSTabView.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSWindow.h"

// A few task records, the way a sheet's data source answers them.
class GalleryTasks : public NSObject {
    NS_DECLARE_CLASS(GalleryTasks, NSObject)

public:
    int32_t numberOfRowsInTableView_(NSObject*) { return kRows; }
    NSObject* tableView_objectValueForTableColumn_row_(NSObject*, NSTableColumn* column,
                                                       int32_t row) {
        static const char* const tasks[kRows][5] = {
                {"*", "Order paper for the press", "open", "3.5.2008", "Ada Lovelace"},
                {"", "Quarterly report", "in progress", "6.5.2008 09:30:00", "Charles Babbage"},
                {"", "Book the meeting room", "closed", "7.5.2008", "Mary Somerville"},
                {"*", "Call the auditors", "open", "12.5.2008", "Ada Lovelace"},
                {"", "Renew the maintenance contract", "in progress", "15.5.2008",
                 "Charles Babbage"},
                {"", "Update the price list", "open", "20.5.2008", "Augustus De Morgan"},
                {"", "Plan the summer closing", "open", "2.6.2008", "Mary Somerville"},
                {"*", "Answer the tender", "in progress", "9.6.2008", "Ada Lovelace"},
        };
        static const char* const fields[5] = {"_seen_", "title", "status", "due", "owner"};
        for (int c = 0; c < 5; c++)
            if (column->identifier()->isEqual_(NSString::stringWithUTF8String_(fields[c])))
                return NSString::stringWithUTF8String_(tasks[row][c]);
        return nullptr;
    }
    static constexpr int32_t kRows = 8;

protected:
    ~GalleryTasks() override = default;
};

NS_CLASS_BEGIN(GalleryTasks, NSObject)
    NS_METHOD(numberOfRowsInTableView_)
    NS_METHOD(tableView_objectValueForTableColumn_row_)
NS_CLASS_END(GalleryTasks)

namespace {

template <class T>
T* place(NSView* view, float x, float y, float width, float height) {
    T* control = static_cast<T*>(T::alloc()->initWithFrame_(NSMakeRect(x, y, width, height)));
    view->addSubview_(control);
    control->release();  // the application's control list keeps it
    return control;
}

// A read-only label; in a page the flags wait for the control's creation.
void label(NSView* view, float x, float y, const char* text) {
    NSTextField* field = place<NSTextField>(view, x, y, 90, 20);
    field->setStringValue_(NSString::stringWithUTF8String_(text));
    field->setEditable_(false);
    field->setBordered_(false);
}

NSTextField* field(NSView* view, float x, float y, float width, const char* text) {
    NSTextField* f = place<NSTextField>(view, x, y, width, 22);
    f->setStringValue_(NSString::stringWithUTF8String_(text));
    return f;
}

NSTabViewItem* addPage(NSTabView* tabs, const char* title) {
    Ref<NSTabViewItem> item = adoptRef(static_cast<NSTabViewItem*>(
            NSTabViewItem::alloc()->initWithIdentifier_(NSString::stringWithUTF8String_(title))));
    tabs->addTabViewItem_(item);
    return item;  // the tab view keeps it
}

// Answers the table, to be focused once the window shows.
NSTableView* fillTasks(NSView* page, NSObject* tasks) {
    float height = page->bounds().size.height;
    NSTableView* table = place<NSTableView>(page, 6, 110, 592, height - 118);
    const char* columns[][2] = {{"_seen_", "*"},
                                {"title", "Title"},
                                {"status", "Status"},
                                {"due", "Due"},
                                {"owner", "Owner"}};
    for (auto& c : columns) {
        NSTableColumn* column =
                NSTableColumn::alloc()->initWithIdentifier_(NSString::stringWithUTF8String_(c[0]));
        column->headerCell()->setStringValue_(NSString::stringWithUTF8String_(c[1]));
        if (c[0][0] == '_') column->setWidth_(20);
        table->addTableColumn_(column);
        column->release();
    }
    table->setDataSource_(tasks);
    table->reloadData();
    table->setSelectedRow_(1);

    label(page, 10, 72, "Title");
    field(page, 100, 72, 300, "Quarterly report");
    label(page, 10, 42, "Status");
    field(page, 100, 42, 160, "in progress");
    label(page, 10, 12, "Owner");
    field(page, 100, 12, 300, "Charles Babbage");
    NSButton* save = place<NSButton>(page, 500, 70, 90, 25);
    save->setTitle_("Save"_ns);
    NSButton* remove = place<NSButton>(page, 500, 40, 90, 25);
    remove->setTitle_("Remove"_ns);
    return table;
}

void fillPeople(NSView* page) {
    float top = page->bounds().size.height - 40;
    label(page, 10, top, "First name");
    field(page, 100, top, 240, "Mary");
    label(page, 10, top - 30, "Last name");
    field(page, 100, top - 30, 240, "Somerville");
    label(page, 10, top - 60, "Unit");
    field(page, 100, top - 60, 240, "Astronomy");
    label(page, 10, top - 90, "Role");
    NSPopUpButton* role =
            NSPopUpButton::alloc()->initWithFrame_(NSMakeRect(100, top - 190, 160, 120));
    for (const char* r : {"editor", "reader", "admin"})
        role->addItemWithTitle_(NSString::stringWithUTF8String_(r));
    page->addSubview_(role);
    role->release();
}

}  // namespace

int main() {
    NSAutoreleasePoolScope pool;
    NSInitCommonControls();
    NSApplication* app = NSApplication::sharedApplication();
    Ref<NSWindow> window = adoptRef(NSWindow::alloc()->initWithContentRect_styleMask_backing_defer_(
            NSMakeRect(20, 20, 640, 480), 0, 0, false));
    window->setTitle_("Vantor toolkit: tabs and a table"_ns);
    // 445 high; the real caption and frame take less than the 35 pixels
    // the content view allows for, so a strip at the bottom stays free.
    NSView* content = window->contentView();
    NSTabView* tabs = place<NSTabView>(content, 8, 34, 616, 400);
    Ref<GalleryTasks> tasks = adoptRef(static_cast<GalleryTasks*>(GalleryTasks::alloc()->init()));
    NSTableView* table = fillTasks(addPage(tabs, "Tasks")->view(), tasks);
    fillPeople(addPage(tabs, "People")->view());

    NSTextField* hint = place<NSTextField>(content, 8, 6, 616, 22);
    hint->setStringValue_("Hint line: tool tips show here"_ns);
    hint->setEditable_(false);
    NSApplication::setHintLine(hint);

    window->orderFront_(nullptr);
    // Focused, the list shows its selection in the selection colour.
    window->makeFirstResponder_(table);
    app->run();
    return 0;
}

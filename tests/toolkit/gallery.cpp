// The control gallery: one window with every kind of control the toolkit
// makes, filled in and partly disabled, for looking at. Not a test and not
// installed; run it under a real display:
//
//   wine build/tests/toolkit/toolkit-gallery.exe.so
//
// It runs until its window is closed.
#include "foundation/Foundation.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSDatePicker.h"
#include "toolkit/NSMenu.h"
#include "toolkit/NSPopUpButton.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSTextView.h"
#include "toolkit/NSWindow.h"

namespace {

template <class T>
T* place(NSView* content, float x, float y, float width, float height) {
    T* view = static_cast<T*>(T::alloc()->initWithFrame_(NSMakeRect(x, y, width, height)));
    content->addSubview_(view);
    view->release();  // the application's control list keeps it
    return view;
}

// A read-only label, the way the application makes them: a field turned
// into a plain edit after it is placed.
void label(NSView* content, float x, float y, const char* text) {
    NSTextField* field = place<NSTextField>(content, x, y, 110, 20);
    field->setStringValue_(NSString::stringWithUTF8String_(text));
    field->setEditable_(false);
    field->setBordered_(false);
}

NSMenu* menuBar() {
    NSMenu* bar = NSMenu::alloc()->initWithTitle_("Main"_ns);
    const char* names[][3] = {{"File", "Export", "Quit"}, {"Help", "About", nullptr}};
    for (auto& entry : names) {
        Ref<NSMenu> submenu = adoptRef(NSMenu::alloc()->initPopupMenuWithTitle_(
                NSString::stringWithUTF8String_(entry[0])));
        for (int i = 1; i < 3 && entry[i]; i++) {
            Ref<NSMenuItem> item =
                    adoptRef(NSMenuItem::alloc()->initWithTitle_action_keyEquivalent_(
                            NSString::stringWithUTF8String_(entry[i]), nullptr, ""_ns));
            submenu->addItem_(item);
        }
        Ref<NSMenuItem> top = adoptRef(NSMenuItem::alloc()->initWithTitle_action_keyEquivalent_(
                NSString::stringWithUTF8String_(entry[0]), nullptr, ""_ns));
        top->setSubmenu_(submenu);
        bar->addItem_(top);
    }
    return bar;
}

}  // namespace

int main() {
    NSAutoreleasePoolScope pool;
    NSInitCommonControls();
    NSApplication* app = NSApplication::sharedApplication();
    Ref<NSWindow> window = adoptRef(NSWindow::alloc()->initWithContentRect_styleMask_backing_defer_(
            NSMakeRect(20, 20, 560, 420), 0, 0, false));
    window->setTitle_("Vantor toolkit gallery"_ns);
    Ref<NSMenu> bar = adoptRef(menuBar());
    window->setMenu_(bar);
    // 385 high; the real caption, menu bar and frame take more than the 35
    // pixels the content view allows for, so the lowest 20 stay free.
    NSView* content = window->contentView();

    label(content, 15, 345, "Name");
    NSTextField* name = place<NSTextField>(content, 130, 345, 200, 22);
    name->setStringValue_("Ada Lovelace"_ns);
    label(content, 15, 315, "Unit (read-only)");
    NSTextField* unit = NSTextField::alloc()->initWithFrame_(NSMakeRect(130, 315, 200, 22));
    unit->setStringValue_("Analytical Engines"_ns);
    unit->setEnabled_(false);  // before creation: read-only
    content->addSubview_(unit);
    unit->release();
    label(content, 15, 285, "Company (off)");
    NSTextField* company = place<NSTextField>(content, 130, 285, 200, 22);
    company->setStringValue_("Babbage & Co."_ns);
    company->setEnabled_(false);  // after creation: grey
    label(content, 15, 255, "Password");
    NSSecureTextField* password = place<NSSecureTextField>(content, 130, 255, 200, 22);
    password->setStringValue_("secret"_ns);
    name->setNextResponder_(password);

    label(content, 15, 225, "Sheet");
    NSPopUpButton* sheet = NSPopUpButton::alloc()->initWithFrame_(NSMakeRect(130, 125, 200, 120));
    for (const char* title : {"Contacts", "Projects", "Invoices"})
        sheet->addItemWithTitle_(NSString::stringWithUTF8String_(title));
    content->addSubview_(sheet);
    sheet->release();
    sheet->selectItemAtIndex_(1);
    label(content, 15, 195, "Archive (off)");
    NSPopUpButton* archive = NSPopUpButton::alloc()->initWithFrame_(NSMakeRect(130, 95, 200, 120));
    archive->addItemWithTitle_("2008"_ns);
    content->addSubview_(archive);
    archive->release();
    archive->selectItemAtIndex_(0);
    archive->setEnabled_(false);

    VTSystemTime when = {2008, 5, 6, 3, 9, 30, 0, 0};
    Ref<NSDate> date = adoptRef(static_cast<NSDate*>(NSDate::alloc()->initWithSystemTime_(when)));
    label(content, 15, 165, "Due");
    NSDatePicker* due = NSDatePicker::alloc()->initWithFrame_(NSMakeRect(130, 165, 200, 22));
    due->setDateOnly_(true);
    content->addSubview_(due);
    due->release();
    due->setDateValue_(date);
    label(content, 15, 135, "Meeting (off)");
    NSDatePicker* meeting = place<NSDatePicker>(content, 130, 135, 240, 22);
    meeting->setDateValue_(date);
    meeting->setEnabled_(false);

    label(content, 15, 110, "Notes");
    NSTextView* notes = place<NSTextView>(content, 130, 55, 400, 75);
    notes->setString_(
            "Several lines of text\r\nin a multi-line edit\r\nwith a vertical scroll bar."_ns);

    NSButton* save =
            static_cast<NSButton*>(NSButton::alloc()->initWithFrame_(NSMakeRect(350, 345, 90, 25)));
    save->setTitle_("Save"_ns);
    content->addSubview_(save);
    save->release();
    NSButton* remove =
            static_cast<NSButton*>(NSButton::alloc()->initWithFrame_(NSMakeRect(350, 315, 90, 25)));
    remove->setTitle_("Remove"_ns);
    remove->setEnabled_(false);
    content->addSubview_(remove);
    remove->release();

    NSTextField* hint = place<NSTextField>(content, 15, 20, 515, 22);
    hint->setStringValue_("Hint line: tool tips show here"_ns);
    hint->setEditable_(false);
    NSApplication::setHintLine(hint);

    window->orderFront_(nullptr);
    window->makeFirstResponder_(name);
    app->run();
    return 0;
}

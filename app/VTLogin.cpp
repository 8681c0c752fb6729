#include "app/VTLogin.h"

#include "app/VTAppDelegate.h"
#include "app/VTMainWindow.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "sheets/VTSheet.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSImage.h"
#include "toolkit/NSStatusBar.h"
#include "toolkit/NSTabView.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSWindow.h"

namespace {

// Builds the sheet's screen in the tab's page. A sheet that builds its own
// screen (show:) does so; otherwise the page holds the sheet's record
// table at the frame the sheet gave it. Without a native side
// (vantor-admin, native tests) a tab has no page and nothing is built.
void showSheetInPage(VTSheet* sheet, NSView* page) {
    if (!page) return;
    static const SEL show = NS_SEL("show:");
    if (sheet->respondsToSelector_(show)) {
        NSSend<void>(sheet, show, static_cast<NSObject*>(page));
        return;
    }
    NSTableView* table = sheet->sheetTableView();
    if (table) page->addSubview_(table);
}

// The main window's delegate: the sheets' window delegate, made without a
// sheet, which keeps the tab view, the hint line and the tables fitted to
// the window. It belongs to the sheets' window code and is found by name.
void giveMainWindowItsDelegate(NSWindow* window) {
    Class delegateClass = NSClassFromString("VTSheetDelegate"_ns);
    if (!delegateClass) return;
    NSObject* delegate = delegateClass->alloc()->init();
    window->setDelegate_(NSAutorelease(delegate));
}

// The tray icon. Its title is the tip and must be in place before the
// image, which puts the icon up; the application's delegate keeps the
// item and lets it go (taking the icon down) when the process ends.
void putUpStatusItem() {
    NSApplication* application = NSApplication::sharedApplication();
    NSStatusItem* item = NSStatusBar::systemStatusBar()->statusItemWithLength_(0);
    item->setTitle_("Vantor"_ns);
    item->setImage_(NSImage::applicationIcon());
    item->setTarget_(application->delegate());
    item->setAction_(NS_SEL("statusItemClicked:"));
    if (auto* delegate = NSDynamicCast<VTAppDelegate>(application->delegate()))
        delegate->setStatusItem_(item);
}

}  // namespace

void VTLogin::perform() {
    VTClientWindows& w = VTWindows();
    if (!w.workspace || !w.passwordField) return;
    NSString* typed = w.passwordField->stringValue();
    NSObject* password = w.workspace->userInfo()->objectForKey_("Password"_ns);
    if (!typed || !password || !typed->isEqual_(password)) {
        NSBeep();
        w.passwordField->setStringValue_(""_ns);
        return;
    }
    w.passwordField->setHidden_(true);
    w.loginButton->setHidden_(true);

    w.workspace->startTransceiver();
    // The data server. An operation the workspace does not have is ignored,
    // like any unknown message: then the client runs without it.
    NSSend<void>(w.workspace, NS_SEL("startDataServer"));

    NSArray* sheets = w.visibleSheets;
    for (uint32_t i = 0, n = sheets->count(); i < n; i++) {
        auto* sheet = static_cast<VTSheet*>(sheets->objectAtIndex_(i));
        Ref<NSTabViewItem> item =
                NSMake<NSTabViewItem>(&NSTabViewItem::initWithIdentifier_, sheet->title());
        w.mainTabView->addTabViewItem_(item);
        showSheetInPage(sheet, item->view());
    }

    w.loginWindow->close();
    NSApplication::sharedApplication()->setMainWindow_(w.mainWindow);
    giveMainWindowItsDelegate(w.mainWindow);
    w.mainWindow->orderFront_(nullptr);
    putUpStatusItem();
}

NS_CLASS_BEGIN(VTLogin, NSObject)
    NS_METHOD(perform)
NS_CLASS_END(VTLogin)

#include "app/VTLogin.h"

#include "app/VTAppDelegate.h"
#include "app/VTMainWindow.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "sheets/VTSheet.h"
#include "sheets/VTSheetDelegate.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSImage.h"
#include "toolkit/NSStatusBar.h"
#include "toolkit/NSTabView.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSWindow.h"

namespace {

// Builds the sheet's screen in the tab's page. Without a native side
// (vantor-admin, native tests) a tab has no page and nothing is built.
void showSheetInPage(VTSheet* sheet, NSView* page) {
    if (page) sheet->show_(page);
}

// The main window's delegate: the sheets' window delegate, made without a
// sheet, which keeps the tab view, the hint line and the tables fitted to
// the window.
void giveMainWindowItsDelegate(NSWindow* window) {
    window->setDelegate_(NSAutorelease(VTSheetDelegate::alloc()->init()));
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
    // A data server whose port is taken costs its log line only.
    w.workspace->startDataServer();

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

#include "app/VTMainWindow.h"

#include "app/VTLocalization.h"
#include "app/VTLogin.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "sheets/VTSheet.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSMenu.h"
#include "toolkit/NSTabView.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSWindow.h"

namespace {

// The window title, and the version lines of the login window.
constexpr const char* kTitle = "Vantor 3.0";

Ref<NSWindow> makeWindow(float x, float y, float width, float height) {
    Ref<NSWindow> window = NSMake<NSWindow>(&NSWindow::initWithContentRect_styleMask_backing_defer_,
                                            NSMakeRect(x, y, width, height), 1u, 2, true);
    window->setTitle_(NSString::stringWithUTF8String_(kTitle));
    return window;
}

// A read-only line of text without a border, added to the view.
void addLabel(NSView* view, _NSRect frame, NSString* text) {
    Ref<NSTextField> label = NSMake<NSTextField>(&NSTextField::initWithFrame_, frame);
    label->setEditable_(false);
    label->setBordered_(false);
    label->setStringValue_(text);
    view->addSubview_(label);
}

// File > Quit, the one menu of the main window. Quit goes to the
// workspace, which asks the application to end.
//
// Not offered: an "Instant messages" menu with "Compose..." and a pop-up
// menu on the tray icon. The client has no window to compose a message
// in (messages are records of their own sheet, written in its form), and
// the tray menu's only entry would be File without anything under it, so
// both would be items that do nothing. The tray icon stays a plain icon.
void buildMenu(NSWindow* window, VTWorkspace* workspace) {
    Ref<NSMenu> mainMenu = NSMake<NSMenu>(&NSMenu::initWithTitle_, "Main menu"_ns);
    Ref<NSMenu> fileMenu = NSMake<NSMenu>(&NSMenu::initPopupMenuWithTitle_, "File"_ns);
    Ref<NSMenuItem> quit =
            NSMake<NSMenuItem>(&NSMenuItem::initWithTitle_action_keyEquivalent_,
                               VTLocalizedString("m_Quit"_ns), NS_SEL("menuFileQuit:"), ""_ns);
    quit->setTarget_(workspace);
    fileMenu->addItem_(quit);
    Ref<NSMenuItem> file = NSMake<NSMenuItem>(&NSMenuItem::initWithTitle_action_keyEquivalent_,
                                              VTLocalizedString("m_File"_ns), SEL(nullptr), ""_ns);
    file->setSubmenu_(fileMenu);
    mainMenu->addItem_(file);
    window->setMenu_(mainMenu);
}

void fillLoginWindow(VTClientWindows& w) {
    NSView* content = w.loginWindow->contentView();
    // The content view is 35 lower than the window's content rectangle.
    const float h = 195;
    auto* userId = static_cast<NSString*>(w.workspace->userInfo()->objectForKey_("UserID"_ns));
    addLabel(content, NSMakeRect(20, h - 30, 300, 20), userId ? userId : ""_ns);

    w.passwordField = NSMake<NSSecureTextField>(&NSSecureTextField::initWithFrame_,
                                                NSMakeRect(20, h - 50, 200, 20));
    content->addSubview_(w.passwordField);

    w.loginButton = NSMake<NSButton>(&NSButton::initWithFrame_, NSMakeRect(230, h - 50, 100, 25));
    w.loginButton->setTitle_(VTLocalizedString("login"_ns));
    w.login = NSMake<VTLogin>();
    w.loginButton->setTarget_(w.login);
    w.loginButton->setAction_(NS_SEL("perform"));
    w.loginButton->setBezelStyle_(1);
    w.loginButton->setKeyEquivalent_("\r"_ns);
    content->addSubview_(w.loginButton);

    addLabel(content, NSMakeRect(30, h - 100, 310, 20), "Vantor version 3.0"_ns);
    addLabel(content, NSMakeRect(30, h - 120, 310, 20), "build 080505"_ns);
    addLabel(content, NSMakeRect(30, h - 140, 310, 20), "Copyright (c) the Vantor developers"_ns);
    addLabel(content, NSMakeRect(30, h - 180, 310, 20), VTLocalizedString("pleasereport"_ns));

    // Ready to type: Enter in the field presses the login button through
    // the key-equivalent registry.
    w.loginWindow->makeFirstResponder_(w.passwordField);
}

}  // namespace

VTClientWindows& VTWindows() {
    // Never destroyed: the windows live until the process is gone, also
    // through exit(), which runs no message loop that could take them down.
    static VTClientWindows* windows = new VTClientWindows;
    return *windows;
}

void VTAssembleWindows(VTWorkspace* workspace) {
    VTClientWindows& w = VTWindows();
    w = VTClientWindows();
    w.workspace = workspace;
    NSApplication* application = NSApplication::sharedApplication();

    w.loginWindow = makeWindow(30, 30, 360, 230);
    w.mainWindow = makeWindow(55, 55, 850, 690);
    application->setMainWindow_(w.loginWindow);

    buildMenu(w.mainWindow, workspace);
    w.loginWindow->orderFront_(nullptr);

    NSView* content = w.mainWindow->contentView();
    w.mainTabView = NSMake<NSTabView>(&NSTabView::initWithFrame_, NSMakeRect(0, 0, 842, 645));
    content->addSubview_(w.mainTabView);
    w.hintLine = NSMake<NSTextField>(&NSTextField::initWithFrame_, NSMakeRect(10, 5, 800, 30));
    w.hintLine->setEditable_(false);
    w.hintLine->setBordered_(false);
    content->addSubview_(w.hintLine);
    NSApplication::setHintLine(w.hintLine);

    w.visibleSheets = NSMake<NSMutableArray>();
    NSArray* sheets = workspace->listOfSheets();
    for (uint32_t i = 0, n = sheets->count(); i < n; i++) {
        auto* sheet = static_cast<VTSheet*>(sheets->objectAtIndex_(i));
        if (workspace->currentUserCanSee_(sheet)) w.visibleSheets->addObject_(sheet);
    }

    fillLoginWindow(w);
}

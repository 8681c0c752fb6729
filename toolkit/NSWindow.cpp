#include "toolkit/NSWindow.h"

#include "foundation/NSString.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSImage.h"
#include "toolkit/NSMenu.h"

namespace {

// The room above a window's content: caption and menu bar, taken as one
// fixed amount so that layouts don't depend on the system's metrics.
constexpr float kCaptionAllowance = 35;

// Registers the window class once; false (logged by the native side) if
// that failed, and then no window is made.
bool windowClassRegistered(const NSNativeToolkit* native) {
    static int state = 0;  // 0 not tried, 1 registered, 2 failed
    if (state == 0) {
        void* icon = nullptr;
        state = native->registerWindowClass(&icon) ? 1 : 2;
        if (state == 1) NSImage::setApplicationIcon_(icon);
    }
    return state == 1;
}

}  // namespace

NSWindow* NSWindow::initWithContentRect_styleMask_backing_defer_(_NSRect rect, uint32_t, int,
                                                                 bool) {
    NSResponder::init();
    _contentView.adopt(NSView::alloc()->initWithFrame_(NSMakeRect(
            rect.origin.x, rect.origin.y, rect.size.width, rect.size.height - kCaptionAllowance)));
    _contentView->setWindow_(this);
    const NSNativeToolkit* native = NSNative();
    if (!native || !windowClassRegistered(native)) return this;
    // Unlike a control's, a window's y counts from the top of the screen.
    NSNativeRect outer = {static_cast<int>(rect.origin.x), static_cast<int>(rect.origin.y),
                          static_cast<int>(rect.size.width), static_cast<int>(rect.size.height)};
    _hWnd = native->createWindow(outer);
    NSApplication* app = NSApplication::sharedApplication();
    if (!app->mainWindow()) app->setMainWindow_(this);
    app->registerWindow_(this);
    return this;
}

void NSWindow::dealloc() {
    if (_hWnd && NSNative()) NSNative()->setMenu(_hWnd, nullptr);
    NSResponder::dealloc();
}

void NSWindow::orderFront_(NSObject*) {
    if (_hWnd && NSNative()) NSNative()->showWindow(_hWnd, true);
}

void NSWindow::restore() {
    if (_hWnd && NSNative()) NSNative()->restoreWindow(_hWnd);
}

void NSWindow::close() {
    if (_hWnd && NSNative()) NSNative()->showWindow(_hWnd, false);
}

void NSWindow::setTitle_(NSString* title) {
    _title.set(title);
    if (_hWnd && NSNative()) NSNative()->setText(_hWnd, NSNativeText(title));
}

_NSRect NSWindow::frame() {
    if (!_hWnd || !NSNative()) return _NSRect{};
    NSNativeRect r = NSNative()->windowRect(_hWnd);
    return NSMakeRect(r.left, r.top, r.width, r.height);
}

bool NSWindow::makeFirstResponder_(NSObject* responder) {
    if (auto* view = NSDynamicCast<NSView>(responder)) {
        if (view->currentHWnd() && NSNative()) NSNative()->setFocus(view->currentHWnd());
    }
    return true;
}

void NSWindow::setMenu_(NSObject* menu) {
    NSResponder::setMenu_(menu);
    auto* bar = NSDynamicCast<NSMenu>(menu);
    if (_hWnd && NSNative()) NSNative()->setMenu(_hWnd, bar ? bar->hMenu() : nullptr);
}

// frame answers a rectangle, wider than a result word: called from C++ only.
NS_CLASS_BEGIN(NSWindow, NSResponder)
    NS_METHOD(initWithContentRect_styleMask_backing_defer_)
    NS_METHOD(delegate)
    NS_METHOD(setDelegate_)
    NS_METHOD(orderFront_)
    NS_METHOD(close)
    NS_METHOD(restore)
    NS_METHOD(setTitle_)
    NS_METHOD(title)
    NS_METHOD(contentView)
    NS_METHOD(hWnd)
    NS_METHOD(isSetup)
    NS_METHOD(setSetup_)
    NS_METHOD(setInitialFirstResponder_)
    NS_METHOD(initialFirstResponder)
    NS_METHOD(makeFirstResponder_)
    NS_METHOD(setMenu_)
    NS_FIELD(_contentView)
    NS_FIELD(_setup)
    NS_FIELD(_title)
    NS_FIELD(_delegate)
NS_CLASS_END(NSWindow)

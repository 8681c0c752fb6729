// The application object: the maps from native handles back to objects,
// the message loop, the key-equivalent registry, and the delegate that is
// asked before the process ends. All of it lives on the main thread.
#pragma once

#include "foundation/NSArray.h"
#include "foundation/NSDictionary.h"
#include "toolkit/NSResponder.h"

class NSButton;
class NSControl;
class NSString;
class NSTextField;
class NSView;
class NSWindow;
class VTKeyedArrays;

class NSApplication : public NSResponder {
    NS_DECLARE_CLASS(NSApplication, NSResponder)

public:
    // Creates the application object on the first call and keeps it for
    // the life of the process.
    static NSApplication* sharedApplication();
    NSApplication* init() override;

    NSObject* delegate() { return _delegate; }
    void setDelegate_(NSObject* delegate) { _delegate.set(delegate); }
    // The window whose closing ends the message loop: the first window
    // made, unless set otherwise.
    NSWindow* mainWindow() { return _mainWindow; }
    void setMainWindow_(NSWindow* window) { _mainWindow = window; }
    // The message loop: one autorelease pool per message, until the quit
    // message. Returns at once without a native side.
    void run();
    // Asks the delegate's applicationShouldTerminate: when it has one; an
    // answer of 0 keeps the process, anything else ends it with exit(0).
    void terminate_(NSObject* sender);

    void addControl_(NSObject* control) { _controls->addObject_(control); }
    NSMutableArray* controls() { return _controls; }
    NSMutableDictionary* windows() { return _windows; }
    NSMutableDictionary* tableViews() { return _tableViews; }
    NSMutableDictionary* tabViews() { return _tabViews; }
    NSMutableDictionary* mapOfControls() { return _mapOfControls; }
    // Enter the object under its native handle.
    void registerControl_(NSView* control);
    void registerWindow_(NSWindow* window);
    void registerTableView_(NSObject* view);
    void registerTabView_(NSObject* view);
    void registerButton_forKeyEquiv_(NSButton* button, NSString* key);

    // Look-ups of the window procedures; nil for an unknown handle.
    NSControl* controlForHandle(void* handle);
    NSWindow* windowForHandle(void* handle);
    NSObject* tableViewForHandle(void* handle);
    NSObject* tabViewForHandle(void* handle);
    // The buttons registered for a key equivalent (a live array, maybe
    // empty).
    NSMutableArray* buttonsForKeyEquiv(NSString* key);

    // True while Shift is held, as a text field has seen it.
    static bool shiftFlag();
    static void setShiftFlag(bool down);
    // The text field that shows tool tips; nil until the application makes
    // one. Not retained: the field lives as long as its window.
    static NSTextField* hintLine();
    static void setHintLine(NSTextField* field);

protected:
    ~NSApplication() override = default;

private:
    Ref<NSMutableArray> _controls;
    Ref<NSMutableDictionary> _tableViews;
    Ref<NSMutableDictionary> _tabViews;
    Ref<NSMutableDictionary> _mapOfControls;
    Ref<NSMutableDictionary> _windows;
    Ref<NSObject> _delegate;
    Ref<VTKeyedArrays> _keyEquivalents;
    NSWindow* _mainWindow = nullptr;  // not retained: windows live as long as the process
};

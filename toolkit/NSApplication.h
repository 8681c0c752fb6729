// The application object: the maps from native handles back to objects and
// the delegate that is asked before the process ends.
#pragma once

#include "foundation/NSArray.h"
#include "foundation/NSDictionary.h"
#include "toolkit/NSResponder.h"

class NSApplication : public NSResponder {
    NS_DECLARE_CLASS(NSApplication, NSResponder)

public:
    // Creates the application object on the first call and keeps it for
    // the life of the process.
    static NSApplication* sharedApplication();
    NSApplication* init() override;

    NSObject* delegate() { return _delegate; }
    void setDelegate_(NSObject* delegate) { _delegate.set(delegate); }
    // The window whose closing ends the message loop; nil until one is set.
    NSObject* mainWindow() { return _mainWindow; }
    void setMainWindow_(NSObject* window) { _mainWindow = window; }
    // Asks the delegate's applicationShouldTerminate: when it has one; an
    // answer of 0 keeps the process, anything else ends it with exit(0).
    void terminate_(NSObject* sender);

    void addControl_(NSObject* control) { _controls->addObject_(control); }
    NSMutableArray* controls() { return _controls; }
    NSMutableDictionary* windows() { return _windows; }
    NSMutableDictionary* tableViews() { return _tableViews; }
    NSMutableDictionary* tabViews() { return _tabViews; }
    NSMutableDictionary* mapOfControls() { return _mapOfControls; }

protected:
    ~NSApplication() override = default;

private:
    Ref<NSMutableArray> _controls;
    Ref<NSMutableDictionary> _tableViews;
    Ref<NSMutableDictionary> _tabViews;
    Ref<NSMutableDictionary> _mapOfControls;
    Ref<NSMutableDictionary> _windows;
    Ref<NSObject> _delegate;
    NSObject* _mainWindow = nullptr;  // not retained: windows live as long as the process
};

// The tab strip of the main window: one native tab control, and under it
// one native page per tab. A page is a plain NSView over its native window
// (initWithHWnd:) that defers the creation of its controls: addSubview: on
// it only queues the hWnd message, and the page's 100 ms timer (see
// TabPageWndProc in toolkit/win32/) makes the queued controls outside the
// call that added them. The first page is shown; later pages stay hidden
// until their tab is chosen, which the top-level window procedure handles
// (TCN_SELCHANGING hides the current page, TCN_SELCHANGE shows the new one).
#pragma once

#include <cstdint>

#include "foundation/NSArray.h"
#include "toolkit/NSControl.h"

class NSTabViewItem : public NSObject {
    NS_DECLARE_CLASS(NSTabViewItem, NSObject)

public:
    // Retains the identifier, the tab's title (a string), and makes the
    // native item with its text.
    NSTabViewItem* initWithIdentifier_(NSObject* identifier);
    void dealloc() override;
    NSObject* identifier() { return _identifier; }
    // The page; retained.
    NSView* view() { return _view; }
    void setView_(NSView* view) { _view.set(view); }
    // The native tab item (owned by the item); nil without a native side.
    void* nativeItem() { return _tie; }

protected:
    ~NSTabViewItem() override = default;

private:
    Ref<NSObject> _identifier;
    void* _tie = nullptr;  // owned
    Ref<NSView> _view;
};

class NSTabView : public NSControl {
    NS_DECLARE_CLASS(NSTabView, NSControl)

public:
    // Registers the native class of the pages, once per process.
    static void initialize();
    NSTabView* initWithFrame_(_NSRect frame);
    // The native tab control in the superview (or its window), made on the
    // first call and registered as a tab view.
    void* hWnd() override;
    // Inserts the tab at the end, makes its page and gives the item the
    // page's view; the first page is shown at once, later ones stay
    // hidden. Without a native tab control the item is only appended.
    void addTabViewItem_(NSTabViewItem* item);
    // The item at the index, or nil outside the tabs.
    NSTabViewItem* tabViewItemAtIndex_(int32_t index);
    int32_t numberOfTabViewItems();
    NSMutableArray* items() { return _items; }

protected:
    ~NSTabView() override = default;

private:
    Ref<NSMutableArray> _items;
};

// A drop-down list of strings over a native combo box. The items wait in
// `items` until the native list exists and are added then.
#pragma once

#include "toolkit/NSButton.h"

class NSPopUpButton : public NSButton {
    NS_DECLARE_CLASS(NSPopUpButton, NSButton)

public:
    NSPopUpButton* initWithFrame_(_NSRect frame);
    void* hWnd() override;
    void addItemWithTitle_(NSString* title);
    void removeAllItems();
    // nil with no selection.
    NSString* titleOfSelectedItem();
    // -1 with no selection, and always without a native list.
    int indexOfSelectedItem();
    void selectItemAtIndex_(int index);
    void selectItemWithTitle_(NSString* title);
    NSMutableArray* items() { return _items; }

protected:
    ~NSPopUpButton() override = default;

private:
    Ref<NSMutableArray> _items;
};

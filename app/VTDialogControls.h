// The labels and buttons of the client's small dialog windows (the key
// generator, the CSV export): made, set up and added to their view in one
// call.
#pragma once

#include "foundation/NSString.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSView.h"

// A fixed text: not editable, no border.
inline void VTAddLabel(NSView* view, _NSRect frame, NSString* text) {
    Ref<NSTextField> label = NSMake<NSTextField>(&NSTextField::initWithFrame_, frame);
    label->setEditable_(false);
    label->setBordered_(false);
    label->setStringValue_(text);
    view->addSubview_(label);
}

// A push button (bezel style 1) sending `action` to `target`, which it
// doesn't retain; `key` is its key equivalent.
inline void VTAddButton(NSView* view, _NSRect frame, NSString* title, NSObject* target, SEL action,
                        NSString* key) {
    Ref<NSButton> button = NSMake<NSButton>(&NSButton::initWithFrame_, frame);
    button->setTitle_(title);
    button->setTarget_(target);
    button->setAction_(action);
    button->setBezelStyle_(1);
    button->setKeyEquivalent_(key);
    view->addSubview_(button);
}

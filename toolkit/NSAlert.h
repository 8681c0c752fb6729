// A modal message over the system's message box, with no owner window, so
// it blocks none of the program's windows and may be shown from any thread.
//
// With VANTOR_NONINTERACTIVE=1 in the environment no box is shown: the alert
// writes "alert: <title>: <text>" to standard output and answers its
// default button (OK), so that scripted runs and tests never wait on a
// dialog. A program without the toolkit's native side (vantor-admin, the
// native tests) has no box to show and does the same.
#pragma once

#include "foundation/NSObject.h"

class NSAlert : public NSObject {
    NS_DECLARE_CLASS(NSAlert, NSObject)

public:
    // The message text becomes the title and the informative text the
    // text, as it stands: no format is applied. The default button's word is
    // ignored; the alternate button decides between OK and OK/Cancel.
    static NSAlert*
    alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
            NSString* message, NSString* defaultButton, NSString* alternateButton,
            NSString* otherButton, NSString* informativeText);
    // 1 for OK; with an alternate button 0 for Cancel and -1 for anything
    // else.
    int runModal();

    NSString* title() { return _title; }
    NSString* text() { return _text; }

protected:
    ~NSAlert() override = default;

private:
    Ref<NSString> _title;
    Ref<NSString> _text;
    Ref<NSString> _alternateButtonText;
    Ref<NSString> _otherButtonText;
};

// Whether alerts answer by themselves (VANTOR_NONINTERACTIVE=1).
bool NSAlertIsNonInteractive();

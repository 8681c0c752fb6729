#include "toolkit/NSAlert.h"

#include <cstring>

#include "foundation/NSString.h"
#include "foundation/platform/Platform.h"
#include "toolkit/NSNative.h"

bool NSAlertIsNonInteractive() {
    const char* value = vtGetEnv("VANTOR_NONINTERACTIVE");
    return value && std::strcmp(value, "1") == 0;
}

NSAlert*
NSAlert::alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
        NSString* message, NSString*, NSString* alternateButton, NSString* otherButton,
        NSString* informativeText) {
    NSAlert* alert = alloc();
    alert->_title.set(message);
    alert->_text.set(informativeText);
    alert->_alternateButtonText.set(alternateButton);
    alert->_otherButtonText.set(otherButton);
    return NSAutorelease(alert);
}

int NSAlert::runModal() {
    const NSNativeToolkit* native = NSNative();
    if (!native || NSAlertIsNonInteractive()) {
        LOG("alert: %s: %s", _title ? _title->UTF8String() : "", _text ? _text->UTF8String() : "");
        return 1;
    }
    // The words of the buttons only choose the style: the box shows the
    // system's own.
    if (!_alternateButtonText) {
        native->messageBox(NSNativeText(_text), NSNativeText(_title), false);
        return 1;
    }
    int answer = native->messageBox(NSNativeText(_text), NSNativeText(_title), true);
    if (answer == kNSNativeAnswerOk) return 1;
    if (answer == kNSNativeAnswerCancel) return 0;
    return -1;
}

NS_CLASS_BEGIN(NSAlert, NSObject)
    NS_METHOD(runModal)
    NS_CLASS_METHOD(
            alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_)
    NS_FIELD(_title)
    NS_FIELD(_text)
    NS_FIELD(_alternateButtonText)
    NS_FIELD(_otherButtonText)
NS_CLASS_END(NSAlert)

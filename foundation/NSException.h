// Exceptions exist as classes, but nothing can catch one: raise logs its
// line and ends the process with status 1.
#pragma once

#include "NSObject.h"

class NSException : public NSObject {
    NS_DECLARE_CLASS(NSException, NSObject)

public:
    NSException* initWithName_reason_(NSString* name, NSString* reason);
    // An instance of cls (so a subclass raises itself) with the reason
    // stored exactly as given, then raise.
    [[noreturn]] static void raise_format_(Class cls, NSString* name, NSString* reason);
    [[noreturn]] void raise();
    NSString* name() { return _name; }
    NSString* reason() { return _reason; }

protected:
    ~NSException() override = default;

private:
    Ref<NSString> _name;
    Ref<NSString> _reason;
};

class NSInvalidArgumentException : public NSException {
    NS_DECLARE_CLASS(NSInvalidArgumentException, NSException)
};

class NSRangeException : public NSException {
    NS_DECLARE_CLASS(NSRangeException, NSException)
};

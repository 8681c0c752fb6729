// An error value: a domain, a code and a dictionary of details. The
// system's own failures are return values and log lines; nothing in it
// makes an NSError, which exists for code that wants one.
#pragma once

#include <cstdint>

#include "NSObject.h"

class NSDictionary;

class NSError : public NSObject {
    NS_DECLARE_CLASS(NSError, NSObject)

public:
    // Retains domain and userInfo.
    NSError* initWithDomain_code_userInfo_(NSString* domain, int32_t code, NSDictionary* userInfo);
    // Autoreleased, an instance of the receiving class.
    static NSError* errorWithDomain_code_userInfo_(Class cls, NSString* domain, int32_t code,
                                                   NSDictionary* userInfo);
    NSString* domain() { return _domain; }
    int32_t code() { return _code; }
    NSDictionary* userInfo() { return _userInfo; }

protected:
    ~NSError() override = default;

private:
    Ref<NSString> _domain;
    int32_t _code = 0;
    Ref<NSDictionary> _userInfo;
};

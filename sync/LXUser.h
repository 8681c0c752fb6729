// LXUser: the identity of a user on the replication path, parsed from and
// written as the identity string "First Last/Unit/Organization-UniqueId".
#pragma once

#include "foundation/NSObject.h"
#include "foundation/NSString.h"

class LXUser : public NSObject {
    NS_DECLARE_CLASS(LXUser, NSObject)

public:
    // Parses an identity string (see LXUser.cpp). Never fails: a string of
    // another shape leaves the missing parts empty. nil reads as "".
    LXUser* initWithString_(NSString* identity);
    // alloc, initWithString:, autorelease.
    static LXUser* userWithString_(NSString* identity);

    NSString* firstName() { return _firstName; }
    NSString* lastName() { return _lastName; }
    NSString* orgUnit() { return _orgUnit; }
    NSString* organization() { return _organization; }
    NSString* uniqueId() { return _uniqueId; }
    // The identity string, autoreleased.
    NSString* description() override;
    // An LXUser with all five fields equal, compared in field order. There
    // is deliberately no hash of its own: the description is the key where
    // one is needed.
    bool isEqual_(NSObject* other) override;

    // Archive body: the five fields as objects, in field order.
    void encodeWithCoder_(NSCoder* coder) override;
    NSObject* initWithCoder_(NSCoder* coder) override;

    LXUser() = default;

protected:
    ~LXUser() override = default;

private:
    Ref<NSString> _firstName;
    Ref<NSString> _lastName;
    Ref<NSString> _orgUnit;
    Ref<NSString> _organization;
    Ref<NSString> _uniqueId;
};

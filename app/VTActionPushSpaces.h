// The action that brings one user's client up to date: every record of
// every primary sheet goes to that user as a set delta with all the sheet's
// fields, so that a new user's empty client receives each record whole.
// Started from the user sheet, by name, with the row of the addressee.
#pragma once

#include "foundation/NSObject.h"

class NSNumber;

class VTActionPushSpaces : public NSObject {
    NS_DECLARE_CLASS(VTActionPushSpaces, NSObject)

public:
    // `row`: the addressee's row in the user sheet's matrix. `matrix`: that
    // matrix, or a two-element array of it and the clause's further atoms.
    // Opens no transaction and stamps nothing. Sheets with a source are
    // skipped: their records are their source's.
    void perform__(NSNumber* row, NSObject* matrix);

    VTActionPushSpaces() = default;

protected:
    ~VTActionPushSpaces() override = default;
};

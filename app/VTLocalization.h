// Localized texts: one function over one installed table of key to text.
// The table of every language is built; English is the one installed.
#pragma once

#include "foundation/NSDictionary.h"
#include "foundation/NSObject.h"

class VTLocalization : public NSObject {
    NS_DECLARE_CLASS(VTLocalization, NSObject)

public:
    static VTLocalization* localization();
    // The table in force: the English one. German and Czech are built in
    // the same call.
    NSMutableDictionary* localizedStrings();
    NSMutableDictionary* englishStrings() { return _english; }
    NSMutableDictionary* germanStrings() { return _german; }
    NSMutableDictionary* czechStrings() { return _czech; }

private:
    void build();
    Ref<NSMutableDictionary> _english;
    Ref<NSMutableDictionary> _german;
    Ref<NSMutableDictionary> _czech;
};

// The text of a key in the installed table, or the key in square brackets.
// The caller does not own the result.
NSString* VTLocalizedString(NSString* key);
// Retains the table and installs it; start-up calls this once.
void VTInstallLocalizedStrings(NSDictionary* table);

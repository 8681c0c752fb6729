// Localized texts: one function over one installed table of key to text.
// The tables of every language are built; an installation chooses among
// them with the file language.txt in its working directory (en, de or cs);
// without one it speaks English.
#pragma once

#include "foundation/NSDictionary.h"
#include "foundation/NSObject.h"

class VTLocalization : public NSObject {
    NS_DECLARE_CLASS(VTLocalization, NSObject)

public:
    static VTLocalization* localization();
    // Builds the three tables and answers the one that language.txt in the
    // working directory names; English when there is no such file or it
    // names no language we have (which is logged).
    NSMutableDictionary* localizedStrings();
    // The table of a language code ("en", "de", "cs"), or nil for any other
    // code. Needs localizedStrings to have built the tables.
    NSMutableDictionary* stringsForLanguage_(NSString* code);
    // The language that the file at path chooses: its first line, trimmed,
    // in lower case, if it is en, de or cs. No file gives "en" silently;
    // anything else gives "en" and a log line.
    static NSString* languageFromFile_(NSString* path);
    // VTLocalizedString for layers below this one, which reach it by name.
    static NSString* localizedStringForKey_(NSString* key);
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

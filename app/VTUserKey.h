// User keys: the file that proves who a user is. A key is one dictionary
// (UserID, UniqueID, Password, Admin) archived with encodeRootObject: and
// enciphered in place with the fixed data key; nothing else frames it.
//
// Start-up finds the key in userkey/ (discoverInDirectory:); the first-user
// step of the workspace, the key generator and `vantor-admin key make`
// write one (writeUserKey:toFile:).
#pragma once

#include "foundation/NSDictionary.h"
#include "foundation/NSString.h"

class VTUserKey : public NSObject {
    NS_DECLARE_CLASS(VTUserKey, NSObject)

public:
    // Whether a directory entry may be a key: more than 5 characters and
    // ".vuk" as the last four, compared case-sensitively.
    static bool isKeyFileName_(NSString* name);
    // The generator's file name for an identity:
    // "<first>_<last>__<unit>__<company>.vuk".
    static NSString* fileNameForFirstName_lastName_orgUnit_company_(NSString* first, NSString* last,
                                                                    NSString* unit,
                                                                    NSString* company);
    // The key in one file, as a new autoreleased mutable dictionary (the
    // first-user step writes into it); nil when the file is missing or does
    // not decode to a key. See VTUserKey.cpp for what counts as a key.
    static NSMutableDictionary* userKeyWithContentsOfFile_(NSString* path);
    // Discovery: the first entry of the directory's listing whose name
    // passes isKeyFileName: ends the walk, whatever it holds. Answers its
    // key, or nil when no entry passes or that entry is no key. A key
    // without UniqueID (the first-admin key) logs the text of `novuk`.
    static NSMutableDictionary* discoverInDirectory_(NSString* directory);
    // Archives, enciphers and writes the dictionary, not atomically.
    // Answers whether the file was written.
    static bool writeUserKey_toFile_(NSDictionary* key, NSString* path);

protected:
    ~VTUserKey() override = default;
};

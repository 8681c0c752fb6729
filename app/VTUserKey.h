// User keys: the file that proves who a user is. A key is one dictionary
// (UserID, UniqueID, Password, Admin) archived with encodeRootObject: and
// enciphered in place with the fixed data key; nothing else frames it.
//
// Start-up finds the key in userkey/ (discoverInDirectory:); the first-user
// step of the workspace, the key generator and `vantor-admin key make`
// write one (writeUserKey:toFile:).
#pragma once

#include <cstdint>
#include <string>

#include "foundation/NSDictionary.h"
#include "foundation/NSString.h"
#include "sync/LXSecure.h"

class VTMatrix;

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
    // The path of the entry discovery reads ("<directory>/<name>"), or nil.
    static NSString* discoveredPathInDirectory_(NSString* directory);
    // Archives, enciphers and writes the dictionary, not atomically, as a
    // file readable by its owner only. Answers whether the file was
    // written.
    static bool writeUserKey_toFile_(NSDictionary* key, NSString* path);

    // ---- Secure keys -----------------------------------------------------
    //
    // A secure key keeps no password. Beside UserID, UniqueID and Admin it
    // holds (all strings):
    //   PasswordHash  libsodium's salted slow hash of the password
    //   SecretKeys    hex: the signing and sealing secret keys, locked
    //                 under a key derived from the password
    //   UniqueID, SigningKey, SealingKey, KeySignature: the certificate
    //                 of the user's public keys (LXUserCertificate)
    //   Anchor        hex: the organisation's anchor, which signed them

    // Whether the key is a secure one (it has a PasswordHash).
    static bool isSecureKey_(NSDictionary* key);
    // The login's comparison: the hash for a secure key, the stored
    // password, exactly, for another.
    static bool key_matchesPassword_(NSDictionary* key, NSString* password);
    // Makes the key secure for its UniqueID: fresh key pairs whose public
    // halves `signer` certifies (nullptr: the new signing key certifies
    // itself and becomes the anchor), the password's hash, the locked
    // secret keys; the Password entry goes. *made, when given, is the new
    // identity. False when the build has no secure protocol or the key no
    // UniqueID.
    static bool makeSecure(NSMutableDictionary* key, const std::string& password,
                           const LXSecureIdentity* signer, LXSecureIdentity* made);
    // The identity of a secure key, its secret keys unlocked with the
    // password; false for a wrong password or a damaged key.
    static bool unlock(NSDictionary* key, const std::string& password, LXSecureIdentity* identity);
    // Enters the public halves of the certificate into a user record's
    // fields signingKey, sealingKey and keySignature (hex), in the row of
    // the matrix, inside the caller's transaction.
    static void writeCertificate(const LXUserCertificate& certificate, VTMatrix* users,
                                 uint32_t row);

protected:
    ~VTUserKey() override = default;
};

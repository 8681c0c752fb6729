// The secure protocol's pieces that both ends share: a user's certified
// public keys, the identity of the user a client works as, and the texts
// that get signed. The cryptography itself is LXCrypto's (libsodium).
//
// Trust. The organisation's anchor is the first administrator's signing
// public key. A user's public keys count only with the anchor's signature
// over them, bound to the user's unique id:
//
//   certified text := "vantor-user-keys\n" uniqueId "\n" hex(signing key)
//                     "\n" hex(sealing key)
//
// A sealed delta is an LXDelta envelope whose contents are NSData:
//
//   sealed    := length[4] certificate signature[64] box
//   box        = seal(archive, key shared by the sender's and the
//                addressee's sealing pairs)
//   signature  = sign(deltaText(addressee's id, box), sender's signing key)
//
// `certificate` (`length` bytes, little-endian) is the archive of the
// sender's certified keys: public, and what the addressee needs to find
// the shared key, also while the sender's record has not reached it yet.
// `archive` is the plain LXDelta (pool, full sender, full addressee,
// contents). The signature covers the sealed box, not what is inside, so
// that the relay, which can't open the box, checks the very signature the
// addressee checks: one signature a delta, made once, checked at each
// hop. The envelope's own sender and addressee carry the unique ids only,
// so that the relay learns no names.
#pragma once

#include <string>

#include "foundation/NSDictionary.h"
#include "foundation/NSString.h"

class LXDelta;
class NSData;

struct LXUserCertificate {
    std::string uniqueId;
    std::string signPublic;  // binary, LXCrypto::kSignPublicBytes
    std::string sealPublic;  // binary, LXCrypto::kSealPublicBytes
    std::string signature;   // the anchor's, binary

    // What the anchor signs.
    std::string certifiedText() const;
    // Whether the keys are whole and the signature is the anchor's.
    bool isCertifiedBy(const std::string& anchor) const;
    // The dictionary of hex strings {UniqueID, SigningKey, SealingKey,
    // KeySignature} that travels on the wire and sits in a key file;
    // autoreleased.
    NSMutableDictionary* dictionary() const;
    // Read back from such a dictionary; false when a part is missing or not
    // hexadecimal.
    static bool fromDictionary(NSObject* object, LXUserCertificate* certificate);
};

// The user a client works as, with the secret halves unlocked by the
// password at login.
struct LXSecureIdentity {
    LXUserCertificate certificate;
    std::string signSecret;
    std::string sealSecret;
    std::string anchor;

    bool isComplete() const { return !signSecret.empty() && !sealSecret.empty(); }
};

namespace LXSecure {

// The bytes of an NSData, and back (autoreleased).
std::string bytesOf(NSData* data);
NSData* dataOf(const std::string& bytes);

// The anchor file: one line, the anchor in hexadecimal. False when the file
// is missing or holds no key.
bool readAnchorFile(const char* path, std::string* anchor);
bool writeAnchorFile(const char* path, const std::string& anchor);

// What a sealed delta's signature covers: "vantor-delta\n" addressee "\n"
// digest(box), the box's BLAKE2b digest (LXCrypto::digest).
std::string deltaText(const std::string& addressee, const std::string& box);
// The text a collecting user signs: "vantor-collect\n" user "\n" challenge.
std::string collectText(const std::string& user, const std::string& challenge);

// The envelope of a delta for an addressee's sealing key, autoreleased;
// nil when sealing failed.
LXDelta* sealedDelta(LXDelta* delta, const LXSecureIdentity& sender,
                     const std::string& addresseeSealPublic);
// The parts of an envelope's sealed contents, none of them checked yet;
// false, with *why set, when the contents are not sealed bytes.
bool sealedParts(NSObject* contents, LXUserCertificate* sender, std::string* signature,
                 std::string* box, const char** why);
// Opens an envelope sent to `me`: the plain delta (autoreleased), the
// sender's signature with the text it covers for this addressee, and the
// certificate the sender put in; none of them checked yet. nil, with *why
// set, when it isn't sealed to this user or doesn't decode.
LXDelta* openedDelta(LXDelta* envelope, const LXSecureIdentity& me, std::string* signedText,
                     std::string* signature, LXUserCertificate* sender, const char** why);
// Whether the signature over the text is that of the signing key.
bool deltaSignatureHolds(const std::string& signedText, const std::string& signature,
                         const std::string& signPublic);

}  // namespace LXSecure

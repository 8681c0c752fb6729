#include "app/VTUserKey.h"

#include <string>
#include <vector>

#include "app/VTLocalization.h"
#include "foundation/NSData.h"
#include "foundation/platform/Platform.h"
#include "sheets/VTMatrix.h"
#include "storage/LXDataKey.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"
#include "sync/LXCrypto.h"

bool VTUserKey::isKeyFileName_(NSString* name) {
    if (!name) return false;
    std::string text = name->UTF8String();
    return text.size() > 5 && text.compare(text.size() - 4, 4, ".vuk") == 0;
}

NSString* VTUserKey::fileNameForFirstName_lastName_orgUnit_company_(NSString* first, NSString* last,
                                                                    NSString* unit,
                                                                    NSString* company) {
    auto text = [](NSString* s) { return s ? s->UTF8String() : ""; };
    return NSString::stringWithFormat_("%s_%s__%s__%s.vuk", text(first), text(last), text(unit),
                                       text(company));
}

NSMutableDictionary* VTUserKey::userKeyWithContentsOfFile_(NSString* path) {
    if (!path || !vtFileExists(path->UTF8String())) return nullptr;
    NSData* data = NSData::dataWithContentsOfFile_(path);
    if (data->length() == 0) return nullptr;
    data->decryptWithKey_(LXDataKey());
    NSUnarchiver* unarchiver = NSUnarchiver::alloc()->initForReadingWithData_(data);
    NSObject* object = unarchiver->decodeObject();
    // A damaged or foreign file decodes to nil, or, by chance, to some other
    // object. Only a dictionary with a string UserID is taken as a key:
    // everything after discovery reads that entry, and anything less would
    // stop the client later with a less telling message.
    NSMutableDictionary* key = nullptr;
    if (object && object->isKindOfClass_(NSDictionary::classObject())) {
        NSObject* userId = static_cast<NSDictionary*>(object)->objectForKey_("UserID"_ns);
        if (userId && userId->isKindOfClass_(NSString::classObject()))
            key = NSAutorelease(static_cast<NSMutableDictionary*>(object->mutableCopy()));
    }
    unarchiver->release();
    return key;
}

NSString* VTUserKey::discoveredPathInDirectory_(NSString* directory) {
    std::vector<std::string> names;
    if (!directory || !vtListDirectory(directory->UTF8String(), &names)) return nullptr;
    for (const std::string& name : names) {
        if (isKeyFileName_(NSString::stringWithUTF8String_(name.c_str())))
            return NSString::stringWithFormat_("%s/%s", directory->UTF8String(), name.c_str());
    }
    return nullptr;
}

NSMutableDictionary* VTUserKey::discoverInDirectory_(NSString* directory) {
    NSString* path = discoveredPathInDirectory_(directory);
    if (!path) return nullptr;
    NSMutableDictionary* key = userKeyWithContentsOfFile_(path);
    if (key && !key->objectForKey_("UniqueID"_ns))
        LOG("%s", VTLocalizedString("novuk"_ns)->UTF8String());
    return key;
}

bool VTUserKey::writeUserKey_toFile_(NSDictionary* key, NSString* path) {
    NSMutableData* data = static_cast<NSMutableData*>(NSMutableData::alloc()->init());
    NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(data);
    archiver->encodeRootObject_(key);
    archiver->release();
    data->encryptWithKey_(LXDataKey());
    // Whoever reads a key file can try passwords against it (or, in a
    // plain key, read the password): it is its owner's alone.
    bool written = path && vtWritePrivateFile(path->UTF8String(), LXSecure::bytesOf(data));
    data->release();
    return written;
}

namespace {

std::string textEntry(NSDictionary* key, const char* name) {
    NSObject* value = key ? key->objectForKey_(NSString::stringWithUTF8String_(name)) : nullptr;
    return value && value->isKindOfClass_(NSString::classObject())
                   ? static_cast<NSString*>(value)->UTF8String()
                   : "";
}

NSString* str(const std::string& s) { return NSString::stringWithUTF8String_(s.c_str()); }

}  // namespace

bool VTUserKey::isSecureKey_(NSDictionary* key) { return !textEntry(key, "PasswordHash").empty(); }

bool VTUserKey::key_matchesPassword_(NSDictionary* key, NSString* password) {
    if (!key || !password) return false;
    if (isSecureKey_(key))
        return LXCrypto::checkPassword(textEntry(key, "PasswordHash"), password->UTF8String());
    NSObject* expected = key->objectForKey_("Password"_ns);
    return expected && expected->isEqual_(password);
}

bool VTUserKey::makeSecure(NSMutableDictionary* key, const std::string& password,
                           const LXSecureIdentity* signer, LXSecureIdentity* made) {
    LXSecureIdentity identity;
    identity.certificate.uniqueId = textEntry(key, "UniqueID");
    LXCrypto::KeyPairs pairs;
    if (identity.certificate.uniqueId.empty() || !LXCrypto::makeKeyPairs(&pairs)) return false;
    identity.certificate.signPublic = pairs.signPublic;
    identity.certificate.sealPublic = pairs.sealPublic;
    identity.signSecret = pairs.signSecret;
    identity.sealSecret = pairs.sealSecret;
    identity.anchor = signer ? signer->anchor : pairs.signPublic;
    identity.certificate.signature = LXCrypto::sign(identity.certificate.certifiedText(),
                                                    signer ? signer->signSecret : pairs.signSecret);
    std::string hash = LXCrypto::hashPassword(password);
    std::string locked = LXCrypto::lockWithPassword(pairs.signSecret + pairs.sealSecret, password);
    if (identity.certificate.signature.empty() || hash.empty() || locked.empty()) return false;
    key->removeObjectForKey_("Password"_ns);
    key->setObject_forKey_(str(hash), "PasswordHash"_ns);
    key->setObject_forKey_(str(LXCrypto::toHex(locked)), "SecretKeys"_ns);
    key->setObject_forKey_(str(LXCrypto::toHex(identity.anchor)), "Anchor"_ns);
    NSMutableDictionary* certificate = identity.certificate.dictionary();
    NSArray* names = certificate->allKeys();
    for (uint32_t i = 0; i < names->count(); i++) {
        NSObject* name = names->objectAtIndex_(i);
        key->setObject_forKey_(certificate->objectForKey_(name), name);
    }
    if (made) *made = identity;
    return true;
}

bool VTUserKey::unlock(NSDictionary* key, const std::string& password, LXSecureIdentity* identity) {
    LXSecureIdentity unlocked;
    std::string locked, secrets;
    if (!LXUserCertificate::fromDictionary(key, &unlocked.certificate) ||
        !LXCrypto::fromHex(textEntry(key, "SecretKeys"), &locked) ||
        !LXCrypto::fromHex(textEntry(key, "Anchor"), &unlocked.anchor) ||
        !LXCrypto::unlockWithPassword(locked, password, &secrets) ||
        secrets.size() != LXCrypto::kSignSecretBytes + LXCrypto::kSealSecretBytes)
        return false;
    unlocked.signSecret = secrets.substr(0, LXCrypto::kSignSecretBytes);
    unlocked.sealSecret = secrets.substr(LXCrypto::kSignSecretBytes);
    *identity = unlocked;
    return true;
}

void VTUserKey::writeCertificate(const LXUserCertificate& certificate, VTMatrix* users,
                                 uint32_t row) {
    users->setValue_inRow_column_(str(LXCrypto::toHex(certificate.signPublic)), row,
                                  "signingKey"_ns);
    users->setValue_inRow_column_(str(LXCrypto::toHex(certificate.sealPublic)), row,
                                  "sealingKey"_ns);
    users->setValue_inRow_column_(str(LXCrypto::toHex(certificate.signature)), row,
                                  "keySignature"_ns);
}

NS_CLASS_BEGIN(VTUserKey, NSObject)
    NS_CLASS_METHOD(isKeyFileName_)
    NS_CLASS_METHOD(fileNameForFirstName_lastName_orgUnit_company_)
    NS_CLASS_METHOD(userKeyWithContentsOfFile_)
    NS_CLASS_METHOD(discoverInDirectory_)
    NS_CLASS_METHOD(discoveredPathInDirectory_)
    NS_CLASS_METHOD(writeUserKey_toFile_)
    NS_CLASS_METHOD(isSecureKey_)
    NS_CLASS_METHOD(key_matchesPassword_)
NS_CLASS_END(VTUserKey)

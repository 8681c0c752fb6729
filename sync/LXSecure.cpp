#include "sync/LXSecure.h"

#include <cstdio>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "foundation/NSData.h"
#include "foundation/platform/Platform.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"
#include "sync/LXCrypto.h"
#include "sync/LXDelta.h"

namespace {

NSString* str(const std::string& s) { return NSString::stringWithUTF8String_(s.c_str()); }

// The hex string under `key`, decoded; false when missing or not hex.
bool hexEntry(NSDictionary* dict, const char* key, std::string* bytes) {
    NSObject* value = dict->objectForKey_(NSString::stringWithUTF8String_(key));
    if (!value || !value->isKindOfClass_(NSString::classObject())) return false;
    return LXCrypto::fromHex(static_cast<NSString*>(value)->UTF8String(), bytes);
}

// The key this user's sealing pair shares with another's. Computing it is
// the costly part of sealing (a scalar multiplication); a user writes to
// and hears from the same few others, so each pair's key is kept for the
// process (bounded: cleared when full).
std::string sharedKey(const std::string& theirPublic, const std::string& myPublic,
                      const std::string& mySecret) {
    static std::mutex lock;
    static std::unordered_map<std::string, std::string> keys;
    std::string pair = theirPublic + myPublic;
    {
        std::lock_guard<std::mutex> guard(lock);
        auto found = keys.find(pair);
        if (found != keys.end()) return found->second;
    }
    std::string shared = LXCrypto::sharedKey(theirPublic, mySecret);
    if (shared.empty()) return shared;
    std::lock_guard<std::mutex> guard(lock);
    if (keys.size() >= 4096) keys.clear();
    keys[pair] = shared;
    return shared;
}

}  // namespace

std::string LXUserCertificate::certifiedText() const {
    return "vantor-user-keys\n" + uniqueId + "\n" + LXCrypto::toHex(signPublic) + "\n" +
           LXCrypto::toHex(sealPublic);
}

bool LXUserCertificate::isCertifiedBy(const std::string& anchor) const {
    if (uniqueId.empty() || signPublic.size() != LXCrypto::kSignPublicBytes ||
        sealPublic.size() != LXCrypto::kSealPublicBytes)
        return false;
    // The same few certificates come with every delta and every deposit:
    // one that held once holds again, and a signature check costs as much
    // as the rest of a deposit. Only what held is remembered, exactly as it
    // was checked, so nothing unchecked ever passes.
    static std::mutex lock;
    static std::unordered_set<std::string> held;
    std::string text = certifiedText();
    std::string entry = anchor + signature + text;
    {
        std::lock_guard<std::mutex> guard(lock);
        if (held.count(entry)) return true;
    }
    if (!LXCrypto::verify(text, signature, anchor)) return false;
    std::lock_guard<std::mutex> guard(lock);
    if (held.size() >= 4096) held.clear();  // an organisation has fewer users
    held.insert(entry);
    return true;
}

NSMutableDictionary* LXUserCertificate::dictionary() const {
    NSMutableDictionary* dict = NSMutableDictionary::dictionary();
    dict->setObject_forKey_(str(uniqueId), "UniqueID"_ns);
    dict->setObject_forKey_(str(LXCrypto::toHex(signPublic)), "SigningKey"_ns);
    dict->setObject_forKey_(str(LXCrypto::toHex(sealPublic)), "SealingKey"_ns);
    dict->setObject_forKey_(str(LXCrypto::toHex(signature)), "KeySignature"_ns);
    return dict;
}

bool LXUserCertificate::fromDictionary(NSObject* object, LXUserCertificate* certificate) {
    if (!object || !object->isKindOfClass_(NSDictionary::classObject())) return false;
    auto* dict = static_cast<NSDictionary*>(object);
    NSObject* id = dict->objectForKey_("UniqueID"_ns);
    if (!id || !id->isKindOfClass_(NSString::classObject())) return false;
    certificate->uniqueId = static_cast<NSString*>(id)->UTF8String();
    return hexEntry(dict, "SigningKey", &certificate->signPublic) &&
           hexEntry(dict, "SealingKey", &certificate->sealPublic) &&
           hexEntry(dict, "KeySignature", &certificate->signature);
}

namespace LXSecure {

std::string bytesOf(NSData* data) {
    if (!data || data->length() == 0) return "";
    std::string bytes(data->length(), '\0');
    data->getBytes_range_(&bytes[0], NSMakeRange(0, data->length()));
    return bytes;
}

NSData* dataOf(const std::string& bytes) {
    return NSData::dataWithBytes_length_(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

bool readAnchorFile(const char* path, std::string* anchor) {
    if (!vtFileExists(path)) return false;
    std::string text = bytesOf(NSData::dataWithContentsOfFile_(str(path)));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' '))
        text.pop_back();
    std::string key;
    if (!LXCrypto::fromHex(text, &key) || key.size() != LXCrypto::kSignPublicBytes) return false;
    *anchor = key;
    return true;
}

bool writeAnchorFile(const char* path, const std::string& anchor) {
    return dataOf(LXCrypto::toHex(anchor) + "\n")->writeToFile_atomically_(str(path), true);
}

std::string deltaText(const std::string& addressee, const std::string& box) {
    return "vantor-delta\n" + addressee + "\n" + LXCrypto::digest(box);
}

std::string collectText(const std::string& user, const std::string& challenge) {
    return "vantor-collect\n" + user + "\n" + challenge;
}

LXDelta* sealedDelta(LXDelta* delta, const LXSecureIdentity& sender,
                     const std::string& addresseeSealPublic) {
    std::string shared =
            sharedKey(addresseeSealPublic, sender.certificate.sealPublic, sender.sealSecret);
    if (shared.empty()) return nullptr;
    std::string box =
            LXCrypto::seal(bytesOf(NSArchiver::archivedDataWithRootObject_(delta)), shared);
    NSString* to = NSNil(delta->addressee(), &LXUser::uniqueId);
    std::string signature =
            LXCrypto::sign(deltaText(to ? to->UTF8String() : "", box), sender.signSecret);
    if (box.empty() || signature.empty()) return nullptr;
    std::string certificate =
            bytesOf(NSArchiver::archivedDataWithRootObject_(sender.certificate.dictionary()));
    uint32_t n = static_cast<uint32_t>(certificate.size());
    std::string sealed{static_cast<char>(n & 0xff), static_cast<char>((n >> 8) & 0xff),
                       static_cast<char>((n >> 16) & 0xff), static_cast<char>(n >> 24)};
    sealed.reserve(4 + certificate.size() + signature.size() + box.size());
    sealed += certificate;
    sealed += signature;
    sealed += box;
    // Unique ids only: the relay keys its queues by them and needs no name.
    LXUser* from = LXUser::userWithString_(str("-" + sender.certificate.uniqueId));
    LXUser* toId =
            LXUser::userWithString_(NSString::stringWithFormat_("-%s", to ? to->UTF8String() : ""));
    LXDelta* envelope =
            LXDelta::deltaWithPool_sender_contents_(delta->pool(), from, dataOf(sealed));
    envelope->setAddressee_(toId);
    return envelope;
}

bool sealedParts(NSObject* contents, LXUserCertificate* sender, std::string* signature,
                 std::string* box, const char** why) {
    if (!contents || !contents->isKindOfClass_(NSData::classObject())) {
        *why = "not sealed";
        return false;
    }
    std::string sealed = bytesOf(static_cast<NSData*>(contents));
    const auto* bytes = reinterpret_cast<const unsigned char*>(sealed.data());
    size_t length = sealed.size() < 4 ? 0
                                      : bytes[0] | bytes[1] << 8 | bytes[2] << 16 |
                                                static_cast<size_t>(bytes[3]) << 24;
    if (sealed.size() < 4 + LXCrypto::kSignatureBytes ||
        length > sealed.size() - 4 - LXCrypto::kSignatureBytes) {
        *why = "sealed contents are cut short";
        return false;
    }
    Ref<NSUnarchiver> unarchiver = NSMake<NSUnarchiver>(&NSUnarchiver::initForReadingWithData_,
                                                        dataOf(sealed.substr(4, length)));
    if (!LXUserCertificate::fromDictionary(unarchiver->decodeObject(), sender)) {
        *why = "no sender's certificate";
        return false;
    }
    *signature = sealed.substr(4 + length, LXCrypto::kSignatureBytes);
    *box = sealed.substr(4 + length + LXCrypto::kSignatureBytes);
    return true;
}

LXDelta* openedDelta(LXDelta* envelope, const LXSecureIdentity& me, std::string* signedText,
                     std::string* signature, LXUserCertificate* sender, const char** why) {
    std::string box;
    if (!sealedParts(envelope ? envelope->contents() : nullptr, sender, signature, &box, why))
        return nullptr;
    std::string shared = sharedKey(sender->sealPublic, me.certificate.sealPublic, me.sealSecret);
    std::string archive;
    if (shared.empty() || !LXCrypto::open(box, shared, &archive)) {
        *why = "does not open with this user's sealing key";
        return nullptr;
    }
    *signedText = deltaText(me.certificate.uniqueId, box);
    Ref<NSUnarchiver> unarchiver =
            NSMake<NSUnarchiver>(&NSUnarchiver::initForReadingWithData_, dataOf(archive));
    NSObject* object = NSAutorelease(NSRetain(unarchiver->decodeObject()));
    if (!object || !object->isKindOfClass_(LXDelta::classObject())) {
        *why = "sealed contents are not a delta";
        return nullptr;
    }
    return static_cast<LXDelta*>(object);
}

bool deltaSignatureHolds(const std::string& signedText, const std::string& signature,
                         const std::string& signPublic) {
    return LXCrypto::verify(signedText, signature, signPublic);
}

}  // namespace LXSecure

#include "sync/LXSecureRelay.h"

#include <cstring>

#include "foundation/NSString.h"
#include "sync/LXCrypto.h"
#include "sync/LXDelta.h"
#include "sync/LXRelay.h"
#include "sync/LXRelayProtocol.h"

namespace {

bool idAcceptable(NSString* id, const char* what) {
    if (!id) {
        LOG("%s refused: no user id received", what);
        return false;
    }
    size_t bytes = std::strlen(id->UTF8String());
    if (bytes == 0 || bytes > LXRelay::kMaximumIdLength) {
        LOG("%s refused: id of %zu bytes (limit %u)", what, bytes, LXRelay::kMaximumIdLength);
        return false;
    }
    return true;
}

}  // namespace

LXSecureRelay* LXSecureRelay::initWithAnchor_(const std::string& anchor) {
    NSObject::init();
    _anchor = anchor;
    return this;
}

bool LXSecureRelay::acceptsCommand(int32_t command) {
    if (command == LXRelayProtocol::kSecureDeposit || command == LXRelayProtocol::kSecureCollect)
        return true;
    if (command == LXRelayProtocol::kDeposit || command == LXRelayProtocol::kCollect) {
        LOG("command %d refused: this relay takes signed commands only - connection closed",
            command);
    } else {
        LOG("unknown command %d - connection closed", command);
    }
    return false;
}

bool LXSecureRelay::acceptsBatch(int32_t count) {
    if (count >= 1 && count <= LXRelayProtocol::kMaximumBatch) return true;
    LOG("deposit refused: %d deltas announced (1 to %d)", count, LXRelayProtocol::kMaximumBatch);
    return false;
}

LXDelta* LXSecureRelay::checkedDelta_addressee_(NSObject* object, NSString* addressee) {
    if (!idAcceptable(addressee, "deposit")) return nullptr;
    auto* delta = object && object->isKindOfClass_(LXDelta::classObject())
                          ? static_cast<LXDelta*>(object)
                          : nullptr;
    if (!delta) {
        LOG("deposit refused: no delta received");
        return nullptr;
    }
    NSString* from = NSNil(delta->sender(), &LXUser::uniqueId);
    LXUserCertificate sender;
    std::string signature, box;
    const char* why = nullptr;
    if (!LXSecure::sealedParts(delta->contents(), &sender, &signature, &box, &why)) {
        LOG("deposit refused: the delta from %s is not sealed (%s)",
            from ? from->UTF8String() : "nobody", why);
        return nullptr;
    }
    if (!sender.isCertifiedBy(_anchor)) {
        LOG("deposit refused: the keys of %s are not signed by the anchor",
            sender.uniqueId.c_str());
        return nullptr;
    }
    if (!from || sender.uniqueId != from->UTF8String()) {
        LOG("deposit refused: %s signed a delta in another name (%s)", sender.uniqueId.c_str(),
            from ? from->UTF8String() : "none");
        return nullptr;
    }
    // The signature the addressee checks, over the sealed box and the
    // addressee it was sealed for: made by the certified key, for this
    // addressee, over these bytes.
    if (!LXCrypto::verify(LXSecure::deltaText(addressee->UTF8String(), box), signature,
                          sender.signPublic)) {
        LOG("deposit refused: the signature of %s does not hold", sender.uniqueId.c_str());
        return nullptr;
    }
    return delta;
}

bool LXSecureRelay::checkCollector_user_certificate_(NSObject* object, NSString* user,
                                                     LXUserCertificate* collector) {
    if (!idAcceptable(user, "collect")) return false;
    if (!LXUserCertificate::fromDictionary(object, collector)) {
        LOG("collect refused: no certificate received");
        return false;
    }
    if (!collector->isCertifiedBy(_anchor)) {
        LOG("collect refused: the keys of %s are not signed by the anchor",
            collector->uniqueId.c_str());
        return false;
    }
    if (collector->uniqueId != user->UTF8String()) {
        LOG("collect refused: %s asked for the queue of %s", collector->uniqueId.c_str(),
            user->UTF8String());
        return false;
    }
    return true;
}

std::string LXSecureRelay::challenge() {
    std::string challenge(LXRelayProtocol::kChallengeBytes, '\0');
    LXCrypto::randomBytes(&challenge[0], challenge.size());
    return challenge;
}

bool LXSecureRelay::checkSignature(const std::string& signature, const std::string& challenge,
                                   const LXUserCertificate& collector) {
    if (LXCrypto::verify(LXSecure::collectText(collector.uniqueId, challenge), signature,
                         collector.signPublic))
        return true;
    LOG("collect refused: %s did not sign the challenge", collector.uniqueId.c_str());
    return false;
}

NS_CLASS_BEGIN(LXSecureRelay, NSObject)
NS_CLASS_END(LXSecureRelay)

#include "sync/LXSecureRelay.h"

#include <cstring>

#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSData.h"
#include "foundation/NSString.h"
#include "storage/NSUnarchiver.h"
#include "sync/LXCrypto.h"
#include "sync/LXDelta.h"
#include "sync/LXRelay.h"
#include "sync/LXRelayProtocol.h"

namespace {

// The object an archive holds, autoreleased; nil when it doesn't decode.
NSObject* decoded(NSData* data) {
    if (!data) return nullptr;
    Ref<NSUnarchiver> unarchiver =
            NSMake<NSUnarchiver>(&NSUnarchiver::initForReadingWithData_, data);
    return NSAutorelease(NSRetain(unarchiver->decodeObject()));
}

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

void LXSecureRelay::serve_command_relay_(LXSocket* socket, int32_t command, LXRelay* relay) {
    if (command == LXRelayProtocol::kSecureDeposit) {
        deposit(socket, relay);
    } else if (command == LXRelayProtocol::kSecureCollect) {
        collect(socket, relay);
    } else if (command == LXRelayProtocol::kDeposit || command == LXRelayProtocol::kCollect) {
        LOG("command %d refused: this relay takes signed commands only - connection closed",
            command);
    } else {
        LOG("unknown command %d - connection closed", command);
    }
}

bool LXSecureRelay::readCertificate(LXSocket* socket, LXUserCertificate* certificate) {
    if (!LXUserCertificate::fromDictionary(decoded(socket->readData()), certificate)) {
        LOG("collect refused: no certificate received");
        return false;
    }
    if (!certificate->isCertifiedBy(_anchor)) {
        LOG("collect refused: the keys of %s are not signed by the anchor",
            certificate->uniqueId.c_str());
        return false;
    }
    return true;
}

void LXSecureRelay::deposit(LXSocket* socket, LXRelay* relay) {
    int32_t count = socket->readInt();
    if (socket->isBroken() || count < 1 || count > LXRelayProtocol::kMaximumBatch) {
        LOG("deposit refused: %d deltas announced (1 to %d)", count,
            LXRelayProtocol::kMaximumBatch);
        return;
    }
    // In turn, each acknowledged once stored; the first that fails ends the
    // connection, so the acknowledgements the client reads are those of
    // the first deltas it sent.
    for (int32_t i = 0; i < count; i++) {
        NSAutoreleasePoolScope each;
        if (!depositOne(socket, relay)) return;
    }
}

bool LXSecureRelay::depositOne(LXSocket* socket, LXRelay* relay) {
    NSString* addressee = socket->readString();
    if (!idAcceptable(addressee, "deposit")) return false;
    NSObject* object = decoded(socket->readData());
    auto* delta = object && object->isKindOfClass_(LXDelta::classObject())
                          ? static_cast<LXDelta*>(object)
                          : nullptr;
    if (!delta) {
        LOG("deposit refused: no delta received");
        return false;
    }
    NSString* from = NSNil(delta->sender(), &LXUser::uniqueId);
    LXUserCertificate sender;
    std::string signature, box;
    const char* why = nullptr;
    if (!LXSecure::sealedParts(delta->contents(), &sender, &signature, &box, &why)) {
        LOG("deposit refused: the delta from %s is not sealed (%s)",
            from ? from->UTF8String() : "nobody", why);
        return false;
    }
    if (!sender.isCertifiedBy(_anchor)) {
        LOG("deposit refused: the keys of %s are not signed by the anchor",
            sender.uniqueId.c_str());
        return false;
    }
    if (!from || sender.uniqueId != from->UTF8String()) {
        LOG("deposit refused: %s signed a delta in another name (%s)", sender.uniqueId.c_str(),
            from ? from->UTF8String() : "none");
        return false;
    }
    // The signature the addressee checks, over the sealed box and the
    // addressee it was sealed for: made by the certified key, for this
    // addressee, over these bytes.
    if (!LXCrypto::verify(LXSecure::deltaText(addressee->UTF8String(), box), signature,
                          sender.signPublic)) {
        LOG("deposit refused: the signature of %s does not hold", sender.uniqueId.c_str());
        return false;
    }
    return relay->enqueue_announced_socket_(delta, addressee, socket);
}

void LXSecureRelay::collect(LXSocket* socket, LXRelay* relay) {
    NSString* user = socket->readString();
    if (!idAcceptable(user, "collect")) return;
    LXUserCertificate collector;
    if (!readCertificate(socket, &collector)) return;
    if (collector.uniqueId != user->UTF8String()) {
        LOG("collect refused: %s asked for the queue of %s", collector.uniqueId.c_str(),
            user->UTF8String());
        return;
    }
    std::string challenge(LXRelayProtocol::kChallengeBytes, '\0');
    LXCrypto::randomBytes(&challenge[0], challenge.size());
    if (!socket->sendData_(LXSecure::dataOf(challenge))) return;
    std::string signature = LXSecure::bytesOf(socket->readData());
    if (!LXCrypto::verify(LXSecure::collectText(user->UTF8String(), challenge), signature,
                          collector.signPublic)) {
        LOG("collect refused: %s did not sign the challenge", user->UTF8String());
        return;
    }
    relay->sendQueueOf_socket_(user, socket);
}

NS_CLASS_BEGIN(LXSecureRelay, NSObject)
NS_CLASS_END(LXSecureRelay)

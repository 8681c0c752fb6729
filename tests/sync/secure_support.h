// For tests of the secure protocol: a vantor-relay --secure process on
// loopback, and a client that speaks the secure commands by hand, as an
// honest transceiver does or as an attacker would.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/NSData.h"
#include "storage/NSArchiver.h"
#include "sync/LXCrypto.h"
#include "sync/LXDelta.h"
#include "sync/LXRelayProtocol.h"
#include "sync/LXSecure.h"
#include "sync/LXSocket.h"
#include "tests/sync/installation_support.h"

namespace securetest {

// A user with fresh keys certified by `anchor` (itself when null).
inline LXSecureIdentity makeUser(const std::string& id, const LXSecureIdentity* anchor) {
    LXSecureIdentity user;
    LXCrypto::KeyPairs pairs;
    EXPECT_TRUE(LXCrypto::makeKeyPairs(&pairs));
    user.certificate = {id, pairs.signPublic, pairs.sealPublic, ""};
    user.signSecret = pairs.signSecret;
    user.sealSecret = pairs.sealSecret;
    user.anchor = anchor ? anchor->anchor : pairs.signPublic;
    user.certificate.signature = LXCrypto::sign(user.certificate.certifiedText(),
                                                anchor ? anchor->signSecret : pairs.signSecret);
    return user;
}

inline std::string archiveBytes(NSObject* object) {
    return LXSecure::bytesOf(NSArchiver::archivedDataWithRootObject_(object));
}

// vantor-relay --secure --anchor ANCHOR in `root`/relay, on a port of the
// system's choosing, restartable on a new one; killed with the object.
class SecureRelay {
public:
    SecureRelay(const std::string& root, const std::string& anchorFile)
        : _dir(root + "/relay"), _log(root + "/relay.log"), _anchor(anchorFile) {
        mkdir(_dir.c_str(), 0755);
    }
    bool start() {
        size_t from = vt_test::readFile(_log).size();
        _child.reset(new vt_installations::Child(
                "exec " + vt_test::quoteShell(vt_installations::envPath("VANTOR_RELAY_PATH")) +
                        " --secure --anchor " + vt_test::quoteShell(_anchor) +
                        " --bind 127.0.0.1 --port 0 --timeout 3 --dir " + vt_test::quoteShell(_dir),
                _log));
        return vt_installations::waitFor(
                [&] {
                    std::string text = vt_test::readFile(_log);
                    size_t at = text.find("listening on port ", from);
                    if (at == std::string::npos) return false;
                    _port = static_cast<uint16_t>(std::atoi(text.c_str() + at + 18));
                    return true;
                },
                10);
    }
    void kill9() { _child.reset(); }
    uint16_t port() const { return _port; }
    std::string log() const { return vt_test::readFile(_log); }
    const std::string& dir() const { return _dir; }

private:
    std::string _dir, _log, _anchor;
    uint16_t _port = 0;
    std::unique_ptr<vt_installations::Child> _child;
};

inline Ref<LXSocket> connectTo(uint16_t port) {
    Ref<LXSocket> socket = adoptRef(LXSocket::alloc()->initWithEncryptionKey_(
            NSString::stringWithUTF8String_(LXRelayProtocol::kWireKey)));
    EXPECT_TRUE(socket->connect_port_("127.0.0.1"_ns, port));
    return socket;
}

// A secure deposit of the envelopes, all for `addressee`, in one
// connection, sent before any answer is read. The acknowledgements read,
// in order, up to the first missing one.
inline int32_t secureDepositAll(uint16_t port, const std::vector<LXDelta*>& envelopes,
                                const std::string& addressee) {
    Ref<LXSocket> socket = connectTo(port);
    socket->sendInt_(LXRelayProtocol::kSecureDeposit);
    socket->sendInt_(static_cast<int32_t>(envelopes.size()));
    for (LXDelta* envelope : envelopes) {
        socket->sendString_(NSString::stringWithUTF8String_(addressee.c_str()));
        socket->sendData_(LXSecure::dataOf(archiveBytes(envelope)));
    }
    int32_t acknowledged = 0;
    while (acknowledged < static_cast<int32_t>(envelopes.size()) &&
           socket->readInt() == LXRelayProtocol::kAcknowledged && !socket->isBroken())
        acknowledged++;
    return acknowledged;
}

// A secure deposit of one envelope: 1 when the relay acknowledged it, -1
// when it closed the connection without an answer.
inline int32_t secureDeposit(uint16_t port, LXDelta* envelope, const std::string& addressee) {
    return secureDepositAll(port, {envelope}, addressee) == 1 ? 1 : -1;
}

// What an attacker makes of an honest envelope: the same box (changed by
// `change` first, when given) with the certificate `carried` and a
// signature by `key` for `addressee`, sent as from `from`.
inline LXDelta* reforged(LXDelta* envelope, const LXUserCertificate& carried,
                         const std::string& key, const std::string& addressee,
                         const std::string& from, void (*change)(std::string*) = nullptr) {
    LXUserCertificate sender;
    std::string signature, box;
    const char* why = nullptr;
    EXPECT_TRUE(LXSecure::sealedParts(envelope->contents(), &sender, &signature, &box, &why));
    if (change) change(&box);
    std::string certificate = archiveBytes(carried.dictionary());
    uint32_t n = static_cast<uint32_t>(certificate.size());
    std::string sealed{static_cast<char>(n & 0xff), static_cast<char>((n >> 8) & 0xff),
                       static_cast<char>((n >> 16) & 0xff), static_cast<char>(n >> 24)};
    sealed += certificate + LXCrypto::sign(LXSecure::deltaText(addressee, box), key) + box;
    LXDelta* made = LXDelta::deltaWithPool_sender_contents_(
            envelope->pool(),
            LXUser::userWithString_(NSString::stringWithUTF8String_(("-" + from).c_str())),
            LXSecure::dataOf(sealed));
    made->setAddressee_(envelope->addressee());
    return made;
}

// A secure collect of `user`'s queue with `holder`'s certificate, answering
// the challenge with `key`. The deltas received, each acknowledged; *count
// is what the relay announced, -1 when it announced nothing.
inline std::vector<LXDelta*> secureCollect(uint16_t port, const std::string& user,
                                           const LXSecureIdentity& holder, const std::string& key,
                                           int32_t* count) {
    std::vector<LXDelta*> got;
    Ref<LXSocket> socket = connectTo(port);
    socket->sendInt_(LXRelayProtocol::kSecureCollect);
    socket->sendString_(NSString::stringWithUTF8String_(user.c_str()));
    socket->sendData_(NSArchiver::archivedDataWithRootObject_(holder.certificate.dictionary()));
    std::string challenge = LXSecure::bytesOf(socket->readData());
    *count = -1;
    if (challenge.size() != LXRelayProtocol::kChallengeBytes) return got;
    socket->sendData_(
            LXSecure::dataOf(LXCrypto::sign(LXSecure::collectText(user, challenge), key)));
    int32_t n = socket->readInt();
    if (socket->isBroken()) return got;
    *count = n;
    for (int32_t i = 0; i < n; i++) {
        NSObject* object = socket->readObject();
        if (!object || !object->isKindOfClass_(LXDelta::classObject())) break;
        got.push_back(static_cast<LXDelta*>(object));
        socket->sendInt_(LXRelayProtocol::kAcknowledged);
    }
    return got;
}

}  // namespace securetest

// The secure protocol's building blocks and the relay's secure mode: the
// libsodium operations as the protocol uses them (signatures, sealing, the
// locked secret keys), certificates and sealed deltas, and a real
// vantor-relay --secure process on loopback against honest clients and
// attackers: the plain commands, another user's queue, a deposit in another
// user's name or signed by a key the anchor never signed, an unsealed one.
#include <gtest/gtest.h>

#include <string>

#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSData.h"
#include "secure_support.h"
#include "storage/NSArchiver.h"
#include "sync/LXCrypto.h"
#include "sync/LXDelta.h"
#include "sync/LXRelayProtocol.h"
#include "sync/LXSecure.h"
#include "sync/LXSocket.h"
#include "sync/LXTransceiver.h"
#include "sync_test_support.h"
#include "tests/support/TestSupport.h"

namespace {

using namespace synctest;
using namespace securetest;

std::string str(NSString* s) { return s ? s->UTF8String() : ""; }

// A set delta from `from` to `to` whose record carries `marker`.
LXDelta* plainDelta(const std::string& from, const std::string& to, const std::string& marker) {
    NSMutableDictionary* record = NSMutableDictionary::dictionary();
    record->setObject_forKey_(ns(marker), "city"_ns);
    record->setObject_forKey_("r-1"_ns, "__recordId"_ns);
    NSMutableDictionary* contents = NSMutableDictionary::dictionary();
    contents->setObject_forKey_("set"_ns, "action"_ns);
    contents->setObject_forKey_("company"_ns, "sheet"_ns);
    contents->setObject_forKey_(record, "object"_ns);
    LXDelta* d = LXDelta::deltaWithPool_sender_contents_(
            LXPool::poolWithName_("Rk2pWn"_ns), LXUser::userWithString_(ns("A B/U/O-" + from)),
            contents);
    d->setAddressee_(LXUser::userWithString_(ns("C D/U/O-" + to)));
    return d;
}

// Every test's objects go with the test's own pool.
class SecureCrypto : public testing::Test {
protected:
    NSAutoreleasePoolScope pool_;
};

std::string flipped(std::string bytes, size_t at) {
    bytes[at % bytes.size()] ^= 0x01;
    return bytes;
}

TEST_F(SecureCrypto, SignaturesSealsAndLockedSecrets) {
    ASSERT_TRUE(LXCrypto::available());
    LXSecureIdentity a = makeUser("a", nullptr), b = makeUser("b", &a);

    std::string signature = LXCrypto::sign("message", a.signSecret);
    EXPECT_EQ(signature.size(), LXCrypto::kSignatureBytes);
    EXPECT_TRUE(LXCrypto::verify("message", signature, a.certificate.signPublic));
    EXPECT_FALSE(LXCrypto::verify("messagE", signature, a.certificate.signPublic));
    EXPECT_FALSE(LXCrypto::verify("message", flipped(signature, 7), a.certificate.signPublic));
    EXPECT_FALSE(LXCrypto::verify("message", signature, b.certificate.signPublic));

    // Both ends find the same shared key, each from its own secret half.
    std::string shared = LXCrypto::sharedKey(b.certificate.sealPublic, a.sealSecret);
    ASSERT_FALSE(shared.empty());
    EXPECT_EQ(LXCrypto::sharedKey(a.certificate.sealPublic, b.sealSecret), shared);
    LXSecureIdentity c = makeUser("c", &a);
    std::string other = LXCrypto::sharedKey(b.certificate.sealPublic, c.sealSecret);
    EXPECT_NE(other, shared);
    std::string sealed = LXCrypto::seal("secret text", shared);
    EXPECT_EQ(sealed.find("secret"), std::string::npos);
    EXPECT_NE(LXCrypto::seal("secret text", shared), sealed);  // a fresh nonce each time
    std::string opened;
    EXPECT_TRUE(LXCrypto::open(sealed, shared, &opened));
    EXPECT_EQ(opened, "secret text");
    EXPECT_FALSE(LXCrypto::open(sealed, other, &opened));
    for (size_t at : {size_t{0}, size_t{30}, sealed.size() - 1})
        EXPECT_FALSE(LXCrypto::open(flipped(sealed, at), shared, &opened));

    std::string hash = LXCrypto::hashPassword("pass word");
    EXPECT_EQ(hash.find("pass word"), std::string::npos);
    EXPECT_TRUE(LXCrypto::checkPassword(hash, "pass word"));
    EXPECT_FALSE(LXCrypto::checkPassword(hash, "pass wore"));
    EXPECT_NE(LXCrypto::hashPassword("pass word"), hash);  // salted

    std::string locked = LXCrypto::lockWithPassword(a.signSecret, "pw");
    std::string secret;
    EXPECT_TRUE(LXCrypto::unlockWithPassword(locked, "pw", &secret));
    EXPECT_EQ(secret, a.signSecret);
    EXPECT_FALSE(LXCrypto::unlockWithPassword(locked, "pW", &secret));
    EXPECT_FALSE(LXCrypto::unlockWithPassword(flipped(locked, 40), "pw", &secret));

    std::string bytes;
    EXPECT_TRUE(LXCrypto::fromHex(LXCrypto::toHex(std::string("\x00\xff\x10", 3)), &bytes));
    EXPECT_EQ(bytes, std::string("\x00\xff\x10", 3));
    EXPECT_FALSE(LXCrypto::fromHex("abc", &bytes));
    EXPECT_FALSE(LXCrypto::fromHex("zz", &bytes));
}

TEST_F(SecureCrypto, CertificatesCountOnlyWithTheAnchorsSignature) {
    LXSecureIdentity admin = makeUser("admin", nullptr);
    LXSecureIdentity alice = makeUser("alice", &admin);
    LXSecureIdentity mallory = makeUser("mallory", nullptr);  // signed herself
    EXPECT_TRUE(admin.certificate.isCertifiedBy(admin.anchor));
    EXPECT_TRUE(alice.certificate.isCertifiedBy(admin.anchor));
    EXPECT_FALSE(mallory.certificate.isCertifiedBy(admin.anchor));

    // Bound to the unique id: the same keys under another id don't count.
    LXUserCertificate moved = alice.certificate;
    moved.uniqueId = "bob";
    EXPECT_FALSE(moved.isCertifiedBy(admin.anchor));
    LXUserCertificate swapped = alice.certificate;
    swapped.sealPublic = mallory.certificate.sealPublic;
    EXPECT_FALSE(swapped.isCertifiedBy(admin.anchor));

    LXUserCertificate back;
    ASSERT_TRUE(LXUserCertificate::fromDictionary(alice.certificate.dictionary(), &back));
    EXPECT_TRUE(back.isCertifiedBy(admin.anchor));
    EXPECT_EQ(back.signPublic, alice.certificate.signPublic);
    NSMutableDictionary* broken = alice.certificate.dictionary();
    broken->setObject_forKey_("xyz"_ns, "SigningKey"_ns);
    EXPECT_FALSE(LXUserCertificate::fromDictionary(broken, &back));
}

TEST_F(SecureCrypto, SealedDeltaOpensOnlyForItsAddressee) {
    LXSecureIdentity admin = makeUser("admin", nullptr);
    LXSecureIdentity alice = makeUser("alice", &admin), bob = makeUser("bob", &admin);
    LXDelta* plain = plainDelta("alice", "bob", "MARKER-CITY");
    LXDelta* envelope = LXSecure::sealedDelta(plain, alice, bob.certificate.sealPublic);
    ASSERT_TRUE(envelope);
    // The envelope names unique ids only; nothing of the record shows.
    std::string archive = archiveOf(envelope);
    EXPECT_EQ(archive.find("MARKER-CITY"), std::string::npos);
    EXPECT_EQ(archive.find("A B"), std::string::npos);
    EXPECT_EQ(str(envelope->addressee()->uniqueId()), "bob");
    EXPECT_EQ(str(envelope->sender()->uniqueId()), "alice");

    std::string inner, signature;
    LXUserCertificate sender;
    const char* why = nullptr;
    LXDelta* opened = LXSecure::openedDelta(envelope, bob, &inner, &signature, &sender, &why);
    ASSERT_TRUE(opened) << why;
    EXPECT_EQ(sender.uniqueId, "alice");
    EXPECT_TRUE(sender.isCertifiedBy(admin.anchor));
    EXPECT_TRUE(LXSecure::deltaSignatureHolds(inner, signature, alice.certificate.signPublic));
    EXPECT_FALSE(LXSecure::deltaSignatureHolds(inner, signature, bob.certificate.signPublic));
    EXPECT_EQ(str(opened->sender()->firstName()), "A");
    EXPECT_NE(str(opened->contents()->description()).find("MARKER-CITY"), std::string::npos);

    LXSecureIdentity eve = makeUser("eve", &admin);
    EXPECT_FALSE(LXSecure::openedDelta(envelope, eve, &inner, &signature, &sender, &why));
    EXPECT_STREQ(why, "does not open with this user's sealing key");
    LXDelta* unsealed = plainDelta("alice", "bob", "x");
    EXPECT_FALSE(LXSecure::openedDelta(unsealed, bob, &inner, &signature, &sender, &why));
    EXPECT_STREQ(why, "not sealed");
}

TEST_F(SecureCrypto, TheRelaysSecureOptionsGoTogether) {
    std::string relay = vt_test::quoteShell(vt_installations::envPath("VANTOR_RELAY_PATH"));
    vt_test::ProgramResult alone = vt_test::runProgram(relay + " --secure --port 0");
    EXPECT_EQ(alone.status, 2);
    EXPECT_NE(alone.err.find("--secure and --anchor go together"), std::string::npos) << alone.err;
    EXPECT_EQ(vt_test::runProgram(relay + " --anchor x.txt --port 0").status, 2);
    vt_test::ProgramResult missing =
            vt_test::runProgram(relay + " --secure --anchor /nonexistent/anchor.txt --port 0");
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("--anchor: /nonexistent/anchor.txt holds no anchor"),
              std::string::npos)
            << missing.err;
}

// ---- The relay in secure mode ------------------------------------------

class SecureRelayTest : public testing::Test {
protected:
    NSAutoreleasePoolScope pool_;
    void SetUp() override {
        ASSERT_TRUE(LXCrypto::available());
        admin_ = makeUser("admin-1", nullptr);
        alice_ = makeUser("alice-2", &admin_);
        bob_ = makeUser("bob-3", &admin_);
        eve_ = makeUser("eve-4", &admin_);
        mallory_ = makeUser("mallory-5", nullptr);
        std::string anchor = dir_.path() + "/anchor.txt";
        ASSERT_TRUE(LXSecure::writeAnchorFile(anchor.c_str(), admin_.anchor));
        relay_.reset(new SecureRelay(dir_.path(), anchor));
        ASSERT_TRUE(relay_->start()) << relay_->log();
    }

    std::string log() { return relay_->log(); }
    Ref<LXSocket> connect() { return connectTo(relay_->port()); }
    int32_t deposit(LXDelta* envelope, const std::string& addressee) {
        return secureDeposit(relay_->port(), envelope, addressee);
    }
    std::vector<LXDelta*> collect(const std::string& user, const LXSecureIdentity& holder,
                                  const std::string& key, int32_t* count) {
        return secureCollect(relay_->port(), user, holder, key, count);
    }

    ScopedWorkDir dir_;
    std::unique_ptr<SecureRelay> relay_;
    LXSecureIdentity admin_, alice_, bob_, eve_, mallory_;
};

TEST_F(SecureRelayTest, HonestDepositAndCollectAndNothingReadable) {
    LXDelta* envelope = LXSecure::sealedDelta(plainDelta("alice-2", "bob-3", "MARKER-7781"), alice_,
                                              bob_.certificate.sealPublic);
    EXPECT_EQ(deposit(envelope, "bob-3"), 1);
    // The relay's files hold bytes it can't read.
    std::string stored = vt_test::readFile(dir_.path() + "/relay/_relay_.vcd");
    EXPECT_FALSE(stored.empty());
    EXPECT_EQ(stored.find("MARKER-7781"), std::string::npos);

    // Kept over a restart.
    relay_->kill9();
    ASSERT_TRUE(relay_->start());
    int32_t count;
    std::vector<LXDelta*> got = collect("bob-3", bob_, bob_.signSecret, &count);
    EXPECT_EQ(count, 1) << log();
    ASSERT_EQ(got.size(), 1u);
    std::string inner, signature;
    LXUserCertificate sender;
    const char* why = nullptr;
    LXDelta* opened = LXSecure::openedDelta(got[0], bob_, &inner, &signature, &sender, &why);
    ASSERT_TRUE(opened) << why;
    EXPECT_TRUE(LXSecure::deltaSignatureHolds(inner, signature, alice_.certificate.signPublic));
    // Delivered once: the queue is empty now.
    EXPECT_TRUE(collect("bob-3", bob_, bob_.signSecret, &count).empty());
    EXPECT_EQ(count, 0);
}

TEST_F(SecureRelayTest, AStolenUniqueIdCollectsNothingAndDeletesNothing) {
    LXDelta* envelope = LXSecure::sealedDelta(plainDelta("alice-2", "bob-3", "x"), alice_,
                                              bob_.certificate.sealPublic);
    ASSERT_EQ(deposit(envelope, "bob-3"), 1);

    // The plain collect with Bob's unique id: refused, no count.
    {
        Ref<LXSocket> socket = connect();
        socket->sendInt_(LXRelayProtocol::kCollect);
        socket->sendString_("bob-3"_ns);
        socket->sendString_("dummy_group"_ns);
        socket->readInt();
        EXPECT_TRUE(socket->isBroken());
    }
    int32_t count;
    // Eve with her own (valid) certificate asks for Bob's queue.
    EXPECT_TRUE(collect("bob-3", eve_, eve_.signSecret, &count).empty());
    EXPECT_EQ(count, -1);
    // Eve with Bob's public certificate, answering with her own key.
    EXPECT_TRUE(collect("bob-3", bob_, eve_.signSecret, &count).empty());
    EXPECT_EQ(count, -1);
    // A certificate of keys the anchor never signed.
    LXSecureIdentity fake = makeUser("bob-3", nullptr);
    EXPECT_TRUE(collect("bob-3", fake, fake.signSecret, &count).empty());
    EXPECT_EQ(count, -1);
    std::string text = log();
    EXPECT_NE(text.find("command 2 refused: this relay takes signed commands only"),
              std::string::npos)
            << text;
    EXPECT_NE(text.find("collect refused: eve-4 asked for the queue of bob-3"), std::string::npos);
    EXPECT_NE(text.find("collect refused: bob-3 did not sign the challenge"), std::string::npos);
    EXPECT_NE(text.find("collect refused: the keys of bob-3 are not signed by the anchor"),
              std::string::npos);

    // All that left Bob's delta where it was.
    EXPECT_EQ(collect("bob-3", bob_, bob_.signSecret, &count).size(), 1u);
    EXPECT_EQ(count, 1);
}

TEST_F(SecureRelayTest, DepositsThatDoNotHoldAreRefused) {
    LXDelta* fromAlice = LXSecure::sealedDelta(plainDelta("alice-2", "bob-3", "x"), alice_,
                                               bob_.certificate.sealPublic);
    // The plain deposit.
    {
        Ref<LXSocket> socket = connect();
        socket->sendInt_(LXRelayProtocol::kDeposit);
        socket->sendString_("bob-3"_ns);
        socket->sendObject_(fromAlice);
        socket->readInt();
        EXPECT_TRUE(socket->isBroken());
    }
    // In another user's name: Eve signs Alice's delta as herself.
    EXPECT_EQ(deposit(reforged(fromAlice, eve_.certificate, eve_.signSecret, "bob-3", "alice-2"),
                      "bob-3"),
              -1);
    // Alice's certificate with Eve's signature.
    EXPECT_EQ(deposit(reforged(fromAlice, alice_.certificate, eve_.signSecret, "bob-3", "alice-2"),
                      "bob-3"),
              -1);
    // Keys the anchor never signed, in their own name.
    LXDelta* fromMallory = LXSecure::sealedDelta(plainDelta("mallory-5", "bob-3", "x"), mallory_,
                                                 bob_.certificate.sealPublic);
    EXPECT_EQ(deposit(fromMallory, "bob-3"), -1);
    // Announced for another addressee than the signed one.
    EXPECT_EQ(deposit(fromAlice, "eve-4"), -1);
    // A flipped byte of the sealed box: the signature covers it.
    std::string bytes = LXSecure::bytesOf(static_cast<NSData*>(fromAlice->contents()));
    bytes.back() ^= 0x01;
    LXDelta* flipped = LXDelta::deltaWithPool_sender_contents_(
            fromAlice->pool(), fromAlice->sender(), LXSecure::dataOf(bytes));
    flipped->setAddressee_(fromAlice->addressee());
    EXPECT_EQ(deposit(flipped, "bob-3"), -1);
    // A delta that is not sealed: the relay would hold a readable record.
    LXDelta* plain = plainDelta("alice-2", "bob-3", "x");
    EXPECT_EQ(deposit(plain, "bob-3"), -1);

    std::string text = log();
    EXPECT_NE(text.find("command 1 refused"), std::string::npos) << text;
    EXPECT_NE(text.find("deposit refused: eve-4 signed a delta in another name (alice-2)"),
              std::string::npos);
    EXPECT_NE(text.find("deposit refused: the keys of mallory-5 are not signed by the anchor"),
              std::string::npos);
    // Eve's signature, the other addressee and the flipped byte.
    int broken = 0;
    for (size_t at = 0;
         (at = text.find("the signature of alice-2 does not hold", at)) != std::string::npos; at++)
        broken++;
    EXPECT_EQ(broken, 3);
    EXPECT_NE(text.find("deposit refused: the delta from alice-2 is not sealed"),
              std::string::npos);
    EXPECT_EQ(text.find("delta enqueued"), std::string::npos);
    int32_t count;
    EXPECT_TRUE(collect("bob-3", bob_, bob_.signSecret, &count).empty());
    EXPECT_EQ(count, 0);
}

// Several deltas a connection, each answered in turn: the first that does
// not hold ends the connection, and nothing after it is stored.
TEST_F(SecureRelayTest, ADepositsDeltasAreAnsweredInTurnUpToTheFirstRefused) {
    auto fromAlice = [&](const char* text) {
        return LXSecure::sealedDelta(plainDelta("alice-2", "bob-3", text), alice_,
                                     bob_.certificate.sealPublic);
    };
    LXDelta* forged =
            reforged(fromAlice("x"), eve_.certificate, eve_.signSecret, "bob-3", "alice-2");
    EXPECT_EQ(secureDepositAll(relay_->port(),
                               {fromAlice("1"), fromAlice("2"), forged, fromAlice("4")}, "bob-3"),
              2);
    int32_t count;
    EXPECT_EQ(collect("bob-3", bob_, bob_.signSecret, &count).size(), 2u);
    // The count is checked before anything is read.
    for (int32_t announced : {0, LXRelayProtocol::kMaximumBatch + 1}) {
        Ref<LXSocket> socket = connect();
        socket->sendInt_(LXRelayProtocol::kSecureDeposit);
        socket->sendInt_(announced);
        socket->readInt();
        EXPECT_TRUE(socket->isBroken());
    }
    EXPECT_NE(log().find("deposit refused: 101 deltas announced (1 to 100)"), std::string::npos)
            << log();
}

// Secure exchanges are served by the relay's event loop like the plain
// ones: a client stalled between the challenge and its signature holds no
// one back, and every collect gets a challenge of its own, so a signature
// seen on one connection opens no other.
TEST_F(SecureRelayTest, AStalledCollectHoldsNoOneAndChallengesAreFresh) {
    auto stalled = [&]() {
        Ref<LXSocket> socket = connect();
        socket->sendInt_(LXRelayProtocol::kSecureCollect);
        socket->sendString_("bob-3"_ns);
        socket->sendData_(NSArchiver::archivedDataWithRootObject_(bob_.certificate.dictionary()));
        return socket;
    };
    Ref<LXSocket> first = stalled();
    std::string challenge = LXSecure::bytesOf(first->readData());
    ASSERT_EQ(challenge.size(), LXRelayProtocol::kChallengeBytes) << log();

    LXDelta* envelope = LXSecure::sealedDelta(plainDelta("alice-2", "bob-3", "w"), alice_,
                                              bob_.certificate.sealPublic);
    EXPECT_EQ(deposit(envelope, "bob-3"), 1) << log();

    // A replayed answer to the first challenge opens nothing on a second.
    Ref<LXSocket> second = stalled();
    std::string other = LXSecure::bytesOf(second->readData());
    EXPECT_NE(other, challenge);
    second->sendData_(LXSecure::dataOf(
            LXCrypto::sign(LXSecure::collectText("bob-3", challenge), bob_.signSecret)));
    second->readInt();
    EXPECT_TRUE(second->isBroken());
    EXPECT_NE(log().find("collect refused: bob-3 did not sign the challenge"), std::string::npos)
            << log();

    // The first, still waiting, is the one collect of bob-3 under way.
    first->sendData_(LXSecure::dataOf(
            LXCrypto::sign(LXSecure::collectText("bob-3", challenge), bob_.signSecret)));
    EXPECT_EQ(first->readInt(), 1) << log();
    EXPECT_TRUE(first->readObject());
    first->sendInt_(LXRelayProtocol::kAcknowledged);
    first.set(nullptr);
    int32_t count;
    EXPECT_TRUE(collect("bob-3", bob_, bob_.signSecret, &count).empty());
}

// The transceiver's own secure cycle against the relay: what it deposits
// is collected by the addressee's transceiver, whose delegate sees it.
TEST_F(SecureRelayTest, TransceiverSpeaksTheSecureCommands) {
    LXTransceiver* t = LXTransceiver::defaultTransceiver();
    t->setSecureIdentity(alice_);
    t->setUser_(LXUser::userWithString_("A B/U/O-alice-2"_ns));
    // More than one deposit's worth: two connections.
    const int n = LXRelayProtocol::kMaximumBatch + 3;
    for (int i = 0; i < n; i++) {
        NSAutoreleasePoolScope each;
        LXDelta* envelope = LXSecure::sealedDelta(plainDelta("alice-2", "bob-3", std::to_string(i)),
                                                  alice_, bob_.certificate.sealPublic);
        t->post_to_(envelope, envelope->addressee());
    }
    t->checkWithPort_host_(relay_->port(), "127.0.0.1"_ns);
    EXPECT_EQ(t->lastCycleSent(), n) << log();
    EXPECT_TRUE(t->lastCycleComplete()) << log();
    int32_t count;
    EXPECT_EQ(collect("bob-3", bob_, bob_.signSecret, &count).size(), static_cast<size_t>(n));
}

}  // namespace

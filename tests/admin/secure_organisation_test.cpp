// An organisation that switches the secure protocol on, end to end with
// real processes on loopback: the administrator's installation made from
// the demo, `key anchor`, two users made with `key make` (Alice, an
// administrator, and Bob, who may change only companies of his own), each in an
// installation of their own with anchor.txt, and vantor-relay --secure.
// Honest changes travel sealed; what a modified client or an attacker
// with a valid key of their own sends (a change in another user's name, a
// flipped byte, a change without the right) is refused at every receiver,
// kept aside and acknowledged.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "app/VTUserKey.h"
#include "foundation/NSAutoreleasePool.h"
#include "tests/support/FaultProxy.h"
#include "tests/support/TempDir.h"
#include "tests/sync/secure_support.h"

namespace {

using namespace vt_installations;
using namespace securetest;

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Every file under `dir` as one text.
std::string allFiles(const std::string& dir) {
    return runProgram("cat " + quoteShell(dir) + "/* 2>/dev/null").out;
}

class SecureOrganisationTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        NSAutoreleasePoolScope pool;
        root_ = new vt_test::TempDir("vt-secure-org");
        std::string root = root_->path();
        org_ = Installation(root + "/org", "vantor-demo");
        alice_ = Installation(root + "/alice", "alice-pw");
        bob_ = Installation(root + "/bob", "bob-pw");
        ASSERT_TRUE(makeFirstInstallation(org_));
        ProgramResult anchor = org_.admin("key anchor " + quoteShell(root + "/anchor.txt"));
        ASSERT_EQ(anchor.status, 0) << anchor.err;
        ASSERT_EQ(anchor.out.size(), 65u) << anchor.out;  // 64 hex digits and a newline
        writeFile(org_.dir + "/anchor.txt", readFile(root + "/anchor.txt"));

        // Bob is a designer: staff, who may change only the companies they
        // made themselves.
        const char* users[2][3] = {{"Alice", "demo-group-admins", "alice"},
                                   {"Bob", "demo-group-designers", "bob"}};
        Installation* installations[2] = {&alice_, &bob_};
        for (int i = 0; i < 2; i++) {
            Installation& user = *installations[i];
            std::string id = org_.set("user", std::string(R"({"firstName": ")") + users[i][0] +
                                                      R"(", "lastName": "Secure", "orgUnit": )"
                                                      R"("Sales", "company": "Demo", "role": )"
                                                      R"("manager", "groups": ")" +
                                                      users[i][1] + "\"}");
            ASSERT_FALSE(id.empty());
            ProgramResult key =
                    org_.admin("key make " + id + " --password-stdin", user.password + "\n");
            ASSERT_EQ(key.status, 0) << key.err;
            std::string keyFile = key.out.substr(0, key.out.find('\n'));
            ASSERT_EQ(std::system(("mkdir -p " + quoteShell(user.dir + "/userkey") + " " +
                                   quoteShell(user.dir + "/data") + " && cp -r " +
                                   quoteShell(envPath("VANTOR_SOURCE_DIR") + "/demo/conf") + " " +
                                   quoteShell(user.dir) + " && mv " +
                                   quoteShell(org_.dir + "/" + keyFile) + " " +
                                   quoteShell(user.dir + "/userkey/"))
                                          .c_str()),
                      0);
            writeFile(user.dir + "/transceiver.txt", "127.0.0.1\n");
            writeFile(user.dir + "/anchor.txt", readFile(root + "/anchor.txt"));
            ids_[i] = id;
            keys_[i] = user.dir + "/userkey/" + keyFile;
            ASSERT_EQ(org_.admin("record action user " + id + " VTActionPushSpaces").status, 0);
        }
        relay_ = new SecureRelay(root, root + "/anchor.txt");
        ASSERT_TRUE(relay_->start()) << relay_->log();
        for (Installation* each : {&org_, &alice_, &bob_}) ASSERT_TRUE(sync(*each));
    }
    static void TearDownTestSuite() {
        delete relay_;
        delete root_;
    }

    NSAutoreleasePoolScope pool_;

    static bool sync(const Installation& i) { return i.syncDone(relay_->port()); }

    // The identity in a user's key file, unlocked as the login does.
    static LXSecureIdentity identityOf(const std::string& keyFile, const std::string& password) {
        LXSecureIdentity identity;
        NSMutableDictionary* key = VTUserKey::userKeyWithContentsOfFile_(
                NSString::stringWithUTF8String_(keyFile.c_str()));
        EXPECT_TRUE(key && VTUserKey::unlock(key, password, &identity)) << keyFile;
        return identity;
    }

    // A set delta of the company record with a city, as a client (honest
    // or modified) would make it: the newest possible version of the field,
    // so that it wins wherever it is taken in.
    static LXDelta* cityChange(const std::string& fromName, const std::string& fromId,
                               const std::string& toId, const std::string& record,
                               const std::string& city) {
        NSMutableDictionary* object = NSMutableDictionary::dictionary();
        object->setObject_forKey_(NSString::stringWithUTF8String_(record.c_str()), "__recordId"_ns);
        object->setObject_forKey_(NSString::stringWithUTF8String_(city.c_str()), "city"_ns);
        NSMutableDictionary* versions = NSMutableDictionary::dictionary();
        versions->setObject_forKey_(
                NSString::stringWithFormat_("7fffffffffffffff:%s", fromId.c_str()), "city"_ns);
        object->setObject_forKey_(versions, "__versions"_ns);
        NSMutableDictionary* contents = NSMutableDictionary::dictionary();
        contents->setObject_forKey_("set"_ns, "action"_ns);
        contents->setObject_forKey_("company"_ns, "sheet"_ns);
        contents->setObject_forKey_(
                NSAutorelease(NSArray::alloc()->initWithObjects_("city"_ns, nullptr)), "fields"_ns);
        contents->setObject_forKey_(object, "object"_ns);
        LXDelta* delta = LXDelta::deltaWithPool_sender_contents_(
                LXPool::poolWithName_("Rk2pWn"_ns),
                LXUser::userWithString_(NSString::stringWithFormat_(
                        "%s Secure/Sales/Demo-%s", fromName.c_str(), fromId.c_str())),
                contents);
        delta->setAddressee_(
                LXUser::userWithString_(NSString::stringWithFormat_("x y/z/w-%s", toId.c_str())));
        return delta;
    }

    static std::string cityAt(const Installation& i, const std::string& record) {
        return valueOf(i.records("company")[record], "city");
    }
    static std::string orgId() {
        return valueOf(org_.records("user").begin()->second, "__recordId");
    }

    static vt_test::TempDir* root_;
    static SecureRelay* relay_;
    static Installation org_, alice_, bob_;
    static std::string ids_[2], keys_[2];
};

vt_test::TempDir* SecureOrganisationTest::root_ = nullptr;
SecureRelay* SecureOrganisationTest::relay_ = nullptr;
Installation SecureOrganisationTest::org_, SecureOrganisationTest::alice_,
        SecureOrganisationTest::bob_;
std::string SecureOrganisationTest::ids_[2], SecureOrganisationTest::keys_[2];

TEST_F(SecureOrganisationTest, KeysAreSecureAndOnlyTheAnchorsAdministratorMakesThem) {
    for (int i = 0; i < 2; i++) {
        struct stat info;
        ASSERT_EQ(stat(keys_[i].c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0600u);
        ProgramResult shown = org_.admin("key show " + quoteShell(keys_[i]) + " --show-password");
        EXPECT_TRUE(contains(shown.out, "Password: (not kept: a secure key holds only its hash)"))
                << shown.out;
        EXPECT_FALSE(contains(readFile(keys_[i]), i == 0 ? "alice-pw" : "bob-pw"));
    }
    // Each user's record carries the public halves, replicated.
    std::string aliceAtBob = alice_.records("user")[ids_[0]];
    EXPECT_EQ(valueOf(aliceAtBob, "sealingKey").size(), 64u) << aliceAtBob;
    EXPECT_EQ(valueOf(aliceAtBob, "keySignature").size(), 128u);
    // Alice, an administrator but not the anchor, makes no keys.
    ProgramResult made = alice_.admin("key make " + ids_[1] + " --password-stdin", "x\n");
    EXPECT_EQ(made.status, 1);
    EXPECT_TRUE(contains(made.err, "only the administrator whose key is the anchor makes keys"))
            << made.err;
    // A wrong password opens nothing.
    Installation wrong(org_.dir, "not-the-password");
    EXPECT_EQ(wrong.admin("key make " + ids_[1] + " --password-stdin", "x\n").status, 1);
}

TEST_F(SecureOrganisationTest, ChangesTravelSealedAndTheRelayReadsNothing) {
    std::string id = alice_.set(
            "company", R"({"name": "MARKER-Sealed-4711", "city": "Brno", "industry": "trade"})");
    ASSERT_FALSE(id.empty());
    ProgramResult sent = alice_.admin("sync --timeout 3 --port " + std::to_string(relay_->port()));
    ASSERT_EQ(sent.status, 0) << sent.err;
    // Waiting at the relay: nothing of the record is in its files.
    std::string stored = allFiles(relay_->dir());
    EXPECT_FALSE(stored.empty());
    EXPECT_FALSE(contains(stored, "MARKER-Sealed")) << "the relay's store holds the record's text";
    EXPECT_TRUE(contains(relay_->log(), "delta enqueued")) << relay_->log();
    EXPECT_FALSE(contains(relay_->log(), "MARKER-Sealed"));

    // A restart of the relay loses nothing.
    relay_->kill9();
    ASSERT_TRUE(relay_->start());
    ASSERT_TRUE(sync(bob_));
    ASSERT_TRUE(sync(org_));
    EXPECT_TRUE(contains(bob_.records("company")[id], "MARKER-Sealed-4711"));
    EXPECT_TRUE(contains(org_.records("company")[id], "MARKER-Sealed-4711"));
}

// Connections cut, reset, stalled and refused at any byte of the secure
// exchanges (the challenge included) lose no change and apply none twice.
TEST_F(SecureOrganisationTest, TheFaultProxyLosesNothing) {
    vt_test::FaultProxyOptions options;
    options.sequence = 28;
    options.passWeight = 3;
    options.stallSeconds = 1;
    options.maxFaultOffset = 400;
    vt_test::FaultProxy proxy(relay_->port(), options);
    ASSERT_NE(proxy.port(), 0);
    std::string refusedBefore[2] = {bob_.admin("deltas --refused").out,
                                    org_.admin("deltas --refused").out};
    std::vector<std::string> made;
    for (int i = 0; i < 5; i++) {
        std::string id =
                alice_.set("company", R"({"name": "Faulty )" + std::to_string(i) +
                                              R"(", "city": "Olomouc", "industry": "trade"})");
        ASSERT_FALSE(id.empty());
        made.push_back(id);
    }
    for (const Installation* each : {&alice_, &bob_, &org_})
        ASSERT_TRUE(each->syncDone(proxy.port(), 80)) << each->dir;
    EXPECT_GT(proxy.connections() - proxy.count(vt_test::Fate::Pass), 0);
    const Installation* receivers[2] = {&bob_, &org_};
    for (int i = 0; i < 2; i++) {
        std::map<std::string, std::string> companies = receivers[i]->records("company");
        for (const std::string& id : made)
            EXPECT_TRUE(companies.count(id)) << receivers[i]->dir << " " << id;
        // Nothing broken in transit was taken for a forgery.
        EXPECT_EQ(receivers[i]->admin("deltas --refused").out, refusedBefore[i]);
    }
}

TEST_F(SecureOrganisationTest, ForgedTamperedAndUnauthorisedChangesAreRefused) {
    std::string record = "demo-company-1";
    std::string before = cityAt(org_, record);
    ASSERT_FALSE(before.empty());
    LXSecureIdentity alice = identityOf(keys_[0], "alice-pw");
    LXSecureIdentity bob = identityOf(keys_[1], "bob-pw");
    LXUserCertificate orgKeys;
    ASSERT_TRUE(LXUserCertificate::fromDictionary(
            NSDictionary::dictionaryWithObjectsAndKeys_(
                    NSString::stringWithUTF8String_(orgId().c_str()), "UniqueID"_ns,
                    NSString::stringWithUTF8String_(
                            valueOf(org_.records("user")[orgId()], "signingKey").c_str()),
                    "SigningKey"_ns,
                    NSString::stringWithUTF8String_(
                            valueOf(org_.records("user")[orgId()], "sealingKey").c_str()),
                    "SealingKey"_ns,
                    NSString::stringWithUTF8String_(
                            valueOf(org_.records("user")[orgId()], "keySignature").c_str()),
                    "KeySignature"_ns, nullptr),
            &orgKeys));
    uint16_t port = relay_->port();

    // 1. Bob, with his own valid key, sends a change in Alice's name: the
    //    relay takes it (he deposits as himself), the receiver does not.
    LXDelta* forged = cityChange("Alice", ids_[0], orgId(), record, "Forged-Name");
    LXDelta* envelope = LXSecure::sealedDelta(forged, bob, orgKeys.sealPublic);
    ASSERT_EQ(secureDeposit(port, envelope, orgId()), 1) << relay_->log();

    // 2. A flipped byte in a sealed delta of Alice's: the relay, which
    //    checks the signature over the sealed bytes, refuses it; signed
    //    again after the change (by Alice's own modified client), it
    //    passes the relay and the box does not open at the receiver.
    LXDelta* honest = cityChange("Alice", ids_[0], orgId(), record, "Flipped-Byte");
    LXDelta* sealed = LXSecure::sealedDelta(honest, alice, orgKeys.sealPublic);
    std::string bytes = LXSecure::bytesOf(static_cast<NSData*>(sealed->contents()));
    bytes[bytes.size() - 100] ^= 0x20;
    LXDelta* tampered = LXDelta::deltaWithPool_sender_contents_(sealed->pool(), sealed->sender(),
                                                                LXSecure::dataOf(bytes));
    tampered->setAddressee_(sealed->addressee());
    ASSERT_EQ(secureDeposit(port, tampered, orgId()), -1);
    LXDelta* resigned = reforged(sealed, alice.certificate, alice.signSecret, orgId(), ids_[0],
                                 [](std::string* box) { (*box)[box->size() / 2] ^= 0x20; });
    ASSERT_EQ(secureDeposit(port, resigned, orgId()), 1);

    // 3. Bob's modified client sends a change of a company he did not
    //    make, which he may not change, in his own name, signed and sealed like any other.
    LXDelta* unauthorised = cityChange("Bob", ids_[1], orgId(), record, "No-Right");
    ASSERT_EQ(secureDeposit(port, LXSecure::sealedDelta(unauthorised, bob, orgKeys.sealPublic),
                            orgId()),
              1);
    // The same to Alice.
    LXDelta* toAlice = cityChange("Bob", ids_[1], ids_[0], record, "No-Right");
    ASSERT_EQ(secureDeposit(port, LXSecure::sealedDelta(toAlice, bob, alice.certificate.sealPublic),
                            ids_[0]),
              1);

    // 4. The same change made honestly by Alice, an administrator, goes
    //    through: the forgeries above failed for what they are.
    LXDelta* allowed = cityChange("Alice", ids_[0], orgId(), record, "Honest-City");
    ASSERT_EQ(
            secureDeposit(port, LXSecure::sealedDelta(allowed, alice, orgKeys.sealPublic), orgId()),
            1);

    ProgramResult synced = org_.admin("sync --timeout 3 --port " + std::to_string(port));
    ASSERT_EQ(synced.status, 0) << synced.err;
    EXPECT_TRUE(contains(synced.err + synced.out,
                         "incoming delta refused: the sender inside is not the one who signed "
                         "and deposited it"))
            << synced.err;
    EXPECT_TRUE(contains(synced.err + synced.out,
                         "incoming delta refused: does not open with this user's sealing key"));
    EXPECT_TRUE(contains(synced.err + synced.out, "incoming delta refused: " + ids_[1] +
                                                          " may not update in sheet 'company'"));
    EXPECT_EQ(cityAt(org_, record), "Honest-City");
    ProgramResult refused = org_.admin("deltas --refused");
    EXPECT_EQ(countOf(refused.out, "may not update in sheet 'company'"), 1) << refused.out;

    ASSERT_TRUE(sync(alice_));
    EXPECT_EQ(cityAt(alice_, record), before);
    EXPECT_EQ(countOf(alice_.admin("deltas --refused").out, "may not update in sheet 'company'"),
              1);
    // All were acknowledged: nothing waits at the relay for Alice.
    int32_t count;
    EXPECT_TRUE(secureCollect(port, ids_[0], alice, alice.signSecret, &count).empty());
    EXPECT_EQ(count, 0);
}

}  // namespace

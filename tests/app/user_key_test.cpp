// User keys: the file format, the generator's file names, discovery in
// userkey/ with its short-name rule and listing order, and secure keys.
#include <sys/stat.h>

#include "foundation/platform/Platform.h"
#include "storage/NSArchiver.h"
#include "sync/LXCrypto.h"
#include "workspace_fixture.h"

namespace {

class UserKeyTest : public WorkspaceTest {
protected:
    static void writeKey(const char* path, const char* userId, const char* uniqueId) {
        ASSERT_TRUE(VTUserKey::writeUserKey_toFile_(key(userId, uniqueId), ns(path)));
    }
    static std::string userIdOf(NSDictionary* k) {
        return k ? str(k->objectForKey_("UserID"_ns)) : "nil";
    }
    // The first name in the listing of userkey/ that passes the name rule.
    static std::string firstKeyName() {
        std::vector<std::string> names;
        vtListDirectory("userkey", &names);
        for (const std::string& name : names)
            if (VTUserKey::isKeyFileName_(ns(name.c_str()))) return name;
        return "";
    }
};

TEST_F(UserKeyTest, AKeyIsAnEncipheredArchiveOfOneDictionary) {
    writeKey("userkey/ada.vuk", "Ada Lovelace/Demo/Acme", "u-1");
    std::string bytes = readFile("userkey/ada.vuk");
    EXPECT_EQ(bytes.find("secret"), std::string::npos);
    EXPECT_EQ(bytes.find("NSString"), std::string::npos);
    NSDictionary* k = VTUserKey::userKeyWithContentsOfFile_("userkey/ada.vuk"_ns);
    ASSERT_NE(k, nullptr);
    EXPECT_TRUE(k->isKindOfClass_(NSMutableDictionary::classObject()));
    EXPECT_EQ(k->count(), 4u);
    EXPECT_EQ(userIdOf(k), "Ada Lovelace/Demo/Acme");
    EXPECT_EQ(str(k->objectForKey_("UniqueID"_ns)), "u-1");
    EXPECT_EQ(str(k->objectForKey_("Password"_ns)), "secret");
    EXPECT_EQ(str(k->objectForKey_("Admin"_ns)), "0");

    EXPECT_EQ(str(VTUserKey::fileNameForFirstName_lastName_orgUnit_company_("Ada"_ns, "Lovelace"_ns,
                                                                            "Demo"_ns, "Acme"_ns)),
              "Ada_Lovelace__Demo__Acme.vuk");
}

TEST_F(UserKeyTest, OnlyADictionaryWithAUserIdIsAKey) {
    // A valid archive of something else, garbage, an empty file, no file.
    NSMutableData* data = static_cast<NSMutableData*>(NSMutableData::alloc()->init());
    NSArchiver* a = NSArchiver::alloc()->initForWritingWithMutableData_(data);
    a->encodeRootObject_("just a string"_ns);
    a->release();
    data->encryptWithKey_("Rk2pWn"_ns);
    data->writeToFile_atomically_("userkey/string.vuk"_ns, false);
    data->release();
    NSMutableDictionary* noUser = NSMutableDictionary::dictionary();
    noUser->setObject_forKey_("x"_ns, "Password"_ns);
    VTUserKey::writeUserKey_toFile_(noUser, "userkey/nouser.vuk"_ns);
    writeFile("userkey/garbage.vuk", "not a key at all");
    writeFile("userkey/empty.vuk", "");
    for (const char* path : {"userkey/string.vuk", "userkey/nouser.vuk", "userkey/garbage.vuk",
                             "userkey/empty.vuk", "userkey/missing.vuk"}) {
        NSDictionary* k = nullptr;
        logOf([&] { k = VTUserKey::userKeyWithContentsOfFile_(ns(path)); });
        EXPECT_EQ(k, nullptr) << path;
    }
}

TEST_F(UserKeyTest, DiscoverySkipsShortAndForeignNames) {
    EXPECT_EQ(VTUserKey::discoverInDirectory_("userkey"_ns), nullptr);
    EXPECT_EQ(VTUserKey::discoverInDirectory_("no-such-directory"_ns), nullptr);
    writeKey("userkey/a.vuk", "Short Name/Demo/Acme", "u-1");
    writeKey("userkey/abc.VUK", "Upper Case/Demo/Acme", "u-2");
    writeKey("userkey/abc.vukx", "Long Ending/Demo/Acme", "u-3");
    writeKey("userkey/readme.txt", "Other Ending/Demo/Acme", "u-4");
    EXPECT_EQ(VTUserKey::discoverInDirectory_("userkey"_ns), nullptr);
    EXPECT_FALSE(VTUserKey::isKeyFileName_(".vuk"_ns));
    EXPECT_FALSE(VTUserKey::isKeyFileName_("a.vuk"_ns));
    EXPECT_TRUE(VTUserKey::isKeyFileName_("ab.vuk"_ns));

    writeKey("userkey/ab.vuk", "Just Long/Demo/Acme", "u-5");
    EXPECT_EQ(userIdOf(VTUserKey::discoverInDirectory_("userkey"_ns)), "Just Long/Demo/Acme");
}

TEST_F(UserKeyTest, TheFirstPassingEntryDecidesWhateverItHolds) {
    writeKey("userkey/first.vuk", "First Key/Demo/Acme", "u-1");
    writeKey("userkey/second.vuk", "Second Key/Demo/Acme", "u-2");
    std::string first = firstKeyName();
    NSDictionary* found = VTUserKey::discoverInDirectory_("userkey"_ns);
    EXPECT_EQ(userIdOf(found),
              first == "first.vuk" ? "First Key/Demo/Acme" : "Second Key/Demo/Acme");

    // A damaged key that comes first in the listing ends the walk with
    // nothing, even though a good key follows.
    std::string firstPath = "userkey/" + first;
    writeFile(firstPath, "damaged");
    NSDictionary* none = nullptr;
    logOf([&] { none = VTUserKey::discoverInDirectory_("userkey"_ns); });
    EXPECT_EQ(none, nullptr);
}

TEST_F(UserKeyTest, AKeyWithoutUniqueIdIsLoggedAndTaken) {
    writeKey("userkey/admin.vuk", "Ada Lovelace/Demo/Admin", nullptr);
    NSDictionary* k = nullptr;
    EXPECT_EQ(logOf([&] { k = VTUserKey::discoverInDirectory_("userkey"_ns); }),
              "no user unique ID\n");
    EXPECT_EQ(userIdOf(k), "Ada Lovelace/Demo/Admin");
    writeKey("userkey/admin.vuk", "Ada Lovelace/Demo/Admin", "u-1");
    EXPECT_EQ(logOf([&] { k = VTUserKey::discoverInDirectory_("userkey"_ns); }), "");
}

}  // namespace

namespace {

// A secure key: a hash of the password and the secret keys locked under
// it, never the password; readable by its owner only; unlocked only by the
// right password; certified by itself (the anchor) or by the anchor's key.
TEST_F(UserKeyTest, ASecureKeyKeepsAHashAndLockedSecretsNeverThePassword) {
    if (!LXCrypto::available()) GTEST_SKIP() << "built without the secure protocol";
    NSMutableDictionary* admin = key("Ada Lovelace/Demo/Acme", "u-1");
    LXSecureIdentity anchor;
    ASSERT_TRUE(VTUserKey::makeSecure(admin, "secret", nullptr, &anchor));
    EXPECT_EQ(admin->objectForKey_("Password"_ns), nullptr);
    EXPECT_TRUE(VTUserKey::isSecureKey_(admin));
    EXPECT_EQ(anchor.anchor, anchor.certificate.signPublic);
    EXPECT_TRUE(anchor.certificate.isCertifiedBy(anchor.anchor));
    ASSERT_TRUE(VTUserKey::writeUserKey_toFile_(admin, "userkey/ada.vuk"_ns));
    struct stat info;
    ASSERT_EQ(stat("userkey/ada.vuk", &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    NSMutableDictionary* read = VTUserKey::userKeyWithContentsOfFile_("userkey/ada.vuk"_ns);
    ASSERT_NE(read, nullptr);
    std::string plain = LXSecure::bytesOf(NSArchiver::archivedDataWithRootObject_(read));
    EXPECT_EQ(plain.find("secret"), std::string::npos);
    EXPECT_TRUE(VTUserKey::key_matchesPassword_(read, "secret"_ns));
    EXPECT_FALSE(VTUserKey::key_matchesPassword_(read, "secreT"_ns));
    LXSecureIdentity unlocked;
    EXPECT_FALSE(VTUserKey::unlock(read, "secreT", &unlocked));
    ASSERT_TRUE(VTUserKey::unlock(read, "secret", &unlocked));
    EXPECT_EQ(unlocked.signSecret, anchor.signSecret);
    EXPECT_EQ(unlocked.sealSecret, anchor.sealSecret);
    EXPECT_EQ(unlocked.anchor, anchor.anchor);
    EXPECT_EQ(unlocked.certificate.uniqueId, "u-1");

    // A user's key, certified by the anchor's.
    NSMutableDictionary* user = key("Bob Baker/Works/Acme", "u-2");
    LXSecureIdentity bob;
    ASSERT_TRUE(VTUserKey::makeSecure(user, "bob-pw", &anchor, &bob));
    EXPECT_EQ(bob.anchor, anchor.anchor);
    EXPECT_TRUE(bob.certificate.isCertifiedBy(anchor.anchor));
    EXPECT_NE(bob.certificate.signPublic, anchor.anchor);
    // No record id, nothing to bind the keys to.
    NSMutableDictionary* first = key("Eve Evans/Works/Acme", nullptr);
    EXPECT_FALSE(VTUserKey::makeSecure(first, "x", &anchor, nullptr));
    // A plain key compares its password as it stands.
    EXPECT_TRUE(VTUserKey::key_matchesPassword_(key("A B/C/D", "u-3"), "secret"_ns));
}

}  // namespace

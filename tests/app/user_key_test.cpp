// User keys: the file format, the generator's file names, and discovery in
// userkey/ with its short-name rule and listing order.
#include "foundation/platform/Platform.h"
#include "storage/NSArchiver.h"
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

// A fresh working directory per test (conf/, data/, userkey/), the English
// table installed, and helpers to fill containers and write keys. Included
// by one test file per program.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "app/VTLocalization.h"
#include "app/VTUserKey.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "sheets/VTTableDataSource.h"
#include "storage/LXContainer.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSupport.h"

using vt_test::logOf;

class WorkspaceTest : public testing::Test {
public:
    static std::string readFile(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream s;
        s << in.rdbuf();
        return s.str();
    }

protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        dir = vt_test::makeTempDir("vantor-workspace");
        old = std::filesystem::current_path();
        std::filesystem::current_path(dir);
        for (const char* sub : {"conf", "data", "userkey"}) std::filesystem::create_directory(sub);
        VTInstallLocalizedStrings(VTLocalization::localization()->localizedStrings());
        VTTableDataSource::resetIdentityForTesting();
    }
    void TearDown() override {
        pool->release();
        std::filesystem::current_path(old);
        std::filesystem::remove_all(dir);
        VTTableDataSource::resetIdentityForTesting();
    }

    static void writeFile(const std::string& path, const std::string& bytes) {
        std::ofstream(path, std::ios::binary) << bytes;
    }
    static NSString* ns(const char* text) { return NSString::stringWithUTF8String_(text); }
    static std::string str(NSObject* o) {
        return o ? static_cast<NSString*>(o->description())->UTF8String() : "nil";
    }

    // Stores records, given as (field, value) lists, in data/<stem>.
    static void storeRecords(
            const char* stem,
            std::initializer_list<std::initializer_list<std::pair<const char*, const char*>>>
                    records) {
        LXContainer* c =
                LXContainer::alloc()->initWithName_(NSString::stringWithFormat_("data/%s", stem));
        for (auto& fields : records) {
            NSMutableDictionary* record = NSMutableDictionary::dictionary();
            for (auto& [key, value] : fields) record->setObject_forKey_(ns(value), ns(key));
            c->set_(record);
        }
        c->release();
    }
    // A key dictionary; a null uniqueId leaves the entry out.
    static NSMutableDictionary* key(const char* userId, const char* uniqueId,
                                    const char* password = "secret") {
        NSMutableDictionary* k = NSMutableDictionary::dictionary();
        k->setObject_forKey_(ns(userId), "UserID"_ns);
        if (uniqueId) k->setObject_forKey_(ns(uniqueId), "UniqueID"_ns);
        k->setObject_forKey_(ns(password), "Password"_ns);
        k->setObject_forKey_(NSNumber::numberWithBool_(false), "Admin"_ns);
        return k;
    }
    // The workspace, owned by the caller; its log goes to *log.
    static VTWorkspace* build(NSDictionary* userKey, std::string* log = nullptr,
                              const char* path = "conf/cro.vtr") {
        VTWorkspace* w = nullptr;
        std::string text =
                logOf([&] { w = VTWorkspace::alloc()->initWithFile_userInfo_(ns(path), userKey); });
        if (log) *log = text;
        return w;
    }

    NSAutoreleasePool* pool = nullptr;
    std::string dir;
    std::filesystem::path old;
};

// The three sheets the rights rest on, and one business sheet.
constexpr const char kSmallConfiguration[] =
        "(\n"
        " ((name role) (field name as string))\n"
        " ((name group) (field name as string) (field roles as string))\n"
        " (# a comment row between the sheets)\n"
        " ((name user) (field firstName as string) (field lastName as string) (field orgUnit as "
        "string)\n"
        "  (field company as string) (field role as string) (field groups as string))\n"
        " ((name task labelled (Open tasks)) (field title as string) (field owner as reference "
        "user (firstName lastName))\n"
        "  (restrict update (editors)) (restrict updateown (owners)) (restrict see (seers)) "
        "(restrict read (readers))\n"
        "  (restrict removeown (removers)))\n"
        ")\n";

// A fresh working directory per test (conf/, data/, userkey/), the English
// table installed, and helpers to fill containers and write keys. Included
// by one test file per program.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "app/VTLocalization.h"
#include "app/VTUserKey.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "foundation/platform/Platform.h"
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

// A Winelib program has two current directories: the Unix one, which the
// fixture's files go through (std::filesystem), and Win32's, which the
// platform layer's files go through. Both are set to one Unix temporary
// directory here, the Win32 one through Wine's drive Z:, the Linux root.
// A Windows program has one, and the fixture's own SetUp serves.
class Win32WorkspaceTest : public WorkspaceTest {
#ifndef _WIN32
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        old = std::filesystem::current_path();
        const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
        std::filesystem::path made =
                std::filesystem::temp_directory_path() /
                (std::string("vantor-") + info->name() + "-" + std::to_string(getpid()));
        std::filesystem::create_directories(made);
        dir = made.string();
        std::filesystem::current_path(dir);
        std::string win32 = "Z:" + dir;
        std::replace(win32.begin(), win32.end(), '/', '\\');
        ASSERT_TRUE(vtChangeDirectory(win32.c_str()));
        for (const char* sub : {"conf", "data", "userkey"}) std::filesystem::create_directory(sub);
        VTInstallLocalizedStrings(VTLocalization::localization()->localizedStrings());
        VTTableDataSource::resetIdentityForTesting();
    }
#endif
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

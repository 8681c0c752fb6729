// A stand-in for the few workspace operations that sheets, matrices and
// data sources send by message, and a fixture that runs each test in a
// fresh working directory with its own data/ folder. Included by one test
// file per program.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/NSArray.h"
#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSSet.h"
#include "foundation/NSString.h"
#include "sheets/VTTableDataSource.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSupport.h"

using vt_test::logOf;

class TestWorkspace : public NSObject {
    NS_DECLARE_CLASS(TestWorkspace, NSObject)

public:
    TestWorkspace* init() override {
        NSObject::init();
        _sheets.adopt(static_cast<NSMutableDictionary*>(
                NSMutableDictionary::alloc()->initWithCapacity_(10)));
        _seen.adopt(static_cast<NSMutableDictionary*>(
                NSMutableDictionary::alloc()->initWithCapacity_(10)));
        _userId.set("Ada Lovelace/Demo/Admin"_ns);
        _role.set("editor"_ns);
        return this;
    }
    NSMutableDictionary* sheets() { return _sheets; }
    NSString* currentUserId() { return _userId; }
    NSString* currentUserRole() { return _role; }
    NSMutableSet* setForSeenForKey_(NSString* key) {
        auto* set = static_cast<NSMutableSet*>(_seen->objectForKey_(key));
        if (!set) {
            set = NSMutableSet::set();
            _seen->setObject_forKey_(set, key);
        }
        return set;
    }
    void saveSetsForSeen() { saves++; }
    void refreshSheetsExceptThisOne_(NSObject* sheet) { refreshedExcept.push_back(sheet); }
    void synchronizeFields_ofObject_inSheet_(NSArray* fields, NSObject* record, NSObject* sheet) {
        std::string text;
        for (uint32_t i = 0; i < fields->count(); i++)
            text += std::string(i ? " " : "") +
                    static_cast<NSString*>(fields->objectAtIndex_(i))->UTF8String();
        NSObject* id = static_cast<NSDictionary*>(record)->objectForKey_("__recordId"_ns);
        synchronized.push_back(std::string(static_cast<NSString*>(id)->UTF8String()) + ": " + text);
        sheetsSeen.push_back(sheet);
    }
    void synchronizeDeletionOfObjectWithId_inSheet_(NSString* id, NSObject*) {
        deleted.push_back(id->UTF8String());
    }
    static int32_t roleWithString_(NSString* role) {
        return role && role->isEqual_("editor"_ns) ? 3 : 0;
    }

    void setUserId(NSString* id) { _userId.set(id); }

    int saves = 0;
    std::vector<NSObject*> refreshedExcept;
    std::vector<std::string> synchronized;
    std::vector<NSObject*> sheetsSeen;
    std::vector<std::string> deleted;

protected:
    ~TestWorkspace() override = default;

private:
    Ref<NSMutableDictionary> _sheets;
    Ref<NSMutableDictionary> _seen;
    Ref<NSString> _userId;
    Ref<NSString> _role;
};

NS_CLASS_BEGIN(TestWorkspace, NSObject)
    NS_METHOD(sheets)
    NS_METHOD(currentUserId)
    NS_METHOD(currentUserRole)
    NS_METHOD(setForSeenForKey_)
    NS_METHOD(saveSetsForSeen)
    NS_METHOD(refreshSheetsExceptThisOne_)
    NS_METHOD(synchronizeFields_ofObject_inSheet_)
    NS_METHOD(synchronizeDeletionOfObjectWithId_inSheet_)
    NS_CLASS_METHOD(roleWithString_)
NS_CLASS_END(TestWorkspace)

// Each test in a new directory of its own, holding data/.
class SheetsTest : public testing::Test {
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        dir = vt_test::makeTempDir("vantor-sheets");
        old = std::filesystem::current_path();
        std::filesystem::current_path(dir);
        std::filesystem::create_directory("data");
        workspace = static_cast<TestWorkspace*>(TestWorkspace::alloc()->init());
        VTTableDataSource::resetIdentityForTesting();
    }
    void TearDown() override {
        workspace->sheets()->removeAllObjects();
        workspace->release();
        pool->release();
        std::filesystem::current_path(old);
        std::filesystem::remove_all(dir);
        VTTableDataSource::resetIdentityForTesting();
    }

    static std::string str(NSObject* o) {
        if (!o) return "nil";
        return static_cast<NSString*>(o->description())->UTF8String();
    }

    NSAutoreleasePool* pool = nullptr;
    TestWorkspace* workspace = nullptr;
    std::string dir;
    std::filesystem::path old;
};

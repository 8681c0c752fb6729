// key show FILE [--show-password] | key make USER [--password-stdin]
//
// show: the identity a user key carries, one "Name: value" line each:
// UserID, UniqueID ("(none)" in a first-admin key before its first start),
// Admin, and Password only when asked for.
//
// make: the headless twin of the key generator's Generate, for the row of
// the user sheet whose __recordId or user id ("First Last/Unit/Company") is
// USER, in the installation of the working directory. The password is
// asked twice without echo on a terminal, or read as one line from standard
// input (--password-stdin, or whenever standard input is no terminal). Both
// are trimmed and must be non-empty and equal, as in the generator. The
// key goes to the working directory under the generator's file name,
// "<first>_<last>__<unit>__<company>.vuk", overwriting a file of that name;
// to take effect it is moved to userkey/ of that user's installation.
#include <cstdio>
#include <cstring>
#include <string>

#include "Commands.h"
#include "app/VTUserKey.h"
#include "app/VTWorkspace.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "foundation/platform/Platform.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"

namespace admin {

VTWorkspace* newInstallationWorkspace(const char* command);  // SheetCommand.cpp

namespace {

std::string text(NSObject* o) { return o ? static_cast<NSString*>(o->description())->UTF8String() : ""; }

int show(const char* path, bool showPassword) {
    NSMutableDictionary* key;
    {
        LogToStderr redirect;
        key = VTUserKey::userKeyWithContentsOfFile_(NSString::stringWithUTF8String_(path));
    }
    if (!key) {
        std::fprintf(stderr, "vantor-admin: key show: %s is no user key\n", path);
        return 1;
    }
    NSObject* unique = key->objectForKey_("UniqueID"_ns);
    NSObject* admin = key->objectForKey_("Admin"_ns);
    std::printf("UserID: %s\n", text(key->objectForKey_("UserID"_ns)).c_str());
    std::printf("UniqueID: %s\n", unique ? text(unique).c_str() : "(none)");
    std::printf("Admin: %s\n", !admin ? "(none)" : text(admin) == "0" ? "false" : "true");
    if (showPassword) std::printf("Password: %s\n", text(key->objectForKey_("Password"_ns)).c_str());
    return 0;
}

int make(const char* user, bool passwordFromStdin) {
    VTWorkspace* w = newInstallationWorkspace("key make");
    if (!w) return 1;
    VTSheet* users = w->sheetNamed_("user"_ns);
    VTMatrix* m = users ? users->matrix() : nullptr;
    std::string wanted = user;
    int32_t row = -1;
    for (uint32_t i = 0, n = m ? m->numberOfRows() : 0; i < n && row < 0; i++) {
        std::string id = text(m->valueInRow_column_(i, "__recordId"_ns));
        std::string userId = text(m->valueInRow_column_(i, "firstName"_ns)) + " " +
                             text(m->valueInRow_column_(i, "lastName"_ns)) + "/" +
                             text(m->valueInRow_column_(i, "orgUnit"_ns)) + "/" +
                             text(m->valueInRow_column_(i, "company"_ns));
        if (id == wanted || userId == wanted) row = static_cast<int32_t>(i);
    }
    int status = 1;
    if (row < 0) {
        std::fprintf(stderr, "vantor-admin: key make: no row of the user sheet has the id or user id '%s'\n", user);
    } else {
        auto value = [&](const char* field) {
            return static_cast<NSString*>(
                    m->valueInRow_column_(static_cast<uint32_t>(row), NSString::stringWithUTF8String_(field)));
        };
        std::string first, again;
        if (passwordFromStdin || !vtIsTerminal(0)) {
            first = again = readLine(stdin);
        } else {
            first = askHidden(stdin, "Password: ");
            again = askHidden(stdin, "Password (again): ");
        }
        NSString* password = NSString::stringWithUTF8String_(first.c_str())->trim();
        NSString* repeated = NSString::stringWithUTF8String_(again.c_str())->trim();
        if (password->length() == 0 || !password->isEqual_(repeated)) {
            std::fprintf(stderr, "vantor-admin: key make: The passwords must be non-empty and equal.\n");
        } else {
            NSString* fullId = NSString::stringWithFormat_("%s %s/%s/%s", text(value("firstName")).c_str(),
                                                           text(value("lastName")).c_str(),
                                                           text(value("orgUnit")).c_str(),
                                                           text(value("company")).c_str());
            NSString* fileName = VTUserKey::fileNameForFirstName_lastName_orgUnit_company_(
                    value("firstName"), value("lastName"), value("orgUnit"), value("company"));
            NSMutableDictionary* key = NSMutableDictionary::dictionary();
            key->setObject_forKey_(fullId, "UserID"_ns);
            key->setObject_forKey_(value("__recordId"), "UniqueID"_ns);
            key->setObject_forKey_(password, "Password"_ns);
            key->setObject_forKey_(NSNumber::numberWithBool_(false), "Admin"_ns);
            if (VTUserKey::writeUserKey_toFile_(key, fileName)) {
                std::printf("%s\n", fileName->UTF8String());
                status = 0;
            } else {
                std::fprintf(stderr, "vantor-admin: key make: cannot write %s\n", fileName->UTF8String());
            }
        }
    }
    {
        LogToStderr redirect;
        w->release();
    }
    return status;
}

int usage() {
    std::fprintf(stderr,
                 "usage: vantor-admin key show FILE [--show-password]\n"
                 "       vantor-admin key make USER [--password-stdin]\n");
    return 2;
}

}  // namespace

int runKey(int argc, char** argv) {
    if (argc < 3 || argc > 4) return usage();
    bool flag = argc == 4;
    if (std::strcmp(argv[1], "show") == 0) {
        if (flag && std::strcmp(argv[3], "--show-password") != 0) return usage();
        return show(argv[2], flag);
    }
    if (std::strcmp(argv[1], "make") == 0) {
        if (flag && std::strcmp(argv[3], "--password-stdin") != 0) return usage();
        return make(argv[2], flag);
    }
    return usage();
}

}  // namespace admin

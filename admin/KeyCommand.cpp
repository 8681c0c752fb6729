// key show FILE [--show-password] [--json] | key make USER [--password-stdin] [--json]
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
#include "Json.h"
#include "app/VTUserKey.h"
#include "app/VTWorkspace.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "foundation/platform/Platform.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"

namespace admin {

VTWorkspace* newInstallationWorkspace(const char* command);  // SheetCommand.cpp

NSString* newPassword(const char* command, bool fromStdin) {
    std::string first, again;
    if (fromStdin || !vtIsTerminal(0)) {
        first = again = readLine(stdin);
    } else {
        first = askHidden(stdin, "Password: ");
        again = askHidden(stdin, "Password (again): ");
    }
    NSString* password = NSString::stringWithUTF8String_(first.c_str())->trim();
    NSString* repeated = NSString::stringWithUTF8String_(again.c_str())->trim();
    if (password->length() == 0 || !password->isEqual_(repeated)) {
        std::fprintf(stderr, "vantor-admin: %s: The passwords must be non-empty and equal.\n",
                     command);
        return nullptr;
    }
    return password;
}

namespace {

std::string text(NSObject* o) {
    return o ? static_cast<NSString*>(o->description())->UTF8String() : "";
}

int show(const char* path, bool showPassword, bool json) {
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
    if (json) {
        JsonObject shown;
        shown.add("UserID", text(key->objectForKey_("UserID"_ns)));
        shown.add("UniqueID", unique ? text(unique).c_str() : nullptr);
        if (admin) {
            shown.addBool("Admin", text(admin) != "0");
        } else {
            shown.addJSON("Admin", "null");
        }
        if (showPassword) shown.add("Password", text(key->objectForKey_("Password"_ns)));
        std::printf("%s\n", shown.text().c_str());
        return 0;
    }
    std::printf("UserID: %s\n", text(key->objectForKey_("UserID"_ns)).c_str());
    std::printf("UniqueID: %s\n", unique ? text(unique).c_str() : "(none)");
    std::printf("Admin: %s\n", !admin ? "(none)" : text(admin) == "0" ? "false" : "true");
    if (showPassword)
        std::printf("Password: %s\n", text(key->objectForKey_("Password"_ns)).c_str());
    return 0;
}

int make(const char* user, bool passwordFromStdin, bool json) {
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
        std::fprintf(
                stderr,
                "vantor-admin: key make: no row of the user sheet has the id or user id '%s'\n",
                user);
    } else {
        auto value = [&](const char* field) {
            return static_cast<NSString*>(m->valueInRow_column_(
                    static_cast<uint32_t>(row), NSString::stringWithUTF8String_(field)));
        };
        NSString* password = newPassword("key make", passwordFromStdin);
        if (password) {
            NSString* fullId = NSString::stringWithFormat_(
                    "%s %s/%s/%s", text(value("firstName")).c_str(),
                    text(value("lastName")).c_str(), text(value("orgUnit")).c_str(),
                    text(value("company")).c_str());
            NSString* fileName = VTUserKey::fileNameForFirstName_lastName_orgUnit_company_(
                    value("firstName"), value("lastName"), value("orgUnit"), value("company"));
            NSMutableDictionary* key = NSMutableDictionary::dictionary();
            key->setObject_forKey_(fullId, "UserID"_ns);
            key->setObject_forKey_(value("__recordId"), "UniqueID"_ns);
            key->setObject_forKey_(password, "Password"_ns);
            key->setObject_forKey_(NSNumber::numberWithBool_(false), "Admin"_ns);
            if (VTUserKey::writeUserKey_toFile_(key, fileName)) {
                if (json) {
                    std::printf("%s\n", JsonObject()
                                                .add("key", fileName->UTF8String())
                                                .add("UserID", fullId->UTF8String())
                                                .add("UniqueID", text(value("__recordId")))
                                                .text()
                                                .c_str());
                } else {
                    std::printf("%s\n", fileName->UTF8String());
                }
                status = 0;
            } else {
                std::fprintf(stderr, "vantor-admin: key make: cannot write %s\n",
                             fileName->UTF8String());
            }
        }
    }
    {
        LogToStderr redirect;
        w->release();
    }
    return status;
}

}  // namespace

int runKey(int argc, char** argv) {
    Arguments args;
    if (!parseArguments(
                "key", argc, argv,
                {{"--show-password", false}, {"--json", false}, {"--password-stdin", false}},
                &args)) {
        return 2;
    }
    const std::vector<std::string>& w = args.words;
    if (w.empty()) return wrongUsage("key", "missing verb (show, make)", "");
    if (w[0] != "show" && w[0] != "make")
        return wrongUsage("key", "unknown verb (show, make)", w[0]);
    bool showing = w[0] == "show";
    if (w.size() < 2)
        return wrongUsage("key", showing ? "missing FILE after" : "missing USER after", w[0]);
    if (w.size() > 2) return wrongUsage("key", "unexpected argument", w[2]);
    if (!showing && args.has("--show-password")) {
        return wrongUsage("key", "this option belongs to key show", "--show-password");
    }
    if (showing && args.has("--password-stdin")) {
        return wrongUsage("key", "this option belongs to key make", "--password-stdin");
    }
    if (showing) return show(w[1].c_str(), args.has("--show-password"), args.has("--json"));
    return make(w[1].c_str(), args.has("--password-stdin"), args.has("--json"));
}

}  // namespace admin

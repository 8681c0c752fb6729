// key show FILE [--show-password] [--json] | key make USER [--password-stdin] [--json]
// | key anchor FILE
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
//
// In a secure installation (anchor.txt, see app/VTClient.h) make needs the
// login of the administrator whose key is the anchor: the new key is a
// secure one (VTUserKey.h), its public halves signed with the
// administrator's key, and they go into the user's row, which replicates.
//
// anchor: for the administrator who logs in (one who may update the user
// sheet). A plain key is made secure first, its own signing key the anchor,
// and its public halves go into the administrator's row; then FILE gets
// the anchor, one line of hex. FILE goes to the relay (--anchor) and, as
// anchor.txt, into every installation of the organisation.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "Commands.h"
#include "Json.h"
#include "Session.h"
#include "app/VTClient.h"
#include "app/VTUserKey.h"
#include "app/VTWorkspace.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "foundation/platform/Platform.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "sync/LXCrypto.h"
#include "sync/LXSecure.h"

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
    if (showPassword) {
        std::printf("Password: %s\n", VTUserKey::isSecureKey_(key)
                                              ? "(not kept: a secure key holds only its hash)"
                                              : text(key->objectForKey_("Password"_ns)).c_str());
    }
    if (VTUserKey::isSecureKey_(key))
        std::printf("SigningKey: %s\n", text(key->objectForKey_("SigningKey"_ns)).c_str());
    return 0;
}

// The row of the user sheet whose __recordId or user id is `user`; -1
// when none.
int32_t userRow(VTMatrix* m, const std::string& wanted) {
    for (uint32_t i = 0, n = m ? m->numberOfRows() : 0; i < n; i++) {
        std::string id = text(m->valueInRow_column_(i, "__recordId"_ns));
        std::string userId = text(m->valueInRow_column_(i, "firstName"_ns)) + " " +
                             text(m->valueInRow_column_(i, "lastName"_ns)) + "/" +
                             text(m->valueInRow_column_(i, "orgUnit"_ns)) + "/" +
                             text(m->valueInRow_column_(i, "company"_ns));
        if (id == wanted || userId == wanted) return static_cast<int32_t>(i);
    }
    return -1;
}

// Writes the certificate's public halves into the row, with a commit that
// replicates them. False, with a message, when the commit failed.
bool storeCertificate(const char* command, const LXUserCertificate& certificate, VTMatrix* users,
                      uint32_t row) {
    users->beginTransaction();
    VTUserKey::writeCertificate(certificate, users, row);
    if (users->commitTransaction_(true)) return true;
    std::fprintf(stderr, "vantor-admin: %s: the user's row could not be stored\n", command);
    return false;
}

int make(const char* user, bool passwordFromStdin, bool json) {
    bool secure = vtFileExists(kVTAnchorFile);
    // In a secure installation only the anchor's administrator makes keys.
    // A session sends standard output to standard error while it lives:
    // only the secure road opens one.
    std::unique_ptr<Session> session;
    VTWorkspace* w = nullptr;
    if (secure) {
        session.reset(new Session);
        if (!session->open("key make")) return 1;
        const LXSecureIdentity& admin = session->identity();
        if (!admin.isComplete() || admin.certificate.signPublic != admin.anchor) {
            std::fprintf(stderr,
                         "vantor-admin: key make: in a secure installation only the "
                         "administrator whose key is the anchor makes keys\n");
            return 1;
        }
        w = session->workspace();
    } else {
        w = newInstallationWorkspace("key make");
        if (!w) return 1;
    }
    VTSheet* users = w->sheetNamed_("user"_ns);
    VTMatrix* m = users ? users->matrix() : nullptr;
    int32_t row = userRow(m, user);
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
            LXSecureIdentity made;
            bool keyed = !secure || VTUserKey::makeSecure(key, password->UTF8String(),
                                                          &session->identity(), &made);
            if (!keyed) {
                std::fprintf(stderr, "vantor-admin: key make: the key pairs could not be made\n");
            } else if (VTUserKey::writeUserKey_toFile_(key, fileName) &&
                       (!secure || storeCertificate("key make", made.certificate, m,
                                                    static_cast<uint32_t>(row)))) {
                // A session sends the log to standard error and results
                // through results().
                FILE* out = secure ? session->results() : stdout;
                if (json) {
                    std::fprintf(out, "%s\n",
                                 JsonObject()
                                         .add("key", fileName->UTF8String())
                                         .add("UserID", fullId->UTF8String())
                                         .add("UniqueID", text(value("__recordId")))
                                         .text()
                                         .c_str());
                } else {
                    std::fprintf(out, "%s\n", fileName->UTF8String());
                }
                status = 0;
            } else {
                std::fprintf(stderr, "vantor-admin: key make: cannot write %s\n",
                             fileName->UTF8String());
            }
        }
    }
    if (!secure) {
        LogToStderr redirect;
        w->release();
    }
    return status;
}

int anchor(const char* file) {
    if (!LXCrypto::available()) {
        std::fprintf(stderr, "vantor-admin: key anchor: this build has no secure protocol\n");
        return 1;
    }
    Session session;
    if (!session.open("key anchor")) return 1;
    VTWorkspace* w = session.workspace();
    VTSheet* users = w->sheetNamed_("user"_ns);
    if (!users || !w->currentUserCanUpdate_(users)) {
        std::fprintf(stderr,
                     "vantor-admin: key anchor: only an administrator (update in the user "
                     "sheet) makes the anchor\n");
        return 1;
    }
    LXSecureIdentity identity = session.identity();
    if (!identity.isComplete()) {
        NSString* path = VTUserKey::discoveredPathInDirectory_("userkey"_ns);
        NSMutableDictionary* key = path ? VTUserKey::userKeyWithContentsOfFile_(path) : nullptr;
        NSObject* password = key ? key->objectForKey_("Password"_ns) : nullptr;
        // The login compared it with the password given: it locks the new
        // secret keys.
        if (!password || !VTUserKey::makeSecure(
                                 key, static_cast<NSString*>(password->description())->UTF8String(),
                                 nullptr, &identity)) {
            std::fprintf(stderr, "vantor-admin: key anchor: the key pairs could not be made\n");
            return 1;
        }
        int32_t row = w->currentUserRow();
        if (row < 0 || !VTUserKey::writeUserKey_toFile_(key, path) ||
            !storeCertificate("key anchor", identity.certificate, users->matrix(),
                              static_cast<uint32_t>(row))) {
            std::fprintf(stderr, "vantor-admin: key anchor: cannot write %s\n", path->UTF8String());
            return 1;
        }
    } else if (identity.certificate.signPublic != identity.anchor) {
        std::fprintf(stderr,
                     "vantor-admin: key anchor: this key was made by the anchor's "
                     "administrator; it is not the anchor\n");
        return 1;
    }
    if (!LXSecure::writeAnchorFile(file, identity.anchor)) {
        std::fprintf(stderr, "vantor-admin: key anchor: cannot write %s\n", file);
        return 1;
    }
    std::fprintf(session.results(), "%s\n", LXCrypto::toHex(identity.anchor).c_str());
    return 0;
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
    if (w.empty()) return wrongUsage("key", "missing verb (show, make, anchor)", "");
    if (w[0] != "show" && w[0] != "make" && w[0] != "anchor")
        return wrongUsage("key", "unknown verb (show, make, anchor)", w[0]);
    bool showing = w[0] == "show";
    if (w.size() < 2)
        return wrongUsage("key", w[0] == "make" ? "missing USER after" : "missing FILE after",
                          w[0]);
    if (w.size() > 2) return wrongUsage("key", "unexpected argument", w[2]);
    if (w[0] == "anchor") {
        if (args.has("--show-password") || args.has("--password-stdin") || args.has("--json"))
            return wrongUsage("key", "anchor takes no options", "");
        return anchor(w[1].c_str());
    }
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

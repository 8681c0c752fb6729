#include "Session.h"

#include <cstdlib>
#include <string>

#include "app/VTClient.h"
#include "app/VTLocalization.h"
#include "app/VTUserKey.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "foundation/platform/Platform.h"
#include "sheets/VTSheet.h"
#include "sync/LXTransceiver.h"

namespace admin {

namespace {

// The password the user gives: VANTOR_PASSWORD, else a line typed on the
// terminal. False when neither is there.
bool givenPassword(std::string* password) {
    if (const char* value = std::getenv("VANTOR_PASSWORD")) {
        *password = value;
        return true;
    }
    FILE* terminal = std::fopen("/dev/tty", "r+");
    if (!terminal) return false;
    *password = askHidden(terminal, "Password: ");
    std::fclose(terminal);
    return true;
}

}  // namespace

bool Session::open(const char* command) {
    _command = command;
    // Log lines as they happen, for an operator (or a test) following a
    // long sync.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    VTInstallLocalizedStrings(VTLocalization::localization()->localizedStrings());
    std::string holder;
    VTLockFileState lock = VTTakeLock(&holder);
    if (lock == VTLockFileState::Running) {
        std::fprintf(stderr, "vantor-admin: %s: %s (%s exists%s%s)\n", command,
                     VTLocalizedString("alreadyrunning"_ns)->UTF8String(), kVTLockFile,
                     holder.empty() ? "" : ", made by process ", holder.c_str());
        return false;
    }
    if (lock == VTLockFileState::Stale) {
        std::fprintf(stderr, "vantor-admin: %s: %s\n", command,
                     VTStaleLockMessage(holder)->UTF8String());
        return false;
    }
    if (lock == VTLockFileState::Failed) {
        std::fprintf(stderr, "vantor-admin: %s: cannot create %s here\n", command, kVTLockFile);
        return false;
    }
    _locked = true;

    if (!checkDataFolder(command)) return false;
    VTSeedDataDirectory();
    NSMutableDictionary* key = VTUserKey::discoverInDirectory_("userkey"_ns);
    if (!key) {
        std::fprintf(stderr, "vantor-admin: %s: %s (userkey/)\n", command,
                     VTLocalizedString("novukfound"_ns)->UTF8String());
        return false;
    }
    std::string password;
    if (!givenPassword(&password)) {
        std::fprintf(stderr,
                     "vantor-admin: %s: no password: set VANTOR_PASSWORD or run on a terminal\n",
                     command);
        return false;
    }
    // A secure key's secret keys open only with its password (the lock is
    // authenticated), so unlocking them is the password check: one Argon2id
    // derivation per login instead of a second one for the stored hash.
    bool matches = VTUserKey::isSecureKey_(key)
                           ? VTUserKey::unlock(key, password, &_identity)
                           : VTUserKey::key_matchesPassword_(
                                     key, NSString::stringWithUTF8String_(password.c_str()));
    if (!matches) {
        std::fprintf(stderr, "vantor-admin: %s: wrong password for the key in userkey/\n", command);
        return false;
    }
    // anchor.txt switches the installation to the secure protocol: then
    // only a secure key logs in, with its secret keys unlocked above.
    std::string anchor;
    bool secure = vtFileExists(kVTAnchorFile);
    if (secure && !LXSecure::readAnchorFile(kVTAnchorFile, &anchor)) {
        std::fprintf(stderr, "vantor-admin: %s: %s holds no anchor\n", command, kVTAnchorFile);
        return false;
    }
    if (secure && (!_identity.isComplete() || _identity.anchor != anchor)) {
        std::fprintf(stderr,
                     "vantor-admin: %s: this installation is secure (%s): the key in userkey/ "
                     "must be one made for it (key make, key anchor)\n",
                     command, kVTAnchorFile);
        return false;
    }
    _workspace = VTWorkspace::workspaceWithFile_userInfo_("conf/cro.vtr"_ns, key);
    if (!_workspace) {
        // No configuration, a damaged user store, or a first user's row
        // that could not be stored: the workspace's log lines above say
        // which.
        std::fprintf(stderr,
                     "vantor-admin: %s: the installation here can't be opened (see above)\n",
                     command);
        return false;
    }
    _workspace->retain();
    _host = NSRetain(_workspace->joinTransceiver());
    if (secure) LXTransceiver::defaultTransceiver()->setSecureIdentity(_identity);
    return true;
}

Session::~Session() {
    NSRelease(_host);
    NSRelease(_workspace);
    if (_locked) VTReleaseLock();
}

VTSheet* Session::sheetNamed(const char* name) {
    VTSheet* sheet = _workspace->sheetNamed_(NSString::stringWithUTF8String_(name));
    if (!sheet) std::fprintf(stderr, "vantor-admin: %s: no sheet named '%s'\n", _command, name);
    return sheet;
}

}  // namespace admin

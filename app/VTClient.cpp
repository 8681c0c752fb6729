#include "app/VTClient.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "app/VTAppDelegate.h"
#include "app/VTLocalization.h"
#include "app/VTMainWindow.h"
#include "app/VTUserKey.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "foundation/platform/Platform.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "toolkit/NSAlert.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSNative.h"

namespace {

void* sInstanceHandle = nullptr;

bool isContainerFileName(const std::string& name) {
    if (name.size() <= 5) return false;
    std::string tail = name.substr(name.size() - 4);
    return tail == ".vci" || tail == ".vcd";
}

void showAlert(const char* titleKey, const char* textKey) {
    NSAlert* alert = NSAlert::
            alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                    VTLocalizedString(NSString::stringWithUTF8String_(titleKey)), "OK"_ns, nullptr,
                    nullptr, VTLocalizedString(NSString::stringWithUTF8String_(textKey)));
    alert->runModal();
}

// The content of the lock file this process makes.
std::string lockContent() {
    return std::to_string(vtCurrentProcessId()) + " " + vtProcessIdKind() + "\n";
}

}  // namespace

VTLockFileState VTTakeLock(std::string* holder) {
    std::string content = lockContent();
    int made = vtCreateFileExclusive(kVTLockFile, content);
    if (made == kVTFileCreated) {
        vtRemoveFileAtEnd(kVTLockFile, content);
        return VTLockFileState::Taken;
    }
    if (made != kVTFileExists) return VTLockFileState::Failed;
    // Whose is it? "<id> <kind>": an id of this platform's kind can be
    // looked up; anything else (another kind, a file of some older
    // program) counts as held, since nothing here can tell otherwise.
    // The winner of a race writes its line just after making the file: a
    // line without its newline is not complete yet, so it is read again
    // for a moment (a process that died in between leaves it incomplete).
    std::string text;
    for (int attempt = 0; attempt < 20; attempt++) {
        text.clear();
        if (FILE* file = std::fopen(kVTLockFile, "rb")) {
            char buffer[128];
            size_t n = std::fread(buffer, 1, sizeof buffer, file);
            std::fclose(file);
            text.assign(buffer, n);
        }
        if (text.find('\n') != std::string::npos) break;
        vtSleepMilliseconds(50);
    }
    size_t digits = text.find_first_not_of("0123456789");
    std::string id = text.substr(0, digits);
    std::string kind =
            digits == std::string::npos || text[digits] != ' '
                    ? std::string()
                    : text.substr(digits + 1, text.find_first_of("\r\n", digits + 1) - digits - 1);
    if (id.empty() || id.size() > 10) id.clear();
    if (holder) *holder = id;
    if (!id.empty() && kind == vtProcessIdKind() && !vtProcessIsRunning(std::stoll(id)))
        return VTLockFileState::Stale;
    return VTLockFileState::Running;
}

void VTReleaseLock() { vtRemoveFileAtEndNow(); }

NSString* VTStaleLockMessage(const std::string& holder) {
    return NSString::stringWithFormat_(VTLocalizedString("stalelock"_ns), holder.c_str());
}

void VTSeedDataDirectory() {
    if (vtFileExists("data/user.vci")) return;
    std::vector<std::string> names;
    if (!vtListDirectory("data/init", &names)) return;
    for (const std::string& name : names) {
        if (!isContainerFileName(name)) continue;
        std::string from = "data/init/" + name;
        std::string to = "data/" + name;
        vtCopyFileNoOverwrite(from.c_str(), to.c_str());
    }
}

namespace {

// The lock of a running client, removed on every way out of the start-up
// and of the message loop that follows it.
class HeldLock {
public:
    HeldLock() = default;
    ~HeldLock() { VTReleaseLock(); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;
};

// Refuses a start for the lock, with the alert its state calls for;
// answers whether this process now holds the lock.
bool takeLockOrRefuse() {
    // One client per working directory. The client takes the lock itself,
    // so that a second start in the same directory is refused as the
    // message says. A client that was killed leaves the file behind, and
    // the next start says so and how to remove it.
    std::string holder;
    switch (VTTakeLock(&holder)) {
        case VTLockFileState::Taken:
            return true;
        case VTLockFileState::Running:
            showAlert("error", "alreadyrunning");
            return false;
        case VTLockFileState::Stale:
            NSAlert::
                    alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                            VTLocalizedString("error"_ns), "OK"_ns, nullptr, nullptr,
                            VTStaleLockMessage(holder))
                            ->runModal();
            return false;
        case VTLockFileState::Failed:
            // An operator's matter, like a missing configuration: English.
            NSAlert::
                    alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                            VTLocalizedString("error"_ns), "OK"_ns, nullptr, nullptr,
                            "vantor.lock can't be created in the working directory."_ns)
                            ->runModal();
            return false;
    }
    return false;
}

}  // namespace

int VTClientMain(void* instanceHandle) {
    // Kept for window classes and icons.
    sInstanceHandle = instanceHandle;
    NSInitCommonControls();

    // The pool that lives until the end of the process.
    NSAutoreleasePoolScope pool;
    // The shared application object, then the localized table: every
    // message goes through it from here on.
    NSApplication::sharedApplication();
    VTInstallLocalizedStrings(VTLocalization::localization()->localizedStrings());

    if (!takeLockOrRefuse()) return 1;
    HeldLock lock;

    // First-run seeding of data/ from data/init.
    VTSeedDataDirectory();

    // The user key; the dictionary lives to the end of the process.
    Ref<NSMutableDictionary> userKey = retainRef(VTUserKey::discoverInDirectory_("userkey"_ns));
    if (!userKey) {
        showAlert("error", "novukfound");
        return 1;
    }

    // The workspace: configuration, sheets and their records, and the
    // first user row on an empty user sheet.
    Ref<VTWorkspace> workspace =
            retainRef(VTWorkspace::workspaceWithFile_userInfo_("conf/cro.vtr"_ns, userKey));
    if (!workspace) {
        // The workspace has logged and shown why (no data folder, a damaged
        // user store, no configuration).
        return 1;
    }
    NSArray* sheets = workspace->listOfSheets();
    LOG("workspace: %u sheets", sheets->count());
    for (uint32_t i = 0, n = sheets->count(); i < n; i++) {
        auto* sheet = static_cast<VTSheet*>(sheets->objectAtIndex_(i));
        LOG("sheet %s (%s): %u records", sheet->name()->UTF8String(), sheet->title()->UTF8String(),
            sheet->matrix()->numberOfRows());
    }

    // The login window, shown, and the main window, hidden; then the
    // message loop until the main window pointer's window is closed or
    // File > Quit ends the process.
    VTAssembleWindows(workspace);
    NSApplication* application = NSApplication::sharedApplication();
    application->setDelegate_(NSAutorelease(VTAppDelegate::alloc()->init()));
    application->run();
    return 0;
}

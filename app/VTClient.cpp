#include "app/VTClient.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "app/VTLocalization.h"
#include "foundation/Foundation.h"
#include "foundation/platform/Platform.h"
#include "toolkit/NSAlert.h"
#include "toolkit/NSApplication.h"

namespace {

void *sInstanceHandle = nullptr;

bool isContainerFileName(const std::string& name) {
    if (name.size() <= 5) return false;
    std::string tail = name.substr(name.size() - 4);
    return tail == ".vci" || tail == ".vcd";
}

void showAlert(const char* titleKey, const char* textKey) {
    NSAlert* alert =
        NSAlert::alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
            VTLocalizedString(NSString::stringWithUTF8String_(titleKey)), "OK"_ns, nullptr, nullptr,
            VTLocalizedString(NSString::stringWithUTF8String_(textKey)));
    alert->runModal();
}

}  // namespace

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

int VTClientMain(void* instanceHandle) {
    // Kept for window classes and icons.
    sInstanceHandle = instanceHandle;
    vtInitCommonControls();

    // 1. The pool that lives until the end of the process.
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    // 2. The shared application object.
    NSApplication::sharedApplication();
    // 3. The localized table; every message goes through it from here on.
    VTInstallLocalizedStrings(VTLocalization::localization()->localizedStrings());

    // 4. One client per working directory.
    if (vtFileExists(kVTLockFile)) {
        showAlert("error", "alreadyrunning");
        return 1;
    }
    // The client takes the lock itself, so that a second start in the same
    // directory is refused as the message says; both ends of the process
    // remove it (the application delegate, and the end of this function).
    // A client that was killed leaves the file behind: the operator removes
    // it, as the README says.
    if (FILE* lock = std::fopen(kVTLockFile, "w")) std::fclose(lock);

    // 5. First-run seeding of data/ from data/init.
    VTSeedDataDirectory();

    LOG("start-up ends after seeding data/: user keys, the workspace and the windows are not built yet");
    vtRemoveFile(kVTLockFile);
    pool->release();
    return 0;
}

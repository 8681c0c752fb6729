// Pictures of the sheet window, for looking at under a real display (the
// images of docs/editing.md are taken from it). Not a test and not
// installed. Run it in an installation made by scripts/new-workdir.sh,
// after one vantor-admin command has made the first admin's row:
//
//   wine build/tests/app/sheet-gallery.exe.so company|validation|visit
//
// company: the companies' sheet with a selected record; validation: the
// alert of a Save with an empty name; visit: the demo's designed form. It
// runs until its window is closed.
#include <cstring>

#include "app/VTLocalization.h"
#include "app/VTUserKey.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "sheets/VTSheet.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSControl.h"
#include "toolkit/NSPopUpButton.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSWindow.h"

int main(int argc, char** argv) {
    NSAutoreleasePoolScope pool;
    NSInitCommonControls();
    NSApplication* app = NSApplication::sharedApplication();
    VTInstallLocalizedStrings(VTLocalization::localization()->localizedStrings());
    const char* mode = argc > 1 ? argv[1] : "company";
    NSMutableDictionary* key = VTUserKey::discoverInDirectory_("userkey"_ns);
    if (!key) return 1;
    Ref<VTWorkspace> workspace =
            adoptRef(VTWorkspace::alloc()->initWithFile_userInfo_("conf/cro.vtr"_ns, key));
    if (!workspace) return 1;
    VTSheet* sheet =
            workspace->sheetNamed_(std::strcmp(mode, "visit") == 0 ? "visit"_ns : "company"_ns);
    if (!sheet) return 1;
    sheet->show();
    if (std::strcmp(mode, "company") == 0) {
        NSTableView* table = sheet->sheetTableView();
        table->setSelectedRow_(1);
        NSNotificationCenter::defaultCenter()->postNotificationName_object_(
                "NSTableViewSelectionDidChangeNotification"_ns, table);
        // With the focus the list shows its selection in full colour.
        static_cast<NSWindow*>(sheet->window())->makeFirstResponder_(table);
    } else if (std::strcmp(mode, "validation") == 0) {
        sheet->newAction();
        static_cast<NSControl*>(sheet->fieldControls()->objectForKey_("city"_ns))
                ->setStringValue_("Linz"_ns);
        sheet->save();
    } else {
        static_cast<NSControl*>(sheet->fieldControls()->objectForKey_("subject"_ns))
                ->setStringValue_("Kick-off of the ledger migration"_ns);
        static_cast<NSPopUpButton*>(sheet->fieldControls()->objectForKey_("company"_ns))
                ->selectItemAtIndex_(2);
        NSMutableIndexSet* people = NSMutableIndexSet::indexSet();
        people->addIndex_(0);
        people->addIndex_(2);
        static_cast<NSTableView*>(sheet->fieldControls()->objectForKey_("people"_ns))
                ->selectRowIndexes_byExtendingSelection_(people, false);
    }
    app->run();
    return 0;
}

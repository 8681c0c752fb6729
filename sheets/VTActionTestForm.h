// Designed forms become sheets. A form is a record of the sheet `form`, its
// fields are records of `formfield`; render:: turns them into the very
// list a configuration file would hold for a sheet and makes the sheet
// from it, so a designed form has its own storage, rights and replication
// like any other sheet. The workspace renders the released forms at each
// start; perform::, the action of a button of the `form` sheet, shows one
// form at once in a window of its own, whatever its status.
#pragma once

#include "foundation/NSObject.h"

class NSArray;
class NSDictionary;
class NSNumber;
class VTMatrix;
class VTSheet;

class VTActionTestForm : public NSObject {
    NS_DECLARE_CLASS(VTActionTestForm, NSObject)

public:
    // A new sheet of the form in the row of the `form` matrix, owned by the
    // caller and entered nowhere; nil (logged) when the definition makes no
    // sheet.
    VTSheet* render__(NSNumber* row, VTMatrix* forms);
    // Renders every form that has no sheet yet (hidden, so that references
    // between forms work), then the form of the row anew, enters it in the
    // workspace's sheets and shows it in its own window.
    void perform__(NSNumber* row, VTMatrix* forms);

    // The definition list of the form in the row, built from the present
    // records.
    static NSArray* definitionOfForm(NSDictionary* form, VTMatrix* forms);

protected:
    ~VTActionTestForm() override = default;
};

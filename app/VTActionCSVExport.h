// The action that writes every record of a sheet to a CSV file: a small
// window asks for the file name, and Export writes export/<name> (".csv"
// added to a name without a dot) in the shared CSV format, then closes the
// window. A name that can't be opened gives the alert "Invalid file name."
// and the window stays for another try. The folder export/ is not made.
#pragma once

#include "foundation/NSString.h"

class NSNumber;
class NSTextField;
class NSWindow;
class VTMatrix;

class VTActionCSVExport : public NSObject {
    NS_DECLARE_CLASS(VTActionCSVExport, NSObject)

public:
    // `row` is not read; `matrix` is the sheet's matrix, not retained.
    // Opens the name window with the focus in the name field.
    void perform__(NSNumber* row, NSObject* matrix);
    // Export: writes the file and closes, or the alert and the window stays.
    void exportData();
    // Close: closes the window and lets go of the name field.
    void close();

    NSWindow* window() { return _window; }
    NSTextField* fileNameEditbox() { return _fileNameEditbox; }

protected:
    ~VTActionCSVExport() override = default;

private:
    Ref<NSWindow> _window;
    Ref<NSTextField> _fileNameEditbox;
    VTMatrix* _matrix = nullptr;
    // Whether the window is open, and the action holds itself.
    bool _open = false;
};

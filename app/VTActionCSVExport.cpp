#include "app/VTActionCSVExport.h"

#include "app/VTDialogControls.h"
#include "foundation/Foundation.h"
#include "reports/VTCSVFormat.h"
#include "sheets/VTMatrix.h"
#include "toolkit/NSAlert.h"
#include "toolkit/NSWindow.h"

void VTActionCSVExport::perform__(NSNumber*, NSObject* matrixObject) {
    auto* matrix = NSDynamicCast<VTMatrix>(matrixObject);
    if (!matrix) return;
    // The buttons don't retain their target: the action keeps itself
    // alive while its window is open.
    if (!_open) retain();
    _open = true;
    _window = NSMake<NSWindow>(&NSWindow::initWithContentRect_styleMask_backing_defer_,
                               NSMakeRect(200, 200, 300, 150), 1u, 2, true);
    _window->setTitle_("Enter the file name"_ns);
    NSView* content = _window->contentView();
    const float h = content->bounds().size.height;
    VTAddLabel(content, NSMakeRect(10, h - 30, 100, 20), "File name"_ns);
    _fileNameEditbox =
            NSMake<NSTextField>(&NSTextField::initWithFrame_, NSMakeRect(110, h - 30, 170, 20));
    content->addSubview_(_fileNameEditbox);
    VTAddButton(content, NSMakeRect(10, h - 100, 90, 25), "Export"_ns, this, NS_SEL("exportData"),
                "\r"_ns);
    VTAddButton(content, NSMakeRect(110, h - 100, 90, 25), "Close"_ns, this, NS_SEL("close"),
                "\x1b"_ns);
    _window->makeFirstResponder_(_fileNameEditbox);
    _window->orderFront_(nullptr);
    _matrix = matrix;
}

void VTActionCSVExport::exportData() {
    if (!_open || !_fileNameEditbox) return;
    bool written = false;
    {
        NSAutoreleasePoolScope pool;
        NSString* name = _fileNameEditbox->stringValue();
        NSString* path = VTCSVFormat::exportPath(name ? name : ""_ns);
        LOG("'%s'", path->UTF8String());
        written = VTCSVFormat(_matrix).writeFile(path->UTF8String());
    }
    if (!written) {
        NSAlert::
                alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                        "Error"_ns, nullptr, nullptr, nullptr, "Invalid file name."_ns)
                        ->runModal();
        return;
    }
    // Outside the pool above: close lets go of this action through the
    // caller's pool.
    close();
}

void VTActionCSVExport::close() {
    if (!_open) return;
    _open = false;
    _window->close();
    _fileNameEditbox = nullptr;
    // Not at once: the button that called is still in its message.
    autorelease();
}

NS_CLASS_BEGIN(VTActionCSVExport, NSObject)
    NS_METHOD(perform__)
    NS_METHOD(exportData)
    NS_METHOD(close)
NS_CLASS_END(VTActionCSVExport)

#include "sheets/VTSheetDelegate.h"

#include "foundation/NSNotification.h"
#include "foundation/NSNotificationCenter.h"
#include "sheets/VTSheet.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSWindow.h"

VTSheetDelegate* VTSheetDelegate::initWithSheet_(VTSheet* sheet) {
    NSObject::init();
    _sheet = sheet;
    return this;
}

void VTSheetDelegate::windowDidResize_(NSNotification* note) {
    auto* window = NSDynamicCast<NSWindow>(note ? note->object() : nullptr);
    if (!window || !_sheet) return;
    NSTableView* table = _sheet->sheetTableView();
    if (!table) return;
    // Native pixels from the top left of the content. The content view's
    // bounds keep the height they were made with, so the table's top is a
    // constant: 35 in a sheet's own window.
    _NSRect outer = window->frame();
    int top = static_cast<int>(window->contentView()->bounds().size.height - 610);
    table->moveNativeTo(NSNativeRect{330, top, static_cast<int>(outer.size.width) - 350,
                                     static_cast<int>(outer.size.height) - 80});
    table->relayoutColumns();
}

bool VTSheetDelegate::windowShouldClose_(NSObject*) { return true; }

NS_CLASS_BEGIN(VTSheetDelegate, NSObject)
    NS_METHOD(windowDidResize_)
    NS_METHOD(windowShouldClose_)
    NS_METHOD(windowDidBecomeKey_)
    NS_METHOD(initWithSheet_)
    NS_FIELD(_sheet)
NS_CLASS_END(VTSheetDelegate)

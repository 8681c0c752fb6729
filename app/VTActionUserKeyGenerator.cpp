#include "app/VTActionUserKeyGenerator.h"

#include "app/VTUserKey.h"
#include "foundation/Foundation.h"
#include "sheets/VTMatrix.h"
#include "toolkit/NSAlert.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSWindow.h"

namespace {

// A value of the row as text; a missing column counts as empty.
NSString* textOf(VTMatrix* matrix, uint32_t row, const char* field) {
    NSObject* value = matrix->valueInRow_column_(row, NSString::stringWithUTF8String_(field));
    return value ? static_cast<NSString*>(value->description()) : ""_ns;
}

void addLabel(NSView* view, _NSRect frame, NSString* text) {
    Ref<NSTextField> label = NSMake<NSTextField>(&NSTextField::initWithFrame_, frame);
    label->setEditable_(false);
    label->setBordered_(false);
    label->setStringValue_(text);
    view->addSubview_(label);
}

Ref<NSButton> addButton(NSView* view, _NSRect frame, NSString* title, NSObject* target, SEL action,
                        NSString* key) {
    Ref<NSButton> button = NSMake<NSButton>(&NSButton::initWithFrame_, frame);
    button->setTitle_(title);
    button->setTarget_(target);
    button->setAction_(action);
    button->setBezelStyle_(1);
    button->setKeyEquivalent_(key);
    view->addSubview_(button);
    return button;
}

}  // namespace

void VTActionUserKeyGenerator::perform__(NSNumber* row, NSObject* matrixObject) {
    auto* matrix = NSDynamicCast<VTMatrix>(matrixObject);
    if (!row || !matrix) return;
    int32_t index = row->intValue();
    if (index < 0 || static_cast<uint32_t>(index) >= matrix->numberOfRows()) return;
    uint32_t r = static_cast<uint32_t>(index);
    NSString* first = textOf(matrix, r, "firstName");
    NSString* last = textOf(matrix, r, "lastName");
    NSString* unit = textOf(matrix, r, "orgUnit");
    NSString* company = textOf(matrix, r, "company");
    _uniqueId.set(textOf(matrix, r, "__recordId"));
    _adminType = 0;
    _fullId.set(NSString::stringWithFormat_("%s %s/%s/%s", first->UTF8String(), last->UTF8String(),
                                            unit->UTF8String(), company->UTF8String()));
    _fileName.set(
            VTUserKey::fileNameForFirstName_lastName_orgUnit_company_(first, last, unit, company));

    // The buttons don't retain their target: the action keeps itself
    // alive while its window is open.
    if (!_open) retain();
    _open = true;
    _window = NSMake<NSWindow>(&NSWindow::initWithContentRect_styleMask_backing_defer_,
                               NSMakeRect(200, 200, 300, 150), 1u, 2, true);
    _window->setTitle_("Password for user key"_ns);
    NSView* content = _window->contentView();
    const float h = 115;
    addLabel(content, NSMakeRect(10, h - 30, 100, 20), "Password"_ns);
    addLabel(content, NSMakeRect(10, h - 60, 100, 20), "Password (again)"_ns);
    _passwordField = NSMake<NSSecureTextField>(&NSSecureTextField::initWithFrame_,
                                               NSMakeRect(110, h - 30, 170, 20));
    content->addSubview_(_passwordField);
    _passwordAgainField = NSMake<NSSecureTextField>(&NSSecureTextField::initWithFrame_,
                                                    NSMakeRect(110, h - 60, 170, 20));
    content->addSubview_(_passwordAgainField);
    addButton(content, NSMakeRect(10, h - 100, 90, 25), "Generate"_ns, this, NS_SEL("generate"),
              "\r"_ns);
    addButton(content, NSMakeRect(110, h - 100, 90, 25), "Close"_ns, this, NS_SEL("close"),
              "\x1b"_ns);

    // Tab goes from one field to the other and back.
    _passwordField->setNextResponder_(_passwordAgainField);
    _passwordAgainField->setNextResponder_(_passwordField);
    _window->makeFirstResponder_(_passwordField);
    _window->orderFront_(nullptr);
}

void VTActionUserKeyGenerator::generate() {
    if (!_passwordField || !_fileName) return;
    NSString* password = NSNil(_passwordField->stringValue(), &NSString::trim);
    NSString* again = NSNil(_passwordAgainField->stringValue(), &NSString::trim);
    if (!password || !again || password->length() == 0 || again->length() == 0 ||
        !password->isEqual_(again)) {
        NSAlert::
                alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                        "Error"_ns, "OK"_ns, nullptr, nullptr,
                        "The passwords must be non-empty and equal."_ns)
                        ->runModal();
        return;
    }
    NSMutableDictionary* key = NSMutableDictionary::dictionary();
    key->setObject_forKey_(_fullId, "UserID"_ns);
    key->setObject_forKey_(_uniqueId, "UniqueID"_ns);
    key->setObject_forKey_(password, "Password"_ns);
    key->setObject_forKey_(NSNumber::numberWithBool_(_adminType != 0), "Admin"_ns);
    // A failed write is not reported: the user finds no file.
    VTUserKey::writeUserKey_toFile_(key, _fileName);
    close();
}

void VTActionUserKeyGenerator::close() {
    if (!_open) return;
    _open = false;
    _window->close();
    _fileName = nullptr;
    _fullId = nullptr;
    // Not at once: the button that called is still in its message.
    autorelease();
}

NS_CLASS_BEGIN(VTActionUserKeyGenerator, NSObject)
    NS_METHOD(perform__)
    NS_METHOD(generate)
    NS_METHOD(close)
NS_CLASS_END(VTActionUserKeyGenerator)

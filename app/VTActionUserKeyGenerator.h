// The action that makes a user key for the selected user of the user
// sheet: a small window asks for the password twice, and Generate writes
// "<first>_<last>__<unit>__<company>.vuk" into the working directory (to
// be moved into userkey/ of that user's installation). A key is made anew
// each time and overwrites a file of the same name; no record changes.
#pragma once

#include <cstdint>

#include "foundation/NSString.h"

class NSNumber;
class NSSecureTextField;
class NSWindow;

class VTActionUserKeyGenerator : public NSObject {
    NS_DECLARE_CLASS(VTActionUserKeyGenerator, NSObject)

public:
    // `row`: the user's row in `matrix`, the user sheet's matrix. Opens the
    // password window with the focus in the first field.
    void perform__(NSNumber* row, NSObject* matrix);
    // Generate: both fields trimmed, non-empty and equal, or the alert and
    // the window stays; then the key file is written and the window closed.
    void generate();
    // Close: hides the window and forgets the key being made.
    void close();

    NSString* fullId() { return _fullId; }
    NSString* fileName() { return _fileName; }
    NSWindow* window() { return _window; }
    NSSecureTextField* passwordField() { return _passwordField; }
    NSSecureTextField* passwordAgainField() { return _passwordAgainField; }

protected:
    ~VTActionUserKeyGenerator() override = default;

private:
    Ref<NSString> _fullId;
    Ref<NSString> _uniqueId;
    uint8_t _adminType = 0;
    Ref<NSString> _fileName;
    Ref<NSSecureTextField> _passwordField;
    Ref<NSSecureTextField> _passwordAgainField;
    Ref<NSWindow> _window;
    // Whether the window is open, and the action holds itself.
    bool _open = false;
};

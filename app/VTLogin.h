// The login: the action of the login button. A right password turns the
// waiting client into a working one, once per process; a wrong one only
// beeps and empties the field, as often as it is typed.
#pragma once

#include "foundation/NSObject.h"

class VTLogin : public NSObject {
    NS_DECLARE_CLASS(VTLogin, NSObject)

public:
    // Compares the password field with the key's Password exactly (case
    // and blanks count). Right: hides the field and the button, starts the
    // transceiver and the data server, makes one tab per visible sheet,
    // hides the login window, makes the main window the main window and
    // shows it, and puts the tray icon up.
    void perform();

protected:
    ~VTLogin() override = default;
};

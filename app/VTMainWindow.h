// The windows of the client: the login window, shown at start, and the
// main window with its menu, tab view and hint line, hidden until a right
// password (VTLogin). Both are made once per process, before the message
// loop, and live to its end; the login and the key generator reach them
// here.
#pragma once

#include "foundation/NSArray.h"

class NSButton;
class NSSecureTextField;
class NSTabView;
class NSTextField;
class NSWindow;
class VTLogin;
class VTWorkspace;

struct VTClientWindows {
    // Not retained: the workspace lives to the end of the process.
    VTWorkspace* workspace = nullptr;
    Ref<NSWindow> loginWindow;
    Ref<NSWindow> mainWindow;
    Ref<NSTabView> mainTabView;
    Ref<NSTextField> hintLine;
    // The sheets the user may see, in the workspace's order: one tab each.
    Ref<NSMutableArray> visibleSheets;
    Ref<NSSecureTextField> passwordField;
    Ref<NSButton> loginButton;
    // The login button's target (a control does not retain its target).
    Ref<VTLogin> login;
};

// The windows of this process; empty until VTAssembleWindows.
VTClientWindows& VTWindows();

// Makes both windows, shows the login window (the main window pointer of
// the application until login) and keeps the main window hidden. Asking
// which sheets the user may see is the first comparison of the key's
// identity with the user sheet: a key without a row there ends the process
// in here, after its alert.
void VTAssembleWindows(VTWorkspace* workspace);

// Native menus: menu bars and pop-up menus.
#include <windows.h>

#include "toolkit/win32/Win32Toolkit.h"

void* vtCreateMenu(bool popup) { return popup ? CreatePopupMenu() : CreateMenu(); }

void vtInsertMenuItem(void* menu, uint32_t position, const char16_t* title, uint32_t id,
                      void* submenu) {
    MENUITEMINFOW item = {};
    item.cbSize = sizeof item;
    item.fState = 0;
    item.dwTypeData = const_cast<LPWSTR>(wideOf(title));
    if (submenu) {
        item.fMask = MIIM_STRING | MIIM_SUBMENU | MIIM_STATE;
        item.hSubMenu = static_cast<HMENU>(submenu);
    } else {
        item.fMask = MIIM_STRING | MIIM_ID | MIIM_STATE;
        item.wID = id;
    }
    InsertMenuItemW(static_cast<HMENU>(menu), position, TRUE, &item);
}

void vtDestroyMenu(void* menu) { DestroyMenu(static_cast<HMENU>(menu)); }

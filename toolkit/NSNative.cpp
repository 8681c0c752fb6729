#include "toolkit/NSNative.h"

#include "foundation/NSString.h"

namespace {
const NSNativeToolkit* installed = nullptr;
}

const NSNativeToolkit* NSNative() { return installed; }

void NSSetNativeToolkit(const NSNativeToolkit* toolkit) { installed = toolkit; }

void NSInitCommonControls() {
    if (installed) installed->initCommonControls();
}

void* NSInstanceHandle() { return installed ? installed->instanceHandle() : nullptr; }

const char16_t* NSNativeText(NSString* text) {
    static const uint16_t empty[] = {0};
    return reinterpret_cast<const char16_t*>(text ? text->UTF16String() : empty);
}

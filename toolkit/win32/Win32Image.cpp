// Icons loaded from files.
#include <windows.h>

#include "toolkit/win32/Win32Toolkit.h"

// The path names a file, not a resource.
void* vtLoadIconFile(const char* path) {
    return LoadImageA(nullptr, path, IMAGE_ICON, 0, 0, LR_LOADFROMFILE | LR_DEFAULTSIZE);
}

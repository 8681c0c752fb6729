// Files and directories through the runtime library and the platform
// layer. One shared instance.
#pragma once

#include "NSObject.h"

class NSMutableArray;
class NSMutableData;

class NSFileManager : public NSObject {
    NS_DECLARE_CLASS(NSFileManager, NSObject)

public:
    // Makes the shared instance.
    static void initialize();
    static NSFileManager* defaultManager();
    // Whether stat succeeded: a directory exists too. When isDirectory
    // isn't null and the path exists, it is set to whether it is a
    // directory.
    bool fileExistsAtPath_isDirectory_(NSString* path, bool* isDirectory);
    // The file's bytes, read in chunks of 65536; empty data, with no log
    // line, when the file can't be opened. Autoreleased.
    NSMutableData* contentsAtPath_(NSString* path);
    // The names of the directory's entries in the platform's order, leaving
    // out every name that begins with a point. A directory that can't be
    // opened logs "Couldn't open the directory" and gives an empty array.
    // Autoreleased.
    NSMutableArray* directoryContentsAtPath_(NSString* path);

protected:
    ~NSFileManager() override = default;
};

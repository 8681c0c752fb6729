// A file opened for reading or for writing, as a runtime library stream.
// There are no reading operations; writeData: writes whole data objects.
#pragma once

#include <cstdio>

#include "NSObject.h"

class NSData;

class NSFileHandle : public NSObject {
    NS_DECLARE_CLASS(NSFileHandle, NSObject)

public:
    // Open with "rb" and "wb". A file that can't be opened leaves the
    // handle without a stream: writes and closing then do nothing.
    NSFileHandle* initForReadingAtPath_(NSString* path);
    NSFileHandle* initForWritingAtPath_(NSString* path);
    // Autoreleased.
    static NSFileHandle* fileHandleForReadingAtPath_(NSString* path);
    static NSFileHandle* fileHandleForWritingAtPath_(NSString* path);
    // Writes the whole contents of the data.
    void writeData_(NSData* data);
    void closeFile();
    // Closes the stream if it is still open.
    void dealloc() override;

    // Not an operation of the class: whether a stream is open.
    bool isOpen() const { return _file != nullptr; }

protected:
    ~NSFileHandle() override = default;

private:
    std::FILE* _file = nullptr;
};

#include "NSFileManager.h"

#include <cstdio>
#include <string>
#include <vector>

#include "NSArray.h"
#include "NSData.h"
#include "NSString.h"
#include "platform/Platform.h"

namespace {

NSFileManager* sharedManager = nullptr;

const char* pathText(NSString* path) { return path ? path->UTF8String() : ""; }

}  // namespace

void NSFileManager::initialize() {
    sharedManager = static_cast<NSFileManager*>(NSFileManager::alloc()->init());
}

NSFileManager* NSFileManager::defaultManager() {
    classObject()->ensureInitialized();
    return sharedManager;
}

bool NSFileManager::fileExistsAtPath_isDirectory_(NSString* path, bool* isDirectory) {
    return vtFileStatus(pathText(path), isDirectory);
}

NSMutableData* NSFileManager::contentsAtPath_(NSString* path) {
    NSMutableData* data = NSMutableData::data();
    std::FILE* file = std::fopen(pathText(path), "rb");
    if (!file) return data;
    std::vector<char> chunk(65536);
    size_t n;
    while ((n = std::fread(chunk.data(), 1, chunk.size(), file)) > 0) {
        data->appendBytes_length_(chunk.data(), static_cast<uint32_t>(n));
    }
    std::fclose(file);
    return data;
}

NSMutableArray* NSFileManager::directoryContentsAtPath_(NSString* path) {
    NSMutableArray* names = NSMutableArray::array();
    std::vector<std::string> entries;
    if (!vtListDirectory(pathText(path), &entries)) {
        LOG("Couldn't open the directory");
        return names;
    }
    for (const std::string& entry : entries) {
        if (entry.empty() || entry[0] == '.') continue;
        names->addObject_(NSString::stringWithUTF8String_(entry.c_str()));
    }
    return names;
}

NS_CLASS_BEGIN(NSFileManager, NSObject)
    NS_CLASS_METHOD(defaultManager)
    NS_METHOD(fileExistsAtPath_isDirectory_)
    NS_METHOD(contentsAtPath_)
    NS_METHOD(directoryContentsAtPath_)
NS_CLASS_END(NSFileManager)

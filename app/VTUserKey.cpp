#include "app/VTUserKey.h"

#include <string>
#include <vector>

#include "app/VTLocalization.h"
#include "foundation/NSData.h"
#include "foundation/platform/Platform.h"
#include "storage/LXDataKey.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"

bool VTUserKey::isKeyFileName_(NSString* name) {
    if (!name) return false;
    std::string text = name->UTF8String();
    return text.size() > 5 && text.compare(text.size() - 4, 4, ".vuk") == 0;
}

NSString* VTUserKey::fileNameForFirstName_lastName_orgUnit_company_(NSString* first, NSString* last,
                                                                    NSString* unit,
                                                                    NSString* company) {
    auto text = [](NSString* s) { return s ? s->UTF8String() : ""; };
    return NSString::stringWithFormat_("%s_%s__%s__%s.vuk", text(first), text(last), text(unit),
                                       text(company));
}

NSMutableDictionary* VTUserKey::userKeyWithContentsOfFile_(NSString* path) {
    if (!path || !vtFileExists(path->UTF8String())) return nullptr;
    NSData* data = NSData::dataWithContentsOfFile_(path);
    if (data->length() == 0) return nullptr;
    data->decryptWithKey_(LXDataKey());
    NSUnarchiver* unarchiver = NSUnarchiver::alloc()->initForReadingWithData_(data);
    NSObject* object = unarchiver->decodeObject();
    // A damaged or foreign file decodes to nil, or, by chance, to some other
    // object. Only a dictionary with a string UserID is taken as a key:
    // everything after discovery reads that entry, and anything less would
    // stop the client later with a less telling message.
    NSMutableDictionary* key = nullptr;
    if (object && object->isKindOfClass_(NSDictionary::classObject())) {
        NSObject* userId = static_cast<NSDictionary*>(object)->objectForKey_("UserID"_ns);
        if (userId && userId->isKindOfClass_(NSString::classObject()))
            key = NSAutorelease(static_cast<NSMutableDictionary*>(object->mutableCopy()));
    }
    unarchiver->release();
    return key;
}

NSMutableDictionary* VTUserKey::discoverInDirectory_(NSString* directory) {
    std::vector<std::string> names;
    if (!directory || !vtListDirectory(directory->UTF8String(), &names)) return nullptr;
    for (const std::string& name : names) {
        if (!isKeyFileName_(NSString::stringWithUTF8String_(name.c_str()))) continue;
        NSString* path =
                NSString::stringWithFormat_("%s/%s", directory->UTF8String(), name.c_str());
        NSMutableDictionary* key = userKeyWithContentsOfFile_(path);
        if (key && !key->objectForKey_("UniqueID"_ns))
            LOG("%s", VTLocalizedString("novuk"_ns)->UTF8String());
        return key;
    }
    return nullptr;
}

bool VTUserKey::writeUserKey_toFile_(NSDictionary* key, NSString* path) {
    NSMutableData* data = static_cast<NSMutableData*>(NSMutableData::alloc()->init());
    NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(data);
    archiver->encodeRootObject_(key);
    archiver->release();
    data->encryptWithKey_(LXDataKey());
    bool written = data->writeToFile_atomically_(path, false);
    data->release();
    return written;
}

NS_CLASS_BEGIN(VTUserKey, NSObject)
    NS_CLASS_METHOD(isKeyFileName_)
    NS_CLASS_METHOD(fileNameForFirstName_lastName_orgUnit_company_)
    NS_CLASS_METHOD(userKeyWithContentsOfFile_)
    NS_CLASS_METHOD(discoverInDirectory_)
    NS_CLASS_METHOD(writeUserKey_toFile_)
NS_CLASS_END(VTUserKey)

#include "sync/LXUser.h"

#include <cstring>

#include "foundation/NSArray.h"
#include "foundation/NSCharacterSet.h"
#include "foundation/NSCoder.h"

namespace {

NSString* pieceAt(NSArray* pieces, uint32_t index) {
    if (!pieces || index >= pieces->count()) return ""_ns;
    return static_cast<NSString*>(pieces->objectAtIndex_(index));
}

const char* textOf(NSString* s) { return s ? s->UTF8String() : ""; }

bool sameText(NSString* a, NSString* b) {
    if (!a || !b) return a == b;
    return a->isEqual_(b);
}

}  // namespace

// Identity strings come only from user keys and user records, which always
// have the full shape. For any other shape the parts that are missing stay
// empty rather than nil: the user still describes itself, compares and
// archives without special cases, and a uniqueId of "" matches no record.
// No hyphen: the whole text is the name part and uniqueId is empty.
LXUser* LXUser::initWithString_(NSString* identity) {
    init();
    NSString* text = identity ? identity : ""_ns;
    const char* bytes = text->UTF8String();
    const char* hyphen = std::strchr(bytes, '-');
    NSString* namePart = text;
    _uniqueId.set(""_ns);
    if (hyphen) {
        uint32_t at = static_cast<uint32_t>(hyphen - bytes);
        namePart = NSString::alloc()->initWithBytes_length_(bytes, at);
        NSAutorelease(namePart);
        // Everything behind the first hyphen, further hyphens included.
        _uniqueId.adopt(NSString::alloc()->initWithUTF8String_(hyphen + 1));
    }
    NSArray* parts =
            namePart->splitBy_(NSCharacterSet::characterSetWithCharactersInString_("/"_ns));
    _orgUnit.set(pieceAt(parts, 1));
    _organization.set(pieceAt(parts, 2));
    NSArray* words = pieceAt(parts, 0)->split();
    _firstName.set(pieceAt(words, 0));
    _lastName.set(pieceAt(words, 1));
    return this;
}

LXUser* LXUser::userWithString_(NSString* identity) {
    return NSAutorelease(LXUser::alloc()->initWithString_(identity));
}

NSString* LXUser::description() {
    return NSString::stringWithFormat_("%s %s/%s/%s-%s", textOf(_firstName), textOf(_lastName),
                                       textOf(_orgUnit), textOf(_organization), textOf(_uniqueId));
}

bool LXUser::isEqual_(NSObject* other) {
    if (!other || !other->isKindOfClass_(LXUser::classObject())) return false;
    auto* user = static_cast<LXUser*>(other);
    return sameText(_firstName, user->_firstName) && sameText(_lastName, user->_lastName) &&
           sameText(_orgUnit, user->_orgUnit) && sameText(_organization, user->_organization) &&
           sameText(_uniqueId, user->_uniqueId);
}

// A nil field is written as an empty string: the archive has no encoding
// for nil inside a body, and writing nothing would shift every later field.
void LXUser::encodeWithCoder_(NSCoder* coder) {
    for (NSString* field : {_firstName.get(), _lastName.get(), _orgUnit.get(), _organization.get(),
                            _uniqueId.get()}) {
        coder->encodeObject_(field ? field : ""_ns);
    }
}

// Each field must be a string: the identity comes from disk or from the
// relay, and the description reads the fields as text.
NSObject* LXUser::initWithCoder_(NSCoder* coder) {
    init();
    Ref<NSString>* fields[] = {&_firstName, &_lastName, &_orgUnit, &_organization, &_uniqueId};
    for (Ref<NSString>* field : fields) {
        NSObject* value = coder->decodeObject();
        if (coder->decodingFailed()) {
            release();
            return nullptr;
        }
        if (value && !value->isKindOfClass_(NSString::classObject())) {
            coder->failDecoding("user field that is not a string");
            release();
            return nullptr;
        }
        field->set(static_cast<NSString*>(value));
    }
    return this;
}

NS_CLASS_BEGIN(LXUser, NSObject)
    NS_METHOD(initWithString_)
    NS_CLASS_METHOD(userWithString_)
    NS_METHOD(firstName)
    NS_METHOD(lastName)
    NS_METHOD(orgUnit)
    NS_METHOD(organization)
    NS_METHOD(uniqueId)
    NS_METHOD(description)
    NS_METHOD(isEqual_)
    NS_METHOD(encodeWithCoder_)
    NS_METHOD(initWithCoder_)
    NS_FIELD(_firstName)
    NS_FIELD(_lastName)
    NS_FIELD(_orgUnit)
    NS_FIELD(_organization)
    NS_FIELD(_uniqueId)
NS_CLASS_END(LXUser)

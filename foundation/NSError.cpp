#include "NSError.h"

#include "NSDictionary.h"
#include "NSString.h"

NSError* NSError::initWithDomain_code_userInfo_(NSString* domain, int32_t code,
                                                NSDictionary* userInfo) {
    NSObject::init();
    _domain.set(domain);
    _code = code;
    _userInfo.set(userInfo);
    return this;
}

NSError* NSError::errorWithDomain_code_userInfo_(Class cls, NSString* domain, int32_t code,
                                                 NSDictionary* userInfo) {
    auto* error = static_cast<NSError*>(cls->alloc());
    if (!error) return nullptr;
    return NSAutorelease(error->initWithDomain_code_userInfo_(domain, code, userInfo));
}

NS_CLASS_BEGIN(NSError, NSObject)
    NS_METHOD(initWithDomain_code_userInfo_)
    NS_CLASS_METHOD(errorWithDomain_code_userInfo_)
    NS_METHOD(domain)
    NS_METHOD(code)
    NS_METHOD(userInfo)
    NS_FIELD(_domain)
    NS_FIELD(_code)
    NS_FIELD(_userInfo)
NS_CLASS_END(NSError)

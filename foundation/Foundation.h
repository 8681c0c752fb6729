// The chief header of the object and value foundation.
#pragma once

#include "NSArray.h"
#include "NSAutoreleasePool.h"
#include "NSCharacterSet.h"
#include "NSDictionary.h"
#include "NSException.h"
#include "NSInvocation.h"
#include "NSNull.h"
#include "NSObject.h"
#include "NSScanner.h"
#include "NSString.h"
#include "NSThread.h"
#include "NSValue.h"

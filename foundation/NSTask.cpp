#include "NSTask.h"

#include "NSArray.h"
#include "NSString.h"
#include "platform/Platform.h"

NSTask* NSTask::launchedTaskWithLaunchPath_arguments_(NSString* path, NSArray* arguments) {
    NSString* parameters = NSNil(arguments, &NSArray::componentsJoinedByString_, " "_ns);
    NSTask* task = NSTask::alloc();
    task->_hInstance = vtLaunchProgram(path ? path->UTF8String() : "",
                                       parameters ? parameters->UTF8String() : "", ".");
    return NSAutorelease(task);
}

NS_CLASS_BEGIN(NSTask, NSObject)
    NS_CLASS_METHOD(launchedTaskWithLaunchPath_arguments_)
    NS_METHOD(hInstance)
    NS_FIELD(_hInstance)
NS_CLASS_END(NSTask)

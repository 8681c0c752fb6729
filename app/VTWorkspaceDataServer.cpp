// The workspace's data server thread, started at login.
#include "app/VTWorkspace.h"
#include "foundation/NSThread.h"
#include "reports/VTDataServer.h"

void VTWorkspace::startDataServer() {
    NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("runDataServer"), this, nullptr);
}

void VTWorkspace::runDataServer() { VTDataServer::serveOnPort_(8765); }

NS_EXTEND_CLASS(VTWorkspace, DataServer)
NS_METHOD(startDataServer)
NS_METHOD(runDataServer)
NS_EXTEND_END

// What the GUI tests of the toolkit share: a recorder of target-action
// messages, delegate calls and notifications, and a fixture that makes
// windows and controls. Included by one test file per program.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/Foundation.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSWindow.h"

// Counts target-action messages and delegate calls; answers `answer` to
// the questions a delegate is asked.
class GuiRecorder : public NSObject {
    NS_DECLARE_CLASS(GuiRecorder, NSObject)

public:
    void fired_(NSObject* sender) {
        fired++;
        last = sender;
    }
    int windowShouldClose_(NSObject*) {
        asked++;
        return answer;
    }
    int applicationShouldTerminate_(NSObject*) {
        asked++;
        return answer;
    }
    void windowDidResize_(NSObject* note) { notes.push_back(noteName(note)); }
    void windowDidBecomeKey_(NSObject* note) { notes.push_back(noteName(note)); }

    int fired = 0;
    int asked = 0;
    int answer = 1;
    NSObject* last = nullptr;
    std::vector<std::string> notes;

protected:
    ~GuiRecorder() override = default;

private:
    static std::string noteName(NSObject* note) {
        auto* n = NSDynamicCast<NSNotification>(note);
        return n ? std::string(n->name()->UTF8String()) + " " + n->className()->UTF8String() : "?";
    }
};

NS_CLASS_BEGIN(GuiRecorder, NSObject)
    NS_METHOD(fired_)
    NS_METHOD(windowShouldClose_)
    NS_METHOD(applicationShouldTerminate_)
    NS_METHOD(windowDidResize_)
    NS_METHOD(windowDidBecomeKey_)
NS_CLASS_END(GuiRecorder)

class ToolkitNative : public testing::Test {
protected:
    void SetUp() override {
        NSInitCommonControls();
        NSApplication::sharedApplication();
    }

    // A window of the given outer height; its content is 35 lower.
    static Ref<NSWindow> makeWindow(float height) {
        return adoptRef(NSWindow::alloc()->initWithContentRect_styleMask_backing_defer_(
                NSMakeRect(10, 10, 320, height), 0, 0, false));
    }

    template <class T>
    static Ref<T> make(float x, float y, float width, float height) {
        return adoptRef(
                static_cast<T*>(T::alloc()->initWithFrame_(NSMakeRect(x, y, width, height))));
    }

    static Ref<GuiRecorder> recorder() {
        return adoptRef(static_cast<GuiRecorder*>(GuiRecorder::alloc()->init()));
    }

    NSAutoreleasePoolScope _pool;
};

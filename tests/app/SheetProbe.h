// What the sheet window tests read and do beyond the toolkit's probe (tests/toolkit/NativeProbe.h),
// in plain types; this file is compiled by wineg++, the tests by g++.
#pragma once

#include <string>

int probeListColumns(void* list);
int probeComboSelection(void* combo);
// Chooses an item as a user does: the selection changes and the parent
// hears CBN_SELCHANGE.
void probeComboChoose(void* combo, int index);
// Minimizes the top-level window, and whether it is minimized.
void probeMinimize(void* window);
bool probeMinimized(void* window);
// Sets or (nullptr) removes a variable of the Win32 environment and of the
// C library, whose getenv the platform layer calls.
void probeSetEnvironment(const char* name, const char* value);

// Answers the next message box of this process, from a thread of its own,
// with a key as a user presses it (Enter or Escape), so that a modal alert
// can run for real. probeDialogSeen answers what the box said, "title:
// text", once it is gone; empty if none came within 5 seconds or the key
// did not close it (the box is then closed, so the test goes on).
void probeAnswerNextDialog(unsigned key);
std::string probeDialogSeen();

// Runs fn(arg) on a new Win32 thread, as the client's transceiver thread
// runs; probeThreadDone answers whether it has ended (and then forgets it).
void* probeStartThread(void (*fn)(void*), void* arg);
bool probeThreadDone(void* thread);

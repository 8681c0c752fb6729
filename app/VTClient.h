// The client's start-up, in its fixed order, on the main thread. Every
// path is relative to the working directory, which is the installation.
#pragma once

class NSString;

#include <string>

// Present while a client (or a vantor-admin command) runs in this
// directory. It holds the id of the process that made it and the kind of
// that id, as in "4711 posix" or "260 windows", and a newline.
constexpr const char* kVTLockFile = "vantor.lock";

// Present, holding the organisation's anchor as `vantor-admin key anchor`
// writes it, it switches the installation to the secure protocol: sealed
// and signed deltas, the authenticated relay, rights checked on receipt.
constexpr const char* kVTAnchorFile = "anchor.txt";

// Answers of VTTakeLock.
enum class VTLockFileState {
    Taken,    // this process holds the lock now
    Running,  // another process holds it (or the file names none that can be checked from here)
    Stale,    // the process that made it no longer runs; the file stays until someone removes it
    Failed,   // the file could not be made (no permission, say)
};

// Takes the lock of the working directory: creates vantor.lock in one step
// that fails when it exists, so that of two starts at the same moment one
// wins. The lock is removed again by VTReleaseLock and at every normal end
// of the process, also by exit(), Ctrl-C or a request to terminate. On a
// refusal *holder, when given, is the process id the file names (empty
// when it names none). A stale lock is never taken over: the message says
// how to remove it (VTStaleLockMessage).
VTLockFileState VTTakeLock(std::string* holder);
// Removes the lock this process took; nothing when it holds none, or when
// the file is no longer the one it made.
void VTReleaseLock();
// The localized text for a stale lock left by process `holder`.
NSString* VTStaleLockMessage(const std::string& holder);

// Runs the start-up and answers the process's exit status: 0 after a
// normal end, 1 after a refusal.
int VTClientMain(void* instanceHandle);

// First-run seeding: when data/user.vci is missing, copies every container
// file of data/init (a name of more than 5 characters ending in .vci or
// .vcd) into data/, never over an existing file. Results are not looked at.
void VTSeedDataDirectory();

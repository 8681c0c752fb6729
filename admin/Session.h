// A headless client: the installation in the working directory opened the
// way the client opens it, and logged in as the user of its key. The record
// and sync commands work through it, so that what they do is what the
// client does: the same workspace, matrices, commits and transceiver.
//
// Opening takes these steps, each ending the command with a message when it
// fails:
//   1. the client's lock: refused while vantor.lock exists (a client, or
//      another command, works in this directory); taken until the session
//      ends. A killed command leaves it behind, like a killed client: the
//      operator removes it.
//   2. data/ must be there (a missing folder is reported as missing, and
//      nothing is created); first-run seeding of data/ from data/init;
//   3. the user key in userkey/;
//   4. the password, compared with the key's as the login compares it
//      (exact, no trimming; against the hash of a secure key, whose secret
//      keys it then unlocks): from the environment variable VANTOR_PASSWORD,
//      else asked on the terminal. A wrong one changes nothing. With
//      anchor.txt in the directory only a secure key of that anchor logs in;
//   5. the workspace from conf/cro.vtr (or conf/conf.vtr), including the
//      first-user step of a first-admin key; a damaged user store stops
//      here, before any key file is touched;
//   6. the pool and the user registered with this process's transceiver
//      (with the unlocked keys in secure mode), and the relay host read
//      from transceiver.txt.
// While a session lives, log lines go to standard error; results go to
// results().
#pragma once

#include <cstdio>

#include "Commands.h"
#include "sync/LXSecure.h"

class NSString;
class VTSheet;
class VTWorkspace;

namespace admin {

class Session {
public:
    Session() = default;
    ~Session();
    // False, with a message on standard error, when a step failed.
    bool open(const char* command);
    VTWorkspace* workspace() { return _workspace; }
    // The host of transceiver.txt (empty when the file is missing).
    NSString* relayHost() { return _host; }
    // The sheet of that name, or nil with a message.
    VTSheet* sheetNamed(const char* name);
    FILE* results() { return _log.results(); }
    const char* command() const { return _command; }
    // The unlocked identity of a secure key (isComplete() false for a plain
    // key).
    const LXSecureIdentity& identity() const { return _identity; }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

private:
    LogToStderr _log;
    const char* _command = "";
    bool _locked = false;
    VTWorkspace* _workspace = nullptr;
    NSString* _host = nullptr;
    LXSecureIdentity _identity;
};

}  // namespace admin

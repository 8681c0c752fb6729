// The client's start-up, in its fixed order, on the main thread. Every
// path is relative to the working directory, which is the installation.
#pragma once

// Present while a client runs in this directory.
constexpr const char* kVTLockFile = "vantor.lock";

// Runs the start-up and answers the process's exit status: 0 after a
// normal end, 1 after a refusal.
int VTClientMain(void* instanceHandle);

// First-run seeding: when data/user.vci is missing, copies every container
// file of data/init (a name of more than 5 characters ending in .vci or
// .vcd) into data/, never over an existing file. Results are not looked at.
void VTSeedDataDirectory();

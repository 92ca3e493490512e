#pragma once

#include <functional>
#include <string>

// Hooks into the file-system calls of the code under test. Each hook runs just
// before the real call, with the directory descriptor and name it is about to
// use; a hook is never re-entered by the calls it makes itself. Reset them all
// with clearHooks() (the fixture does this after each test).
namespace hooks {

using Hook = std::function<void(int dirFD, const std::string& name)>;

extern Hook beforeFstatat;
extern Hook beforeOpenat;
extern Hook beforeUnlinkat;

// Decides, just before the real call, whether it fails instead: a non-zero
// answer is the errno the call then fails with, without being made. statx()
// is asked with the descriptor it examines (its name is empty then).
using Fault = std::function<int(int dirFD, const std::string& name)>;

extern Fault failOpenat;
extern Fault failStatx;

// When set, any open(), openat() or lstat() writes "touched the file system"
// to stderr and exits: for proving that a trapped call touched nothing.
extern bool forbidFileSystem;

void clearHooks();

}  // namespace hooks

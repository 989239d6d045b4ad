#pragma once

#include <windows.h>

namespace vela::test {

// Handles that the runtime of the mingw build and the test framework open on their own and keep as
// long as the objects they serve live, so that handle counts can leave them out:
//  - the threads library gives a mutex an event the first time a thread has to wait for it, and a
//    condition variable two semaphores the first time it is used; both go with their object, and
//    the first exception of the process brings the unwinder's for good;
//  - the test framework opens a handle to every thread that first uses its per-thread state (a
//    SCOPED_TRACE), for as long as that thread lives.
// The simulator's mutexes and condition variables live through a whole test and are first
// contended or used at random moments (the test thread reading the printer's state while the
// printer's thread ticks, the first disconnect), so such handles appear between two counts without
// anything having leaked. Only those two call CreateEventA, CreateSemaphoreA and OpenThread in this
// program (the library and the simulator use the wide functions, no semaphores, and never open a
// thread): the calls go through wrappers that remember the handles until CloseHandle closes them.
bool IsRuntimeHandle(HANDLE handle);

} // namespace vela::test

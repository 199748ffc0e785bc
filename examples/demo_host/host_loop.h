// The demo's message loop: a host keeps handling its messages while it runs, and the library's
// timers (heartbeat, delivery results) run on the thread that does so where the platform has
// window timers.
#pragma once

#include <chrono>

// Runs the calling thread's message loop for `duration`; on a platform without window messages
// it only waits.
void RunHostLoopFor(std::chrono::milliseconds duration);

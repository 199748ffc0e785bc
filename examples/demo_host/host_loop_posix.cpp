#include "host_loop.h"

#include <thread>

void RunHostLoopFor(std::chrono::milliseconds duration) {
    std::this_thread::sleep_for(duration);
}

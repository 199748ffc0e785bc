// The library's lock: re-entrant for the thread that holds it. All locking goes through
// CCriticalSection and CScopedLock unless a class says otherwise.
#pragma once

#include <mutex>

namespace qzdata_report_kelvo {

class CCriticalSection {
  public:
    CCriticalSection() = default;
    CCriticalSection(const CCriticalSection&) = delete;
    CCriticalSection& operator=(const CCriticalSection&) = delete;

    // Blocks until the calling thread holds the lock; a holder may enter again and must leave
    // once per enter.
    void Enter() { mutex.lock(); }
    void Leave() { mutex.unlock(); }

  private:
    std::recursive_mutex mutex;
};

// Holds `section` for its own lifetime. Never held across a wait for a thread or an event.
class CScopedLock {
  public:
    explicit CScopedLock(CCriticalSection& section) : section(section) { section.Enter(); }
    ~CScopedLock() { section.Leave(); }
    CScopedLock(const CScopedLock&) = delete;
    CScopedLock& operator=(const CScopedLock&) = delete;

  private:
    CCriticalSection& section;
};

}  // namespace qzdata_report_kelvo

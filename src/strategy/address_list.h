// A list of fallback addresses that a strategy blob may replace while sending threads pick
// from it.
#pragma once

#include <string>
#include <vector>

#include "runtime/critical_section.h"

namespace qzdata_report_kelvo {

// Every operation takes the list's own lock, so each is atomic against a concurrent Assign; a
// reader never holds the lock beyond one call and works on copies. Any thread.
class CAddressList {
  public:
    CAddressList() = default;
    CAddressList(const CAddressList&) = delete;
    CAddressList& operator=(const CAddressList&) = delete;

    // Replaces the whole list with `newAddresses` (dotted IPv4 texts; not checked here).
    void Assign(const std::vector<std::string>& newAddresses);

    // Empties `address`, then, when the list is not empty, copies the entry at index
    // (tick count in milliseconds) modulo (size). The pick has no memory: two calls may give the
    // same entry.
    void PickRandom(std::string& address);

    // A copy of the entries, in order.
    std::vector<std::string> Copy();

  private:
    std::vector<std::string> addresses;
    CCriticalSection lock;
};

}  // namespace qzdata_report_kelvo

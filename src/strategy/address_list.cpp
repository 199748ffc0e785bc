#include "strategy/address_list.h"

#include "port/env.h"

namespace qzdata_report_kelvo {

void CAddressList::Assign(const std::vector<std::string>& newAddresses) {
    // Copy before locking, so that a picker waits only for the swap.
    std::vector<std::string> replacement(newAddresses);
    CScopedLock scoped(lock);
    addresses.swap(replacement);
}

void CAddressList::PickRandom(std::string& address) {
    address.clear();
    CScopedLock scoped(lock);
    if (!addresses.empty()) {
        address = addresses[port::GetTickCount() % addresses.size()];
    }
}

std::vector<std::string> CAddressList::Copy() {
    CScopedLock scoped(lock);
    return addresses;
}

}  // namespace qzdata_report_kelvo

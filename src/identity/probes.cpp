#include "identity/probes.h"

#include <algorithm>
#include <array>
#include <vector>

#include "identity/probe_text.h"
#include "identity/wmi_serials.h"
#include "port/hardware_info.h"

namespace qzdata_report_kelvo {

namespace {

// The LANA numbers are the interfaces' indexes, and a LANA's address is read from the list
// that the enumeration got, so that one text sees one state of the interfaces.
class PlatformNetworkAnswers : public NetworkAnswers {
  public:
    bool EnumerateLanas(std::vector<uint32_t>& lanas) override {
        lanas.clear();
        if (!port::ListNetworkInterfaces(interfaces)) {
            return false;
        }
        for (const port::NetworkAdapter& adapter : interfaces) {
            lanas.push_back(adapter.index);
        }
        return true;
    }

    bool QueryLanaAddress(uint32_t lana, std::array<uint8_t, 6>& address) override {
        for (const port::NetworkAdapter& adapter : interfaces) {
            if (adapter.index == lana && adapter.address.size() == address.size()) {
                std::copy(adapter.address.begin(), adapter.address.end(), address.begin());
                return true;
            }
        }
        return false;
    }

    bool ListAdapters(std::vector<port::NetworkAdapter>& adapters) override {
        return port::ListLinkLayerAdapters(adapters);
    }

  private:
    std::vector<port::NetworkAdapter> interfaces;
};

std::string NetworkText(AddressTextRule rule) {
    PlatformNetworkAnswers answers;
    return NetworkAddressText(answers, rule);
}

std::string CpuText() {
    return CpuIdText(port::QueryCpuId());
}

std::string DiskText() {
    return DiskIdentityText(port::ListDisks());
}

std::string FirmwareText() {
    return FirmwareDateText(port::ReadFirmware());
}

// The management texts answer only while a session is open, as queries on a closed service
// find nothing.
class PlatformHardwareProbes : public HardwareProbes {
  public:
    bool OpenWmi() override {
        CloseWmi();
        open = port::OpenManagementSession();
        return open;
    }

    void CloseWmi() override {
        if (open) {
            port::CloseManagementSession();
            open = false;
        }
    }

    std::string GetCpuIdText() override { return NoThrowText(CpuText); }

    std::string GetWmiAdapterText() override {
        return NoThrowText([this] {
            std::vector<std::vector<uint8_t>> addresses;
            std::vector<WmiRow> rows;
            if (open) {
                port::QueryPciAdapterAddresses(addresses);
            }
            for (const std::vector<uint8_t>& address : addresses) {
                rows.push_back({HexBytes(address)});
            }
            return JoinWmiRows(rows);
        });
    }

    std::string GetWmiDiskText() override { return RowsText(port::ManagementTable::kDiskDrives); }
    std::string GetWmiBiosText() override { return RowsText(port::ManagementTable::kBios); }
    std::string GetWmiBaseBoardText() override {
        return RowsText(port::ManagementTable::kBaseBoard);
    }

    std::string GetNetbiosAddressText() override {
        return NoThrowText([] { return NetworkText(AddressTextRule::kFirst); });
    }

    std::string GetDiskIdentityText() override { return NoThrowText(DiskText); }
    std::string GetFirmwareDateText() override { return NoThrowText(FirmwareText); }

  private:
    std::string RowsText(port::ManagementTable table) {
        return NoThrowText([this, table] {
            std::vector<WmiRow> rows;
            if (open) {
                port::QueryManagementRows(table, rows);
            }
            return JoinWmiRows(rows);
        });
    }

    bool open = false;
};

}  // namespace

HardwareProbes& DefaultHardwareProbes() {
    static HardwareProbes* probes = new PlatformHardwareProbes();
    return *probes;
}

std::string DeriveMachineId() {
    return NoThrowText([] {
        return DigestMachineText(CpuText() + NetworkText(AddressTextRule::kSecond) +
                                 GetWmiSerialsText() + DiskText() + FirmwareText());
    });
}

std::string GetMacAllInfoText() {
    return NoThrowText([] { return NetworkText(AddressTextRule::kSecond); });
}

}  // namespace qzdata_report_kelvo

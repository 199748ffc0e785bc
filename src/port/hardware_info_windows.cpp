#include "port/hardware_info.h"

// The other system headers need the declarations of windows.h first.
#include <windows.h>

#include <iphlpapi.h>
#include <nb30.h>
#include <ntddscsi.h>
#include <objbase.h>
#include <shlobj.h>
#include <wbemidl.h>
#include <winioctl.h>
#include <winternl.h>

#include <algorithm>
#include <cstring>
#include <mutex>

#if defined(__i386__) || defined(__x86_64__)
#include <cpuid.h>
#endif

namespace qzdata_report_kelvo {
namespace port {

namespace {

// A procedure found at run time, as the function type its caller names.
template <class Function>
Function ProcAs(HMODULE module, const char* name) {
    if (module == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

// A library loaded for one use and freed after it.
class LoadedLibrary {
  public:
    explicit LoadedLibrary(const char* name) : module(::LoadLibraryA(name)) {}
    ~LoadedLibrary() {
        if (module != nullptr) {
            ::FreeLibrary(module);
        }
    }
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;

    template <class Function>
    Function Find(const char* name) const {
        return ProcAs<Function>(module, name);
    }

  private:
    HMODULE module;
};

class FileHandle {
  public:
    explicit FileHandle(HANDLE handle) : handle(handle) {}
    ~FileHandle() {
        if (valid()) {
            ::CloseHandle(handle);
        }
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    bool valid() const { return handle != INVALID_HANDLE_VALUE && handle != nullptr; }
    HANDLE get() const { return handle; }

  private:
    HANDLE handle;
};

HANDLE OpenDevice(const wchar_t* path, DWORD access) {
    return ::CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                         0, nullptr);
}

// ---- Network adapters ----------------------------------------------------------------------

constexpr size_t kLinkAddressBytes = 6;
constexpr DWORD kAdapterListBytes = 20736;  // one call; a longer list counts as none
constexpr size_t kAdapterStatusBytes = 600;

using NetbiosFunction = UCHAR(APIENTRY*)(PNCB);
using GetAdaptersInfoFunction = ULONG(WINAPI*)(PIP_ADAPTER_INFO, PULONG);

UCHAR SendNetbios(NetbiosFunction netbios, UCHAR command, UCHAR lana, void* buffer, WORD length) {
    NCB block;
    std::memset(&block, 0, sizeof block);
    block.ncb_command = command;
    block.ncb_lana_num = lana;
    block.ncb_buffer = static_cast<PUCHAR>(buffer);
    block.ncb_length = length;
    if (command == NCBASTAT) {
        std::memset(block.ncb_callname, ' ', NCBNAMSZ);
        block.ncb_callname[0] = '*';
    }
    return netbios(&block);
}

void SortByIndex(std::vector<NetworkAdapter>& adapters) {
    std::stable_sort(
        adapters.begin(), adapters.end(),
        [](const NetworkAdapter& a, const NetworkAdapter& b) { return a.index < b.index; });
}

// ---- Disks -----------------------------------------------------------------------------------

constexpr int kSmartDrives = 4;
constexpr int kScsiControllers = 2;
constexpr int kScsiDrivesPerController = 2;
constexpr size_t kIdentifyBytes = 512;
constexpr size_t kSerialOffset = 20, kSerialBytes = 20;
constexpr size_t kModelOffset = 54, kModelBytes = 40;
constexpr BYTE kIdentifyDevice = 0xEC;
constexpr BYTE kIdentifyPacketDevice = 0xA1;
constexpr ULONG kMiniportIdentify = 0x1B0501;
constexpr ULONG kMiniportTimeoutSeconds = 10000;

// What the field adds to the identity text: its bytes up to a zero, without trailing spaces.
bool FieldAddsBytes(const std::string& identify, size_t offset, size_t width) {
    std::string field = identify.substr(offset, width);
    field = field.substr(0, field.find('\0'));
    return field.find_last_not_of(' ') != std::string::npos;
}

bool IdentifyAddsBytes(const std::string& identify) {
    return FieldAddsBytes(identify, kSerialOffset, kSerialBytes) ||
           FieldAddsBytes(identify, kModelOffset, kModelBytes);
}

// The ATA identify data of the drive through the SMART interface; empty when the drive cannot
// be opened (the interface needs read and write access, which only administrators have) or
// does not answer.
std::string SmartIdentify(int drive) {
    wchar_t path[32];
    ::swprintf(path, 32, L"\\\\.\\PhysicalDrive%d", drive);
    FileHandle device(OpenDevice(path, GENERIC_READ | GENERIC_WRITE));
    if (!device.valid()) {
        return std::string();
    }
    GETVERSIONINPARAMS version;
    std::memset(&version, 0, sizeof version);
    DWORD got = 0;
    if (!::DeviceIoControl(device.get(), SMART_GET_VERSION, nullptr, 0, &version, sizeof version,
                           &got, nullptr) ||
        version.bIDEDeviceMap == 0) {
        return std::string();
    }
    SENDCMDINPARAMS in;
    std::memset(&in, 0, sizeof in);
    in.cBufferSize = kIdentifyBytes;
    in.irDriveRegs.bSectorCountReg = 1;
    in.irDriveRegs.bSectorNumberReg = 1;
    in.irDriveRegs.bDriveHeadReg = static_cast<BYTE>(0xA0 | ((drive & 1) << 4));
    in.irDriveRegs.bCommandReg =
        ((version.bIDEDeviceMap >> drive) & 0x10) != 0 ? kIdentifyPacketDevice : kIdentifyDevice;
    in.bDriveNumber = static_cast<BYTE>(drive);
    std::vector<char> out(sizeof(SENDCMDOUTPARAMS) - 1 + kIdentifyBytes, '\0');
    if (!::DeviceIoControl(device.get(), SMART_RCV_DRIVE_DATA, &in, sizeof in - 1, out.data(),
                           static_cast<DWORD>(out.size()), &got, nullptr)) {
        return std::string();
    }
    return std::string(out.data() + offsetof(SENDCMDOUTPARAMS, bBuffer), kIdentifyBytes);
}

// The identify data of a drive behind a SCSI miniport, asked through the port's IDE channel.
std::string ScsiIdentify(int controller, int drive) {
    wchar_t path[32];
    ::swprintf(path, 32, L"\\\\.\\Scsi%d:", controller);
    FileHandle device(OpenDevice(path, GENERIC_READ | GENERIC_WRITE));
    if (!device.valid()) {
        return std::string();
    }
    constexpr size_t kOutHeader = sizeof(SENDCMDOUTPARAMS) - 1;
    std::vector<char> block(sizeof(SRB_IO_CONTROL) + kOutHeader + 1 + kIdentifyBytes, '\0');
    auto* control = reinterpret_cast<SRB_IO_CONTROL*>(block.data());
    control->HeaderLength = sizeof(SRB_IO_CONTROL);
    std::memcpy(control->Signature, "SCSIDISK", 8);
    control->Timeout = kMiniportTimeoutSeconds;
    control->ControlCode = kMiniportIdentify;
    control->Length = static_cast<ULONG>(kOutHeader + 1 + kIdentifyBytes);
    auto* in = reinterpret_cast<SENDCMDINPARAMS*>(block.data() + sizeof(SRB_IO_CONTROL));
    in->irDriveRegs.bCommandReg = kIdentifyDevice;
    in->bDriveNumber = static_cast<BYTE>(drive);
    DWORD got = 0;
    if (!::DeviceIoControl(device.get(), IOCTL_SCSI_MINIPORT, block.data(),
                           static_cast<DWORD>(sizeof(SRB_IO_CONTROL) + sizeof(SENDCMDINPARAMS) - 1),
                           block.data(), static_cast<DWORD>(block.size()), &got, nullptr)) {
        return std::string();
    }
    std::string identify(block.data() + sizeof(SRB_IO_CONTROL) + kOutHeader, kIdentifyBytes);
    return identify[kModelOffset] != '\0' ? identify : std::string();
}

// ---- Firmware --------------------------------------------------------------------------------

constexpr ULONG kFirmwareBase = 0xF0000;
constexpr SIZE_T kFirmwareViewBytes = 0xFFFF;
constexpr int kViewShare = 1;

using ZwOpenSectionFunction = NTSTATUS(NTAPI*)(PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES);
using ZwMapViewOfSectionFunction = NTSTATUS(NTAPI*)(HANDLE, HANDLE, PVOID*, ULONG_PTR, SIZE_T,
                                                    PLARGE_INTEGER, PSIZE_T, int, ULONG, ULONG);
using ZwUnmapViewOfSectionFunction = NTSTATUS(NTAPI*)(HANDLE, PVOID);

// ---- Management service ----------------------------------------------------------------------

// Each step of an enumeration waits this long for the service's next object; a service that
// does not answer in time ends the walk, so no query hangs.
constexpr long kNextObjectTimeoutMs = 5000;
constexpr size_t kMaxObjects = 4096;

template <class Interface>
class ComRef {
  public:
    ComRef() = default;
    ~ComRef() { reset(); }
    ComRef(const ComRef&) = delete;
    ComRef& operator=(const ComRef&) = delete;

    Interface* operator->() const { return pointer; }
    Interface* get() const { return pointer; }
    Interface** out() {
        reset();
        return &pointer;
    }
    void reset() {
        if (pointer != nullptr) {
            pointer->Release();
            pointer = nullptr;
        }
    }

  private:
    Interface* pointer = nullptr;
};

class Bstr {
  public:
    explicit Bstr(const std::wstring& text)
        : value(::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {}
    ~Bstr() { ::SysFreeString(value); }
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    BSTR get() const { return value; }

  private:
    BSTR value;
};

class Variant {
  public:
    Variant() { ::VariantInit(&value); }
    ~Variant() { ::VariantClear(&value); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    VARIANT* get() { return &value; }

  private:
    VARIANT value;
};

// The calling thread's session. Plain pointers, so that the thread-local needs no destructor.
struct ManagementSession {
    IWbemLocator* locator = nullptr;
    IWbemServices* services = nullptr;
    bool comInitialised = false;
};

thread_local ManagementSession session;

void ReleaseSession() {
    if (session.services != nullptr) {
        session.services->Release();
        session.services = nullptr;
    }
    if (session.locator != nullptr) {
        session.locator->Release();
        session.locator = nullptr;
    }
    if (session.comInitialised) {
        session.comInitialised = false;
        ::CoUninitialize();
    }
}

// The property as a wide text; false when it is missing or not a text.
bool ReadTextProperty(IWbemClassObject* object, const wchar_t* name, std::wstring& text) {
    Variant value;
    if (FAILED(object->Get(name, 0, value.get(), nullptr, nullptr)) || value.get()->vt != VT_BSTR ||
        value.get()->bstrVal == nullptr) {
        return false;
    }
    text.assign(value.get()->bstrVal, ::SysStringLen(value.get()->bstrVal));
    return true;
}

// Held through each query and the reading of its objects (a static of the template below would
// be one mutex per caller).
std::mutex queryMutex;

// Runs `query` on the thread's session and hands each object to `visit`, in the service's
// order; nothing without a session or when the query fails. One query at a time in the process:
// some providers (Wine's among them) fill their tables without a lock of their own.
template <class Visit>
void ForEachObject(const std::wstring& query, Visit&& visit) {
    if (session.services == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> serialized(queryMutex);
    const Bstr language(L"WQL");
    const Bstr text(query);
    ComRef<IEnumWbemClassObject> objects;
    if (language.get() == nullptr || text.get() == nullptr ||
        FAILED(session.services->ExecQuery(language.get(), text.get(),
                                           WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                                           nullptr, objects.out())) ||
        objects.get() == nullptr) {
        return;
    }
    for (size_t count = 0; count < kMaxObjects; ++count) {
        ComRef<IWbemClassObject> object;
        ULONG got = 0;
        const HRESULT result = objects->Next(kNextObjectTimeoutMs, 1, object.out(), &got);
        if (got == 0 || object.get() == nullptr) {
            break;
        }
        visit(object.get());
        if (result != WBEM_S_NO_ERROR) {
            break;
        }
    }
}

std::string Narrow(UINT codePage, const std::wstring& text) {
    if (text.empty()) {
        return std::string();
    }
    const int size = static_cast<int>(text.size());
    const int needed =
        ::WideCharToMultiByte(codePage, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) {
        return std::string();
    }
    std::string narrow(static_cast<size_t>(needed), '\0');
    ::WideCharToMultiByte(codePage, 0, text.data(), size, &narrow[0], needed, nullptr, nullptr);
    return narrow;
}

// A PCI adapter's permanent address from its network driver; empty when the driver does not
// give it.
std::vector<uint8_t> PermanentAddress(const std::wstring& pnpDeviceId) {
    constexpr DWORD kQueryGlobalStats = 0x170002;
    constexpr DWORD kPermanentAddressOid = 0x01010101;
    std::wstring path = L"\\\\.\\" + pnpDeviceId + L"#{ad498944-762f-11d0-8dcb-00c04fc3358c}";
    std::replace(path.begin() + 4, path.end(), L'\\', L'#');
    FileHandle device(OpenDevice(path.c_str(), 0));
    std::vector<uint8_t> address;
    if (!device.valid()) {
        return address;
    }
    DWORD oid = kPermanentAddressOid;
    uint8_t bytes[8] = {};
    DWORD got = 0;
    if (::DeviceIoControl(device.get(), kQueryGlobalStats, &oid, sizeof oid, bytes, sizeof bytes,
                          &got, nullptr)) {
        address.assign(bytes, bytes + std::min<DWORD>(got, sizeof bytes));
    }
    return address;
}

// ---- Version ---------------------------------------------------------------------------------

constexpr DWORD kFixedFileInfoBytes = 52;

using GetFileVersionInfoSizeFunction = DWORD(APIENTRY*)(LPCSTR, LPDWORD);
using GetFileVersionInfoFunction = BOOL(APIENTRY*)(LPCSTR, DWORD, DWORD, LPVOID);
using VerQueryValueFunction = BOOL(APIENTRY*)(LPCVOID, LPCSTR, LPVOID*, PUINT);

// The high half of the product version of the system's ntdll.dll, which tells the true version
// of a system that reports 6.2 to programs that do not declare newer support.
bool ReadNtdllProductVersion(uint32_t& productVersionMs) {
    char folder[MAX_PATH] = {};
    if (FAILED(::SHGetFolderPathA(nullptr, CSIDL_SYSTEM, nullptr, SHGFP_TYPE_CURRENT, folder)) ||
        folder[0] == '\0') {
        return false;
    }
    const LoadedLibrary version("version.dll");
    const auto getSize = version.Find<GetFileVersionInfoSizeFunction>("GetFileVersionInfoSizeA");
    const auto getInfo = version.Find<GetFileVersionInfoFunction>("GetFileVersionInfoA");
    const auto queryValue = version.Find<VerQueryValueFunction>("VerQueryValueA");
    if (getSize == nullptr || getInfo == nullptr || queryValue == nullptr) {
        return false;
    }
    const std::string file = std::string(folder) + "/ntdll.dll";
    DWORD ignored = 0;
    const DWORD size = getSize(file.c_str(), &ignored);
    if (size == 0) {
        return false;
    }
    std::vector<char> block(size, '\0');
    void* root = nullptr;
    UINT rootBytes = 0;
    if (!getInfo(file.c_str(), 0, size, block.data()) ||
        !queryValue(block.data(), "\\", &root, &rootBytes) || root == nullptr ||
        rootBytes != kFixedFileInfoBytes) {
        return false;
    }
    productVersionMs = static_cast<const VS_FIXEDFILEINFO*>(root)->dwProductVersionMS;
    return true;
}

}  // namespace

CpuIdAnswer QueryCpuId() {
    CpuIdAnswer answer;
#if defined(__i386__) || defined(__x86_64__)
    answer.highestLeaf = __get_cpuid_max(0, nullptr);
    // __get_cpuid_max answers 0 for a processor without the instruction, and Windows runs on
    // no processor older than the 486 (family 4).
    answer.hasCpuId = answer.highestLeaf != 0;
    answer.family = 4;
    if (answer.highestLeaf >= 1) {
        unsigned int ebx = 0, ecx = 0;
        __cpuid(1, answer.leaf1Eax, ebx, ecx, answer.leaf1Edx);
    }
#endif
    return answer;
}

bool ListNetworkInterfaces(std::vector<NetworkAdapter>& adapters) {
    adapters.clear();
    const LoadedLibrary netapi("NETAPI32.DLL");
    const auto netbios = netapi.Find<NetbiosFunction>("Netbios");
    if (netbios == nullptr) {
        return false;
    }
    LANA_ENUM lanas;
    std::memset(&lanas, 0, sizeof lanas);
    if (SendNetbios(netbios, NCBENUM, 0, &lanas, sizeof lanas) != NRC_GOODRET) {
        return false;
    }
    // Every LANA is bound to a network adapter; NetBIOS has none for the loopback interface.
    for (UCHAR i = 0; i < lanas.length && i < MAX_LANA + 1; ++i) {
        const UCHAR lana = lanas.lana[i];
        SendNetbios(netbios, NCBRESET, lana, nullptr, 0);
        std::vector<uint8_t> status(kAdapterStatusBytes, 0);
        if (SendNetbios(netbios, NCBASTAT, lana, status.data(), static_cast<WORD>(status.size())) ==
            NRC_GOODRET) {
            const auto* adapter = reinterpret_cast<const ADAPTER_STATUS*>(status.data());
            NetworkAdapter entry;
            entry.index = lana;
            entry.address.assign(adapter->adapter_address,
                                 adapter->adapter_address + kLinkAddressBytes);
            adapters.push_back(entry);
        }
    }
    SortByIndex(adapters);
    return true;
}

bool ListLinkLayerAdapters(std::vector<NetworkAdapter>& adapters) {
    adapters.clear();
    const LoadedLibrary iphlpapi("IPHLPAPI.DLL");
    const auto getAdaptersInfo = iphlpapi.Find<GetAdaptersInfoFunction>("GetAdaptersInfo");
    if (getAdaptersInfo == nullptr) {
        return false;
    }
    // IP_ADAPTER_INFO holds pointers: the buffer is allocated as such to keep them aligned.
    std::vector<IP_ADAPTER_INFO> buffer(kAdapterListBytes / sizeof(IP_ADAPTER_INFO) + 1);
    ULONG size = kAdapterListBytes;
    if (getAdaptersInfo(buffer.data(), &size) != ERROR_SUCCESS) {
        return false;
    }
    for (const IP_ADAPTER_INFO* info = buffer.data(); info != nullptr; info = info->Next) {
        if (info->Type != MIB_IF_TYPE_LOOPBACK && info->AddressLength == kLinkAddressBytes) {
            NetworkAdapter entry;
            entry.index = info->Index;
            entry.address.assign(info->Address, info->Address + kLinkAddressBytes);
            adapters.push_back(entry);
        }
    }
    SortByIndex(adapters);
    return true;
}

std::vector<DiskIdentity> ListDisks() {
    std::vector<DiskIdentity> disks;
    bool smartFound = false;
    for (int drive = 0; drive < kSmartDrives; ++drive) {
        DiskIdentity disk;
        disk.identify = SmartIdentify(drive);
        if (!disk.identify.empty()) {
            smartFound = smartFound || IdentifyAddsBytes(disk.identify);
            disks.push_back(disk);
        }
    }
    // Drives behind a SCSI port are asked only when the SMART ones gave nothing, so that a
    // drive that answers both ways is not counted twice.
    if (smartFound) {
        return disks;
    }
    for (int controller = 0; controller < kScsiControllers; ++controller) {
        for (int drive = 0; drive < kScsiDrivesPerController; ++drive) {
            DiskIdentity disk;
            disk.identify = ScsiIdentify(controller, drive);
            if (!disk.identify.empty()) {
                disks.push_back(disk);
            }
        }
    }
    return disks;
}

// The physical memory section is open to user programs only on old systems; elsewhere the
// open fails and the answer stays empty.
FirmwareAnswer ReadFirmware() {
    FirmwareAnswer answer;
    const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    const auto openSection = ProcAs<ZwOpenSectionFunction>(ntdll, "ZwOpenSection");
    const auto mapView = ProcAs<ZwMapViewOfSectionFunction>(ntdll, "ZwMapViewOfSection");
    const auto unmapView = ProcAs<ZwUnmapViewOfSectionFunction>(ntdll, "ZwUnmapViewOfSection");
    if (openSection == nullptr || mapView == nullptr || unmapView == nullptr) {
        return answer;
    }
    wchar_t name[] = L"\\device\\physicalmemory";
    UNICODE_STRING nameString;
    nameString.Buffer = name;
    nameString.Length = static_cast<USHORT>((sizeof name) - sizeof(wchar_t));
    nameString.MaximumLength = static_cast<USHORT>(sizeof name);
    OBJECT_ATTRIBUTES attributes;
    std::memset(&attributes, 0, sizeof attributes);
    attributes.Length = sizeof attributes;
    attributes.ObjectName = &nameString;
    attributes.Attributes = OBJ_CASE_INSENSITIVE;
    HANDLE section = nullptr;
    if (!NT_SUCCESS(openSection(&section, SECTION_MAP_READ, &attributes)) || section == nullptr) {
        return answer;
    }
    FileHandle sectionHandle(section);
    PVOID view = nullptr;
    LARGE_INTEGER offset;
    offset.QuadPart = kFirmwareBase;
    SIZE_T viewBytes = kFirmwareViewBytes;
    if (NT_SUCCESS(mapView(section, ::GetCurrentProcess(), &view, 0, kFirmwareViewBytes, &offset,
                           &viewBytes, kViewShare, 0, PAGE_READONLY)) &&
        view != nullptr) {
        if (viewBytes >= kFirmwareViewBytes) {
            answer.memoryView.assign(static_cast<const char*>(view), kFirmwareViewBytes);
        }
        unmapView(::GetCurrentProcess(), view);
    }
    return answer;
}

bool OpenManagementSession() {
    ReleaseSession();
    // A thread that already runs single-threaded COM keeps it; the session works there too.
    session.comInitialised = SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    const HRESULT security =
        ::CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_PKT,
                               RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    const Bstr root(L"ROOT\\CIMV2");
    // The connection gives up after the service's maximum wait instead of blocking for good.
    const bool connected =
        (SUCCEEDED(security) || security == RPC_E_TOO_LATE) && root.get() != nullptr &&
        SUCCEEDED(::CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER,
                                     IID_IWbemLocator,
                                     reinterpret_cast<void**>(&session.locator))) &&
        SUCCEEDED(session.locator->ConnectServer(root.get(), nullptr, nullptr, nullptr,
                                                 WBEM_FLAG_CONNECT_USE_MAX_WAIT, nullptr, nullptr,
                                                 &session.services)) &&
        SUCCEEDED(::CoSetProxyBlanket(session.services, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE,
                                      nullptr, RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE,
                                      nullptr, EOAC_NONE));
    if (!connected) {
        ReleaseSession();
    }
    return connected;
}

void CloseManagementSession() {
    ReleaseSession();
}

// Values are UTF-8: every character outside ASCII becomes bytes above 0x7F, which the row
// filter drops just as it drops the wide character, whatever the system's code page is.
void QueryManagementRows(ManagementTable table, std::vector<std::vector<std::string>>& rows) {
    rows.clear();
    std::wstring query;
    std::vector<const wchar_t*> properties;
    switch (table) {
        case ManagementTable::kDiskDrives:
            // IDE and SCSI disks are told by their device id rather than by InterfaceType: a
            // provider (Wine's) has been seen to fault when that property is read or tested.
            query = L"SELECT * FROM Win32_DiskDrive";
            properties = {L"Model", L"SerialNumber"};
            break;
        case ManagementTable::kBios:
            query = L"SELECT * FROM Win32_BIOS";
            properties = {L"Manufacturer", L"SerialNumber"};
            break;
        case ManagementTable::kBaseBoard:
            query = L"SELECT * FROM Win32_BaseBoard";
            properties = {L"Manufacturer", L"Product", L"SerialNumber"};
            break;
    }
    ForEachObject(query, [&](IWbemClassObject* object) {
        std::wstring device;
        if (table == ManagementTable::kDiskDrives &&
            !(ReadTextProperty(object, L"PNPDeviceID", device) &&
              (device.rfind(L"IDE\\", 0) == 0 || device.rfind(L"SCSI\\", 0) == 0))) {
            return;
        }
        std::vector<std::string> row;
        for (const wchar_t* property : properties) {
            std::wstring value;
            row.push_back(ReadTextProperty(object, property, value) ? Narrow(CP_UTF8, value)
                                                                    : std::string());
        }
        rows.push_back(row);
    });
}

void QueryPciAdapterAddresses(std::vector<std::vector<uint8_t>>& addresses) {
    addresses.clear();
    std::vector<std::wstring> deviceIds;
    ForEachObject(L"SELECT * FROM Win32_NetworkAdapter", [&](IWbemClassObject* object) {
        std::wstring id;
        if (ReadTextProperty(object, L"PNPDeviceID", id) && id.size() >= 3 &&
            ::CompareStringOrdinal(id.c_str(), 3, L"PCI", 3, TRUE) == CSTR_EQUAL) {
            deviceIds.push_back(id);
        }
    });
    for (const std::wstring& id : deviceIds) {
        std::vector<uint8_t> address = PermanentAddress(id);
        if (!address.empty()) {
            addresses.push_back(address);
        }
    }
}

void QuerySerialFact(SerialFact fact, std::vector<std::string>& values) {
    values.clear();
    const wchar_t* table = L"";
    const wchar_t* property = L"PNPDeviceID";
    switch (fact) {
        case SerialFact::kVolumeSerial:
            table = L"Win32_LogicalDisk";
            property = L"VolumeSerialNumber";
            break;
        case SerialFact::kSystemSerial:
            table = L"Win32_OperatingSystem";
            property = L"SerialNumber";
            break;
        case SerialFact::kDiskDeviceIds:
            table = L"Win32_DiskDrive";
            break;
        case SerialFact::kSoundDeviceIds:
            table = L"Win32_SoundDevice";
            break;
        case SerialFact::kVideoDeviceIds:
            table = L"Win32_VideoController";
            break;
    }
    ForEachObject(std::wstring(L"select * from ") + table, [&](IWbemClassObject* object) {
        std::wstring value;
        if (ReadTextProperty(object, property, value) && !value.empty()) {
            values.push_back(Narrow(CP_ACP, value));
        }
    });
}

// Windows names itself through QueryWindowsVersion; it has no kernel release text.
std::string GetKernelRelease() {
    return std::string();
}

// GetVersionExW, not RtlGetVersion: the names are keyed to what the documented query tells a
// program without a compatibility manifest (6.2 on every newer system), with ntdll's own
// version to tell those systems apart.
bool QueryWindowsVersion(WindowsVersionFacts& facts) {
    facts = WindowsVersionFacts();
    OSVERSIONINFOEXW extended;
    std::memset(&extended, 0, sizeof extended);
    extended.dwOSVersionInfoSize = sizeof extended;
    if (::GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&extended))) {
        facts.extendedRecord = true;
        facts.productType = extended.wProductType;
    } else {
        std::memset(&extended, 0, sizeof extended);
        extended.dwOSVersionInfoSize = sizeof(OSVERSIONINFOW);
        if (!::GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&extended))) {
            return true;
        }
    }
    facts.versionKnown = true;
    facts.platformId = extended.dwPlatformId;
    facts.major = extended.dwMajorVersion;
    facts.minor = extended.dwMinorVersion;
    SYSTEM_INFO system;
    std::memset(&system, 0, sizeof system);
    ::GetNativeSystemInfo(&system);
    facts.processorArchitecture = system.wProcessorArchitecture;
    facts.serverR2 = ::GetSystemMetrics(SM_SERVERR2);
    facts.ntdllVersionKnown = ReadNtdllProductVersion(facts.ntdllProductVersionMs);
    return true;
}

}  // namespace port
}  // namespace qzdata_report_kelvo

#include "port/log_file.h"

#include <windows.h>

#include <aclapi.h>
#include <io.h>
#include <share.h>

#include <cctype>
#include <climits>
#include <ctime>

namespace qzdata_report_kelvo {
namespace port {

namespace {

bool SameLetter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
}

// Whether `name` matches the shell pattern `pattern` ('*' any run, '?' one character), without
// regard to ASCII case, as the file system compares names.
// FindFirstFileA also matches the short 8.3 alias of a name, so that "report*.log" would find
// "report1.logx" through "REPORT~1.LOG"; its results are checked again against the long name.
bool MatchesPattern(const char* pattern, const char* name) {
    const char* star = nullptr;
    const char* resume = nullptr;
    while (*name != '\0') {
        if (*pattern == '*') {
            star = pattern++;
            resume = name;
        } else if (*pattern != '\0' && (*pattern == '?' || SameLetter(*pattern, *name))) {
            ++pattern;
            ++name;
        } else if (star != nullptr) {
            pattern = star + 1;
            name = ++resume;
        } else {
            return false;
        }
    }
    while (*pattern == '*') {
        ++pattern;
    }
    return *pattern == '\0';
}

}  // namespace

bool LockedFile::Open(const std::string& path) {
    Close();
    if (path.empty()) {
        return false;
    }
    // The share mode is the lock: while this open has the file, any other open that asks to
    // write, in this process or another, is refused, and this open is refused while another has
    // write access.
    file = _fsopen(path.c_str(), "a+b", _SH_DENYWR);
    return file != nullptr;
}

void LockedFile::Close() {
    if (file != nullptr) {
        std::fclose(file);
        file = nullptr;
    }
}

int64_t LockedFile::Size() {
    if (file == nullptr || std::fflush(file) != 0) {
        return -1;
    }
    return static_cast<int64_t>(_filelengthi64(_fileno(file)));
}

bool LockedFile::Append(const std::string& bytes) {
    if (file == nullptr) {
        return false;
    }
    // Writes go to the end in append mode anyway; the seek is what the C library requires
    // between a read and a write on the same stream.
    if (std::fseek(file, 0, SEEK_END) != 0) {
        return false;
    }
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fflush(file) == 0 && written;
}

LockedFile::ReadResult LockedFile::ReadPiece(size_t limit, std::string& piece) {
    piece.clear();
    if (file == nullptr || limit < 2 || limit > static_cast<size_t>(INT_MAX)) {
        return ReadResult::kError;
    }
    piece.resize(limit);
    if (std::fgets(&piece[0], static_cast<int>(limit), file) == nullptr) {
        piece.clear();
        return std::ferror(file) != 0 ? ReadResult::kError : ReadResult::kEnd;
    }
    // fgets ends at a newline; a NUL byte inside a line shortens the piece, which then no longer
    // parses and is dropped like any other malformed line.
    piece.resize(std::char_traits<char>::length(piece.c_str()));
    return ReadResult::kData;
}

bool MakeDirectoryPrivate(const std::string& path) {
    // The owner-only mode becomes a protected access list that grants the current user alone
    // full access, inherited by everything inside: files created there later are private too.
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) {
        return false;
    }
    DWORD size = 0;
    ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::vector<unsigned char> user(size);
    const bool known =
        size > 0 && ::GetTokenInformation(token, TokenUser, user.data(), size, &size) != 0;
    ::CloseHandle(token);
    if (!known) {
        return false;
    }
    EXPLICIT_ACCESSA access = {};
    access.grfAccessPermissions = GENERIC_ALL;
    access.grfAccessMode = SET_ACCESS;
    access.grfInheritance = SUB_CONTAINERS_AND_OBJECTS_INHERIT;
    access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    access.Trustee.TrusteeType = TRUSTEE_IS_USER;
    access.Trustee.ptstrName =
        static_cast<LPSTR>(reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid);
    PACL acl = nullptr;
    if (::SetEntriesInAclA(1, &access, nullptr, &acl) != ERROR_SUCCESS) {
        return false;
    }
    const DWORD result =
        ::SetNamedSecurityInfoA(const_cast<char*>(path.c_str()), SE_FILE_OBJECT,
                                DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                nullptr, nullptr, acl, nullptr);
    ::LocalFree(acl);
    return result == ERROR_SUCCESS;
}

std::vector<std::string> ListFiles(const std::string& folder, const std::string& pattern) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA entry;
    HANDLE search = ::FindFirstFileExA((folder + pattern).c_str(), FindExInfoBasic, &entry,
                                       FindExSearchNameMatch, nullptr, 0);
    if (search == INVALID_HANDLE_VALUE) {
        return names;
    }
    do {
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 &&
            MatchesPattern(pattern.c_str(), entry.cFileName)) {
            names.push_back(entry.cFileName);
        }
    } while (::FindNextFileA(search, &entry));
    ::FindClose(search);
    return names;
}

std::string FormatLocalDate(int64_t seconds) {
    const __time64_t value = static_cast<__time64_t>(seconds);
    struct tm fields;
    char text[16];
    if (_localtime64_s(&fields, &value) != 0 ||
        std::strftime(text, sizeof(text), "%Y%m%d", &fields) == 0) {
        return std::string();
    }
    return text;
}

}  // namespace port
}  // namespace qzdata_report_kelvo

#include "port/port.h"

#include "port/random.h"

#include <sys/random.h>

#include <cerrno>
#include <cstring>

namespace qzdata_report_kelvo {
namespace port {

bool RandomBytes(void* buffer, size_t size) {
    auto* out = static_cast<unsigned char*>(buffer);
    size_t done = 0;
    while (done < size) {
        ssize_t got = getrandom(out + done, size - done, 0);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            std::memset(buffer, 0, size);
            return false;
        }
        done += static_cast<size_t>(got);
    }
    return true;
}

}  // namespace port
}  // namespace qzdata_report_kelvo

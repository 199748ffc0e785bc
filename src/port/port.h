// The one header that tests the platform. Include it first in every library source; everything
// else reaches the operating system through the seams of this folder (and the socket seam of
// the network client), each with a portable header and one implementation file per platform.
#pragma once

#if defined(_WIN32)
#define QZ_OS_WINDOWS 1
#else
#define QZ_OS_POSIX 1
#endif

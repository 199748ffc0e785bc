// Export macro of the qzdata_report library: the only symbols a host can link against.
#pragma once

#if defined(_WIN32)
#if defined(QZ_BUILDING_LIBRARY)
#define QZ_EXPORT __declspec(dllexport)
#else
#define QZ_EXPORT __declspec(dllimport)
#endif
#else
#define QZ_EXPORT __attribute__((visibility("default")))
#endif

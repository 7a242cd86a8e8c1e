/* Symbol visibility for libKelvane: everything is hidden unless marked. */
#ifndef KELVANE_EXPORT_H
#define KELVANE_EXPORT_H

#if defined(_WIN32)
#define KELVANE_API __declspec(dllexport)
#else
#define KELVANE_API __attribute__((visibility("default")))
#endif

#endif

/*
 * Compiler attributes shared by the platform headers.
 */
#ifndef PLATFORM_ATTRS_H
#define PLATFORM_ATTRS_H

#if defined(__GNUC__) || defined(__clang__)
#define PLT_PRINTF(fmt, first) __attribute__((format(printf, fmt, first)))
#define PLT_API __attribute__((visibility("default")))
#else
#define PLT_PRINTF(fmt, first)
#define PLT_API
#endif

#endif

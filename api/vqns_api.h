/* vqns_api.h - what every public header of vqns shares: C linkage and export. */
#ifndef VQNS_API_H
#define VQNS_API_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define VQNS_EXPORT __attribute__((visibility("default")))
#else
#define VQNS_EXPORT
#endif

/* VQNS_API marks a function, VQNS_DATA a variable or constant table. */
#ifdef __cplusplus
#define VQNS_API extern "C" VQNS_EXPORT
#define VQNS_DATA extern "C" VQNS_EXPORT
#else
#define VQNS_API extern VQNS_EXPORT
#define VQNS_DATA extern VQNS_EXPORT
#endif

#endif

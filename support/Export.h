#pragma once

/// Marks what the shared library offers; everything else stays hidden inside it.
///
/// CVTP_BUILDING is defined while the library itself is compiled, CVTP_STATIC where its objects are linked
/// straight into a program. The compilers differ here, so this file is one of the few that ask for the platform.
#if defined(CVTP_STATIC)
#define CVTP_EXPORT
#elif defined(_WIN32)
#if defined(CVTP_BUILDING)
#define CVTP_EXPORT __declspec(dllexport)
#else
#define CVTP_EXPORT __declspec(dllimport)
#endif
#else
#define CVTP_EXPORT __attribute__((visibility("default")))
#endif

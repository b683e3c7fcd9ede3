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

/// The same for the instantiation of a template: the one mark stands where a header declares it, the other where a
/// source defines it. MSVC refuses to export what is declared `extern`; the others only heed the declaration.
#if defined(_MSC_VER) && defined(CVTP_BUILDING) && !defined(CVTP_STATIC)
#define CVTP_EXPORT_DECLARED
#define CVTP_EXPORT_DEFINED CVTP_EXPORT
#else
#define CVTP_EXPORT_DECLARED CVTP_EXPORT
#define CVTP_EXPORT_DEFINED
#endif

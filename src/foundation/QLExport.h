#ifndef QLMAIL_FOUNDATION_QLEXPORT_H
#define QLMAIL_FOUNDATION_QLEXPORT_H

/// @file
/// Marks what libqlmail.so exports. The library is built with hidden visibility, so only the
/// classes marked QLMAIL_EXPORT are reachable from a program that links it; their type
/// information is then one and the same on both sides, which is what lets a program catch
/// the CQLExceptionParser copies that the library throws.

#if defined(__GNUC__)
/// On a class: the class, its members, type information and virtual table are exported.
#define QLMAIL_EXPORT __attribute__((visibility("default")))
/// On a class nested in an exported one: kept inside the library.
#define QLMAIL_LOCAL __attribute__((visibility("hidden")))
#else
#define QLMAIL_EXPORT
#define QLMAIL_LOCAL
#endif

#endif

#pragma once

// What this machine is called on the network: short host name, DNS domain,
// primary IPv4 address and a numeric identifier from its Ethernet hardware
// address, plus helpers that split a qualified name.

#include <stddef.h>

#include "../qxexport.h"

namespace QXPlatform {

// The host name up to its first ".", computed on the first call and kept for
// the life of the process; null when the system gives none. The text belongs
// to the library and must not be written. Any thread; the first callers wait
// for one computation.
QXPLATFORM_EXPORT const char* QXGetHostName();

// The DNS domain (what follows the first "." of the qualified name), found
// once by reverse lookup of QXGetIPAddress(), the system domain, the host
// name, then forward lookup; null when none gives an answer. A looked-up
// name too long for the 128-byte buffer counts as no answer. Owned by the
// library and kept for the life of the process. Any thread.
QXPLATFORM_EXPORT const char* QXGetDomainName();

// Four bytes of IPv4 address in network order (first octet first): the first
// non-loopback address of the interface list, else the last loopback one.
// Computed once; null when there is none. Owned by the library. Any thread.
QXPLATFORM_EXPORT const unsigned char* QXGetIPAddress();

// The first four bytes of the hardware address of the Ethernet interface
// named "en0", most significant byte first; 0 when there is no such
// interface. Computed on every call; throws std::bad_alloc only when scratch
// memory cannot be had. Any thread.
QXPLATFORM_EXPORT long QXGetHostIdent();

// Writes what follows the first "." of fqdn into domain and returns true; a
// name ending in "." gives an empty domain and true. Returns false with an
// empty domain when fqdn is empty, null or has no "."; a null domain gives
// false and nothing written. domain is emptied before fqdn is read, so
// passing one buffer as both always gives false. domain must have room for
// fqdn. Any thread.
QXPLATFORM_EXPORT bool QXSplitDomainName(char* domain, const char* fqdn);

// Writes the part of fqdn before its first "." (all of it without one) into
// host, which must have room for fqdn. A null fqdn gives an empty host; a
// null host is left alone. Any thread.
QXPLATFORM_EXPORT void QXSplitHostName(char* host, const char* fqdn);

// A transfer sink: appends size * count bytes from data to the std::string
// that target points to and returns size * count; returns 0 and appends
// nothing when target is null. The caller keeps ownership of both. Any
// thread, one per target at a time.
QXPLATFORM_EXPORT size_t write_callback(char* data, size_t size, size_t count,
                                        void* target);

}  // namespace QXPlatform

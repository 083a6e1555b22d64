#pragma once

// Facts about the machine and the user for display, logging and default
// locations: processors, platform, architecture, login name and directories.

#include <string>

#include "../qxexport.h"

namespace QXPlatform {

// The number of processors online, else configured, else the count of
// "processor" lines in /proc/cpuinfo; 0 when nothing answers, and -1
// when the system reports an error for the processors online. Computed on
// every call. Any thread.
QXPLATFORM_EXPORT int QXGetNumProcessors();

// The system name (or the last DISTRIB_DESCRIPTION of /etc/lsb-release,
// quotation marks kept) followed by " (" kernel release ")"; parts the
// system does not give are left out, so the result may be empty. Computed on
// every call. Any thread.
QXPLATFORM_EXPORT std::string QXGetPlatformInfo();

// The hardware architecture, such as "x86_64" or "arm64"; empty when the
// system gives none. Any thread.
QXPLATFORM_EXPORT std::string QXGetProcessorInfo();

// Always empty: there is no machine name apart from the host name.
QXPLATFORM_EXPORT std::string QXGetMachineName();

// The login name of the real user; empty when the user database has no
// entry for it. Any thread.
QXPLATFORM_EXPORT std::string QXGetUserName();

// The value of HOME when it names an existing directory; empty otherwise
// (unset, empty, missing or not a directory). Not safe against threads that
// change the environment at the same time.
QXPLATFORM_EXPORT std::string QXGetUserHomeDir();

// The home directory's "Library" when something of that name exists there,
// else the home directory; empty without a home directory. Same thread rule
// as the home directory.
QXPLATFORM_EXPORT std::string QXGetUserAppDataDir();

// The home directory's "Documents" when something of that name exists
// there, else the home directory; empty without a home directory. Same
// thread rule as the home directory.
QXPLATFORM_EXPORT std::string QXGetUserDocumentsDir();

}  // namespace QXPlatform

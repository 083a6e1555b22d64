#pragma once

// The versions of the components loaded in the process, gathered from the
// providers each library registers, and the release of the toolkit family.

#include <string>

#include "../qxexport.h"

namespace QXPlatform {

class qxostream;

// One component's version: the group it belongs to (the report's section),
// the component's name and its version text.
class QXPLATFORM_EXPORT QXVersion {
 public:
  QXVersion(std::string group, std::string component, std::string version);

  std::string group;
  std::string component;
  std::string version;
};

// Text printed at the head of the version report when not empty. Points to an
// empty text unless the build set an identification; the caller may point it
// at any text that outlives the report. Meant to be set at start-up: not
// locked.
extern QXPLATFORM_EXPORT const char* BUILD_ID;

// Appends provider to the process-wide list; duplicates are kept and nothing
// is ever removed. Meant for static initialisers: not locked, so no other
// thread may register or report at the same time.
QXPLATFORM_EXPORT void QXRegisterVersion(QXVersion (*provider)());

// Writes the build identification (when set) and one section per group,
// sorted by group and then by line, with a line "<component> Version:
// <version>" per entry. Calls every registered provider. Not to be run while
// another thread registers.
QXPLATFORM_EXPORT void QXGetVersions(qxostream& out);

// The release of the toolkit family, "2026.1.0". Any thread.
QXPLATFORM_EXPORT std::string QXToolkitsGetRelease();

}  // namespace QXPlatform

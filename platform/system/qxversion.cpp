#include "qxversion.h"

#include <stdlib.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "../streams/qxstream.h"

#ifndef QXPLATFORM_BUILD_ID_TEXT
#define QXPLATFORM_BUILD_ID_TEXT ""
#endif

namespace QXPlatform {
namespace {

typedef QXVersion (*VersionProvider)();

const unsigned long long kFirstCapacity = 1024;
const char kRelease[] = "2026.1.0";

struct Registry {
  VersionProvider* providers;
  unsigned long long capacity;
  unsigned long long count;
};

Registry& Providers() {
  static Registry registry = {nullptr, 0, 0};
  return registry;
}

}  // namespace

const char* BUILD_ID = QXPLATFORM_BUILD_ID_TEXT;

QXVersion::QXVersion(std::string groupName, std::string componentName,
                     std::string versionText)
    : group(std::move(groupName)),
      component(std::move(componentName)),
      version(std::move(versionText)) {}

void QXRegisterVersion(QXVersion (*provider)()) {
  Registry& registry = Providers();
  if (registry.providers == nullptr) {
    if (registry.capacity == 0) {
      registry.capacity = kFirstCapacity;
    }
    registry.providers = static_cast<VersionProvider*>(
        malloc(registry.capacity * sizeof(VersionProvider)));
    registry.count = 0;
  }
  if (registry.count == registry.capacity) {
    registry.capacity *= 2;
    // Deliberate: the result is not checked; registration happens at load
    // time, where running out of memory ends the process anyway.
    registry.providers = static_cast<VersionProvider*>(realloc(
        registry.providers, registry.capacity * sizeof(VersionProvider)));
  }
  registry.providers[registry.count] = provider;
  ++registry.count;
}

void QXGetVersions(qxostream& out) {
  if (BUILD_ID[0] != '\0') {
    out << "Build ID: " << BUILD_ID << qxendl << qxendl;
  }
  const Registry& registry = Providers();
  std::vector<std::pair<std::string, std::string>> entries;
  entries.reserve(registry.count);
  for (unsigned long long i = 0; i < registry.count; ++i) {
    QXVersion v = registry.providers[i]();
    entries.emplace_back(v.group, v.component + " Version: " + v.version);
  }
  std::sort(entries.begin(), entries.end());
  std::string printedGroup;
  for (const auto& entry : entries) {
    if (entry.first != printedGroup) {
      if (!printedGroup.empty()) {
        out << qxendl;
      }
      printedGroup = entry.first;
      out << "========== " << printedGroup << " ========== " << qxendl;
    }
    out << entry.second << qxendl;
  }
}

std::string QXToolkitsGetRelease() { return kRelease; }

}  // namespace QXPlatform

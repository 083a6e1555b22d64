// System information: the version registry and its report, the release
// string, host, machine and user facts, the scratch threshold and memory use.

#include <string>

#include <QXPlatform/QXPlatform.h>

using namespace QXPlatform;

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    qxerr << "system_info: failed: " << what << qxendl;
    ++failures;
  }
}

// A toolkit library registers one provider per component, normally from a
// static initialiser; providers are called each time a report is made.
QXVersion ReaderVersion() { return QXVersion("Alpha", "reader", "1.2"); }
QXVersion CoreVersion() { return QXVersion("Alpha", "core", "1.0"); }
QXVersion PlotVersion() { return QXVersion("Beta", "plot", "0.9"); }

}  // namespace

int main() {
  QXRegisterVersion(ReaderVersion);
  QXRegisterVersion(PlotVersion);
  QXRegisterVersion(CoreVersion);
  BUILD_ID = "example build";

  // Sections sorted by group, lines sorted within a group, an empty line
  // between sections. Deliberate: each heading ends with a blank before the
  // line end.
  qxosstream report;
  QXGetVersions(report);
  Check(report.str() ==
            "Build ID: example build\n"
            "\n"
            "========== Alpha ========== \n"
            "core Version: 1.0\n"
            "reader Version: 1.2\n"
            "\n"
            "========== Beta ========== \n"
            "plot Version: 0.9\n",
        "version report");
  Check(QXToolkitsGetRelease() == "2026.1.0", "release");

  // Machine and user facts are computed on each call; host name, domain and
  // address once per process. Missing answers are empty (or null).
  Check(QXGetNumProcessors() >= 1, "processors");
  Check(!QXGetPlatformInfo().empty() && !QXGetProcessorInfo().empty(),
        "platform and processor");
  Check(QXGetMachineName().empty(), "machine name is always empty");
  const char* host = QXGetHostName();
  const unsigned char* address = QXGetIPAddress();

  // Splitting qualified names.
  char part[64];
  QXSplitHostName(part, "alpha.beta.gamma");
  Check(std::string(part) == "alpha", "host part");
  Check(QXSplitDomainName(part, "alpha.beta.gamma") &&
            std::string(part) == "beta.gamma",
        "domain part");

  // The scratch threshold accepts 0 to 4096 bytes.
  Check(QXGetAllocaThreshold() == 1024, "default threshold");
  QXSetAllocaThreshold(2048);
  Check(QXGetAllocaThreshold() == 2048, "threshold set");

  unsigned long virtualBytes = 0, residentBytes = 0;
  Check(QXGetProcessMemUsage(virtualBytes, residentBytes) == 0 &&
            residentBytes > 0 && virtualBytes >= residentBytes,
        "memory use");

  if (failures != 0) {
    return 1;
  }
  qxout << "system_info: host " << (host != nullptr ? host : "(none)")
        << ", IPv4 " << (address != nullptr ? "known" : "(none)") << ", "
        << QXGetNumProcessors() << " processors, " << QXGetPlatformInfo()
        << qxendl;
  qxout << "system_info: all checks passed" << qxendl;
  return 0;
}

#include <sys/utsname.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

// Standard output of a command without its final line end.
std::string CommandLine(const std::string& command) {
  std::string out;
  EXPECT_EQ(testing::RunCommand(command, &out), 0) << command;
  while (!out.empty() && out.back() == '\n') {
    out.pop_back();
  }
  return out;
}

TEST(QXMachineTest, ProcessorInfoIsTheHardwareNameThatUnameReports) {
  EXPECT_EQ(QXGetProcessorInfo(), CommandLine("uname -m"));
  EXPECT_FALSE(QXGetProcessorInfo().empty());
}

TEST(QXMachineTest, MachineNameIsAlwaysEmpty) {
  EXPECT_EQ(QXGetMachineName(), "");
}

TEST(QXMachineTest, UserNameIsTheLoginNameOfTheRealUser) {
  EXPECT_EQ(QXGetUserName(), CommandLine("id -run"));
}

TEST(QXMachineTest, NumProcessorsIsTheNumberOfProcessorsOnline) {
  EXPECT_EQ(QXGetNumProcessors(),
            std::stoi(CommandLine("getconf _NPROCESSORS_ONLN")));
  EXPECT_GT(QXGetNumProcessors(), 0);
}

TEST(QXMachineTest,
     PlatformInfoIsTheSystemOrDistributionNameAndTheKernelRelease) {
  // The distribution line, when this machine has one, as a shell reads it.
  std::string description = CommandLine(
      "test -r /etc/lsb-release && sed -n "
      "'s/^DISTRIB_DESCRIPTION=\\(..*\\)$/\\1/p' /etc/lsb-release | tail -n 1 "
      "|| true");
  if (description.empty()) {
    description = CommandLine("uname -s");
  }
  EXPECT_EQ(QXGetPlatformInfo(),
            description + " (" + CommandLine("uname -r") + ")");
}

}  // namespace
}  // namespace QXPlatform

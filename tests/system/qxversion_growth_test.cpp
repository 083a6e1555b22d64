// Registers more providers than the first capacity of the registry holds.

#include <stdio.h>

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

const int kProviders = 2100;

// Component names sort in registration order: "c0000", "c0001", ...
std::string ComponentName(int n) {
  char name[16];
  snprintf(name, sizeof(name), "c%04d", n);
  return name;
}

template <int N>
QXVersion Numbered() {
  return QXVersion("Growth", ComponentName(N), std::to_string(N));
}

template <int... N>
void RegisterAll(std::integer_sequence<int, N...>) {
  QXVersion (*const providers[])() = {Numbered<N>...};
  for (QXVersion (*provider)() : providers) {
    QXRegisterVersion(provider);
  }
}

TEST(QXVersionTest, RegistryGrowingPastEachCapacityKeepsEveryProvider) {
  const char* saved = BUILD_ID;
  BUILD_ID = "";
  RegisterAll(std::make_integer_sequence<int, kProviders>());
  qxosstream out;
  QXGetVersions(out);
  BUILD_ID = saved;

  std::string expected = "========== Growth ========== \n";
  for (int n = 0; n < kProviders; ++n) {
    expected += ComponentName(n) + " Version: " + std::to_string(n) + "\n";
  }
  EXPECT_EQ(out.str(), expected);
}

}  // namespace
}  // namespace QXPlatform

// Run by run_in_namespace.sh with the setup "plain": a network namespace of
// its own where the tests add and remove interfaces with ip(8).

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include "support/qxtest_system.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

// An interface made for one test and deleted after it.
class Interface {
 public:
  explicit Interface(const std::string& name) : _name(name) {}
  ~Interface() { testing::RunCommand("ip link del " + _name + " 2>/dev/null"); }
  Interface(const Interface&) = delete;
  Interface& operator=(const Interface&) = delete;

 private:
  std::string _name;
};

// A veth pair: name is Ethernet with the given hardware address.
::testing::AssertionResult AddEthernet(const std::string& name,
                                       const std::string& address) {
  std::string command = "ip link add " + name + " type veth peer name " + name +
                        "p && ip link set " + name + " address " + address +
                        " && ip link set " + name + " up";
  if (testing::RunCommand(command) != 0) {
    return ::testing::AssertionFailure() << "failed: " << command;
  }
  return ::testing::AssertionSuccess();
}

class QXHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why = testing::NamespaceMismatch("plain");
    if (!why.empty()) {
      GTEST_SKIP() << why;
    }
  }
};

TEST_F(QXHostTest, HostIdentIsZeroWithOnlyLoopback) {
  EXPECT_EQ(QXGetHostIdent(), 0);
}

TEST_F(QXHostTest, HostIdentOfEthernetEn0IsItsFirstFourAddressBytes) {
  Interface en0("en0");
  ASSERT_TRUE(AddEthernet("en0", "02:11:22:33:44:55"));
  EXPECT_EQ(QXGetHostIdent(), 0x02112233L);
}

TEST_F(QXHostTest, HostIdentWithHighFirstByteIsAPositive32BitValue) {
  Interface en0("en0");
  ASSERT_TRUE(AddEthernet("en0", "fe:dc:ba:98:76:54"));
  EXPECT_EQ(QXGetHostIdent(), 0xfedcba98L);
}

TEST_F(QXHostTest, HostIdentWithEn1AloneIsZero) {
  Interface en1("en1");
  ASSERT_TRUE(AddEthernet("en1", "02:11:22:33:44:55"));
  EXPECT_EQ(QXGetHostIdent(), 0);
}

TEST_F(QXHostTest, HostIdentIgnoresNamesThatOnlyResembleEn0) {
  Interface en00("en00");
  Interface en("en");
  Interface upper("EN0");
  ASSERT_TRUE(AddEthernet("en00", "02:11:22:33:44:55"));
  ASSERT_TRUE(AddEthernet("en", "02:11:22:33:44:56"));
  ASSERT_TRUE(AddEthernet("EN0", "02:11:22:33:44:57"));
  EXPECT_EQ(QXGetHostIdent(), 0);
}

TEST_F(QXHostTest, HostIdentFindsEn0AmongOtherInterfaces) {
  Interface en1("en1");
  Interface en0("en0");
  Interface en2("en2");
  ASSERT_TRUE(AddEthernet("en1", "02:99:99:99:99:01"));
  ASSERT_TRUE(AddEthernet("en0", "0a:0b:0c:0d:0e:0f"));
  ASSERT_TRUE(AddEthernet("en2", "02:99:99:99:99:02"));
  EXPECT_EQ(QXGetHostIdent(), 0x0a0b0c0dL);
}

TEST_F(QXHostTest, HostIdentOfEn0ThatIsNotEthernetIsZero) {
  Interface en0("en0");
  ASSERT_EQ(testing::RunCommand("ip tuntap add en0 mode tun"), 0);
  EXPECT_EQ(QXGetHostIdent(), 0);
}

TEST_F(QXHostTest, HostIdentOfLoopbackRenamedEn0IsZero) {
  // A loopback device keeps its type under another name and takes a
  // six-byte address, so only the type rule keeps it out.
  ASSERT_EQ(testing::RunCommand("ip link set lo down && ip link set lo name "
                                "en0 && ip link set en0 address "
                                "02:11:22:33:44:55"),
            0);
  long ident = QXGetHostIdent();
  EXPECT_EQ(testing::RunCommand("ip link set en0 name lo && ip link set lo up"),
            0);
  EXPECT_EQ(ident, 0);
}

TEST_F(QXHostTest, HostIdentFollowsChangesBecauseItIsNotCached) {
  Interface en0("en0");
  ASSERT_TRUE(AddEthernet("en0", "02:11:22:33:44:55"));
  EXPECT_EQ(QXGetHostIdent(), 0x02112233L);
  ASSERT_EQ(testing::RunCommand("ip link set en0 address 02:44:33:22:11:00"),
            0);
  EXPECT_EQ(QXGetHostIdent(), 0x02443322L);
  ASSERT_EQ(testing::RunCommand("ip link del en0"), 0);
  EXPECT_EQ(QXGetHostIdent(), 0);
}

}  // namespace
}  // namespace QXPlatform

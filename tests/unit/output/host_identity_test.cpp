#include "output/host_identity.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "support/support.h"

namespace ov {
namespace {

void Execute(const std::string &command) { ASSERT_EQ(std::system(command.c_str()), 0) << command; }

// The sandbox has a loopback interface, up, and no other.
class HostIdentityTest : public testing::Test {
 protected:
  ~HostIdentityTest() override {
    Execute("for name in net0 net1; do ip link delete $name 2>/dev/null || true; done");
    Execute("ip link set lo up && hostname tc-0042");
  }

  // A pair of interfaces of which the first has the address. Both ends are still down.
  static void AddPair(const std::string &name, const std::string &address) {
    Execute("ip link add " + name + " type veth peer name " + name + "peer");
    Execute("ip address add " + address + "/24 dev " + name);
  }

  static void BringUp(const std::string &name) {
    Execute("ip link set " + name + " up && ip link set " + name + "peer up");
  }

  // An interface takes a moment to run after it was brought up.
  static std::string AddressOnceItIs(const std::string &expected) {
    std::string address;
    Eventually([&] {
      address = GetLocalIpAddress().toStdString();
      return address == expected;
    });
    return address;
  }
};

TEST_F(HostIdentityTest, LoopbackCountsBesideInterfacesThatAreDownOrHaveNoAddress) {
  const Temporarily tunnels(g_hardwareAddressesAreHidden);
  AddPair("net0", "192.168.1.20");  // down
  EXPECT_EQ(GetLocalIpAddress().toStdString(), "127.0.0.1");
}

TEST_F(HostIdentityTest, LastOfTwoRunningInterfacesWins) {
  AddPair("net0", "10.0.0.9");
  AddPair("net1", "10.0.1.2");
  BringUp("net0");
  EXPECT_EQ(AddressOnceItIs("10.0.0.9"), "10.0.0.9");
  BringUp("net1");
  EXPECT_EQ(AddressOnceItIs("10.0.1.2"), "10.0.1.2");
}

TEST_F(HostIdentityTest, InterfaceWithoutACarrierIsSkipped) {
  AddPair("net0", "192.168.1.20");
  BringUp("net0");
  EXPECT_EQ(AddressOnceItIs("192.168.1.20"), "192.168.1.20");
  Execute("ip link set net0peer down");
  EXPECT_EQ(AddressOnceItIs("127.0.0.1"), "127.0.0.1");
}

TEST_F(HostIdentityTest, InterfaceWithOnlyAnIpv6AddressIsSkipped) {
  AddPair("net0", "192.168.1.20");
  Execute("ip address add fd00::20/64 dev net0 nodad");
  BringUp("net0");
  EXPECT_EQ(AddressOnceItIs("192.168.1.20"), "192.168.1.20");
  Execute("ip address del 192.168.1.20/24 dev net0");
  EXPECT_EQ(GetLocalIpAddress().toStdString(), "127.0.0.1");
}

TEST_F(HostIdentityTest, AddressIsEmptyWithoutAWordWhenEveryInterfaceIsDown) {
  Execute("ip link set lo down");
  EXPECT_EQ(OutputOf([] { EXPECT_EQ(GetLocalIpAddress().toStdString(), ""); }), (Output{"", ""}));
}

TEST_F(HostIdentityTest, FailureToListTheInterfacesIsReportedAndGivesNoAddress) {
  const Output output = OutputOf([] {
    const NoMoreDescriptors none;
    EXPECT_EQ(GetLocalIpAddress().toStdString(), "");
  });
  EXPECT_EQ(output, (Output{"", "getifaddrs: Too many open files\n"}));
}

TEST_F(HostIdentityTest, EachLookUpSeesTheAddressAndTheNameOfNow) {
  const HostIdentity before = LookUpHostIdentity();
  EXPECT_EQ(before.address.toStdString() + " " + before.name.toStdString(), "127.0.0.1 tc-0042");
  ASSERT_EQ(sethostname("renamed", std::strlen("renamed")), 0);
  Execute("ip link set lo down");
  const HostIdentity after = LookUpHostIdentity();
  EXPECT_EQ(after.address.toStdString() + " " + after.name.toStdString(), " renamed");
}

}  // namespace
}  // namespace ov

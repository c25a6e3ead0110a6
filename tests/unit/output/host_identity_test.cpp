#include "output/host_identity.h"

#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "support/descriptors.h"
#include "support/output.h"
#include "support/polling.h"

namespace {

bool hardwareAddressesAreHidden = false;

}  // namespace

// The names that the linker makes of the wrapped function's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
int __real_getifaddrs(ifaddrs **list);

int __wrap_getifaddrs(ifaddrs **list) {
  const int result = __real_getifaddrs(list);
  if (result == 0 && hardwareAddressesAreHidden) {
    for (ifaddrs *entry = *list; entry != nullptr; entry = entry->ifa_next) {
      if (entry->ifa_addr->sa_family == AF_PACKET) {
        entry->ifa_addr = nullptr;
      }
    }
  }
  return result;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace ov {
namespace {

// The sandbox has a loopback interface, up, and no other.
class HostIdentityTest : public testing::Test {
 protected:
  static void Run(const std::string &command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
  }

  // A pair of interfaces of which the first has the address. Both ends are still down.
  static void AddPair(const std::string &name, const std::string &address) {
    Run("ip link add " + name + " type veth peer name " + name + "peer");
    Run("ip address add " + address + "/24 dev " + name);
  }

  static void BringUp(const std::string &name) {
    Run("ip link set " + name + " up && ip link set " + name + "peer up");
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

TEST_F(HostIdentityTest, LoopbackCountsWhenNothingElseIsUp) {
  EXPECT_EQ(GetLocalIpAddress().toStdString(), "127.0.0.1");
}

TEST_F(HostIdentityTest, NetworkInterfaceWinsOverTheLoopback) {
  AddPair("net0", "192.168.1.20");
  BringUp("net0");
  EXPECT_EQ(AddressOnceItIs("192.168.1.20"), "192.168.1.20");
}

TEST_F(HostIdentityTest, LastOfTwoNetworkInterfacesWins) {
  AddPair("net0", "10.0.0.9");
  AddPair("net1", "10.0.1.2");
  BringUp("net0");
  BringUp("net1");
  EXPECT_EQ(AddressOnceItIs("10.0.1.2"), "10.0.1.2");
}

TEST_F(HostIdentityTest, InterfaceThatIsDownIsSkipped) {
  AddPair("net0", "192.168.1.20");
  EXPECT_EQ(GetLocalIpAddress().toStdString(), "127.0.0.1");
}

TEST_F(HostIdentityTest, InterfaceWithoutACarrierIsSkipped) {
  AddPair("net0", "192.168.1.20");
  BringUp("net0");
  AddressOnceItIs("192.168.1.20");
  Run("ip link set net0peer down");
  EXPECT_EQ(AddressOnceItIs("127.0.0.1"), "127.0.0.1");
}

TEST_F(HostIdentityTest, InterfaceWithOnlyAnIpv6AddressIsSkipped) {
  AddPair("net0", "192.168.1.20");
  Run("ip address add fd00::20/64 dev net0 nodad");
  BringUp("net0");
  AddressOnceItIs("192.168.1.20");
  Run("ip address del 192.168.1.20/24 dev net0");
  EXPECT_EQ(GetLocalIpAddress().toStdString(), "127.0.0.1");
}

// A tunnel, as a VPN makes one, is listed so.
TEST_F(HostIdentityTest, EntryWithoutAnAddressIsSkipped) {
  hardwareAddressesAreHidden = true;
  const QString address = GetLocalIpAddress();
  hardwareAddressesAreHidden = false;
  EXPECT_EQ(address.toStdString(), "127.0.0.1");
}

TEST_F(HostIdentityTest, AddressIsEmptyWithEveryInterfaceDown) {
  Run("ip link set lo down");
  EXPECT_EQ(GetLocalIpAddress().toStdString(), "");
}

TEST_F(HostIdentityTest, FoundAddressPrintsNothing) {
  EXPECT_EQ(OutputOf([] { GetLocalIpAddress(); }), (Output{"", ""}));
}

TEST_F(HostIdentityTest, MissingAddressPrintsNothing) {
  Run("ip link set lo down");
  EXPECT_EQ(OutputOf([] { GetLocalIpAddress(); }), (Output{"", ""}));
}

TEST_F(HostIdentityTest, FailureToListTheInterfacesIsReported) {
  const Output output = OutputOf([] {
    const NoMoreDescriptors none;
    GetLocalIpAddress();
  });
  EXPECT_EQ(output, (Output{"", "getifaddrs: Too many open files\n"}));
}

TEST_F(HostIdentityTest, AddressIsEmptyAfterAFailureToListTheInterfaces) {
  QString address = QStringLiteral("unset");
  OutputOf([&] {
    const NoMoreDescriptors none;
    address = GetLocalIpAddress();
  });
  EXPECT_EQ(address.toStdString(), "");
}

TEST_F(HostIdentityTest, RefreshReplacesBothTexts) {
  QString address = QStringLiteral("old");
  QString name = QStringLiteral("old");
  RefreshHostIdentity(address, name);
  EXPECT_EQ((address + QLatin1Char(' ') + name).toStdString(), "127.0.0.1 tc-0042");
}

TEST_F(HostIdentityTest, RefreshSeesANewName) {
  QString address;
  QString name;
  RefreshHostIdentity(address, name);
  ASSERT_EQ(sethostname("renamed", std::strlen("renamed")), 0);
  RefreshHostIdentity(address, name);
  EXPECT_EQ(name.toStdString(), "renamed");
}

TEST_F(HostIdentityTest, RefreshEmptiesTheAddressWhenThereIsNone) {
  QString address = QStringLiteral("192.168.1.20");
  QString name;
  Run("ip link set lo down");
  RefreshHostIdentity(address, name);
  EXPECT_EQ((address + QLatin1Char(' ') + name).toStdString(), " tc-0042");
}

}  // namespace
}  // namespace ov

#include "output/collector_address.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include "support/support.h"

namespace ov {
namespace {

struct HostRow : Row {
  std::string host;
  std::int32_t port;
  std::string address;  // and port
  std::string printed;
};

class CollectorAddress : public testing::TestWithParam<HostRow> {};

TEST_P(CollectorAddress, IsResolved) {
  for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
    sockaddr_in address{};
    bool isFound = false;
    EXPECT_EQ(OutputOf([&] {
                isFound = ResolveCollector(QString::fromStdString(GetParam().host), GetParam().port,
                                           type, address);
              }),
              (Output{GetParam().printed, ""}));
    EXPECT_EQ(isFound, GetParam().printed.empty());
    EXPECT_EQ(address.sin_family, isFound ? AF_INET : AF_UNSPEC);
    EXPECT_EQ(inet_ntoa(address.sin_addr) + (":" + std::to_string(ntohs(address.sin_port))),
              GetParam().address);
  }
}

const HostRow kCollectorAddressRows[] = {
    {"DottedAddressIsTaken", "192.168.1.20", 0x1234, "192.168.1.20:4660", ""},
    {"NameIsLookedUp", "localhost", 514, "127.0.0.1:514", ""},
    {"PortAbove65535IsCutTo16Bits", "127.0.0.1", 65536 + 514, "127.0.0.1:514", ""},
    {"NegativePortIsCutTo16Bits", "127.0.0.1", 514 - 65536, "127.0.0.1:514", ""},
    {"Ipv6AddressFails", "::1", 514, "0.0.0.0:0",
     "Invalid IP address or hostname: Address family for hostname not supported\n"},
    {"EmptyHostFails", "", 514, "0.0.0.0:0",
     "Invalid IP address or hostname: Name or service not known\n"}};

INSTANTIATE_TEST_SUITE_P(Rows, CollectorAddress, testing::ValuesIn(kCollectorAddressRows),
                         OutcomeOf());

}  // namespace
}  // namespace ov

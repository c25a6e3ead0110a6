#include "output/collector_address.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstring>
#include <string>

#include "support/output.h"

namespace ov {
namespace {

// In an address with no zero byte, so that what is left over shows.
sockaddr_in UsedAddress() {
  sockaddr_in address;
  std::memset(&address, 'x', sizeof(address));
  return address;
}

std::string BytesOf(const sockaddr_in &address) {
  return {reinterpret_cast<const char *>(&address), sizeof(address)};
}

TEST(CollectorAddressTest, FillsAllSixteenBytes) {
  sockaddr_in address = UsedAddress();
  EXPECT_TRUE(ResolveCollector(QStringLiteral("192.168.1.20"), 0x1234, SOCK_DGRAM, address));
  const std::uint16_t family = AF_INET;
  EXPECT_EQ(BytesOf(address), std::string(reinterpret_cast<const char *>(&family), 2) +
                                  "\x12\x34\xC0\xA8\x01\x14" + std::string(8, '\0'));
}

TEST(CollectorAddressTest, ResolvesANameForStreams) {
  sockaddr_in address{};
  ResolveCollector(QStringLiteral("localhost"), 514, SOCK_STREAM, address);
  EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
}

TEST(CollectorAddressTest, FailureLeavesTheAddress) {
  sockaddr_in address = UsedAddress();
  OutputOf([&] { ResolveCollector(QStringLiteral("::1"), 514, SOCK_DGRAM, address); });
  EXPECT_EQ(BytesOf(address), BytesOf(UsedAddress()));
}

}  // namespace
}  // namespace ov

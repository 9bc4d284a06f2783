// The simulator's outputs: recorded sessions (write, read back, malformed
// input) and the multicast sender (address checks, and one loopback round
// trip to a socket joined on 127.0.0.1).
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "sim/MarketEngine.h"
#include "sim/MulticastSender.h"
#include "sim/Replay.h"
#include "utility/Platform.h"

using namespace velmar::sim;
namespace platform = velmar::platform;

namespace {

std::vector<Datagram> session(int steps) {
  MarketEngine engine;
  std::vector<Datagram> all;
  while (steps-- > 0) {
    for (Datagram& d : engine.step()) all.push_back(std::move(d));
  }
  return all;
}

}  // namespace

TEST(SimReplay, WhatIsWrittenReadsBackTheSame) {
  std::vector<Datagram> written = session(600);
  ASSERT_GT(written.size(), 600u);
  std::stringstream file;
  ReplayWriter writer(file);
  writer.comment("seed 1\nsecond line");
  for (const Datagram& d : written) writer.write(d);
  writer.flush();
  EXPECT_EQ(file.str().rfind("# vlmd feed recording 1\n", 0), 0u);
  EXPECT_NE(file.str().find("# seed 1 second line\n"), std::string::npos);

  ReplayReader reader(file);
  Datagram d;
  for (const Datagram& w : written) {
    ASSERT_TRUE(reader.next(&d)) << reader.error();
    ASSERT_EQ(d.timeUs, w.timeUs);
    ASSERT_EQ(d.bytes, w.bytes);
  }
  EXPECT_FALSE(reader.next(&d));
  EXPECT_EQ(reader.error(), "");
}

TEST(SimReplay, ReadsFilesWithWindowsLineEndsAndEitherCase) {
  {
    std::ofstream out("replay_test.txt", std::ios::binary);
    out << "# comment\r\n\r\n0 0A0b\r\n7 ff\r\n";
  }
  ReplayReader reader(std::string("replay_test.txt"));
  Datagram d;
  ASSERT_TRUE(reader.next(&d)) << reader.error();
  EXPECT_EQ(d.timeUs, 0);
  EXPECT_EQ(d.bytes, (Bytes{0x0A, 0x0B}));
  ASSERT_TRUE(reader.next(&d));
  EXPECT_EQ(d.timeUs, 7);
  EXPECT_EQ(d.bytes, (Bytes{0xFF}));
  EXPECT_FALSE(reader.next(&d));
  EXPECT_EQ(reader.error(), "");

  ReplayWriter writer(std::string("replay_test.txt"));
  ASSERT_TRUE(writer.ok());
  writer.write(5, d.bytes.data(), d.bytes.size());
  writer.flush();
  ReplayReader again(std::string("replay_test.txt"));
  ASSERT_TRUE(again.next(&d));
  EXPECT_EQ(d.timeUs, 5);

  ReplayReader missing(std::string("no_such_recording.txt"));
  EXPECT_FALSE(missing.next(&d));
  EXPECT_NE(missing.error().find("cannot open"), std::string::npos);
}

TEST(SimReplay, MalformedLinesStopWithTheirLineNumber) {
  struct Case {
    const char* text;
    const char* error;
  };
  const Case cases[] = {
      {"0 00\n5 abc\n", "line 2: odd or empty hex"},
      {"5 \n", "line 1: odd or empty hex"},
      {"x 00\n", "line 1: bad time 'x'"},
      {"-1 00\n", "line 1: bad time '-1'"},
      {"99999999999999999999 00\n", "line 1: bad time '99999999999999999999'"},
      {"5 0g\n", "line 1: bad hex digit"},
      {"#\n10 00\n9 00\n", "line 3: time goes back"},
      {"100\n", "line 1: expected '<time> <hex>'"},
      {" 00\n", "line 1: expected '<time> <hex>'"},
  };
  for (const Case& c : cases) {
    std::istringstream in(c.text);
    ReplayReader reader(in);
    Datagram d;
    while (reader.next(&d)) {
    }
    EXPECT_EQ(reader.error(), c.error) << c.text;
    EXPECT_FALSE(reader.next(&d)) << "an error stays";
  }
}

TEST(SimMulticast, OnlyScopedGroupsAndLoopback) {
  for (const char* good : {"239.255.0.1", "239.255.0.0", "239.255.255.255", "239.255.77.1"}) {
    EXPECT_EQ(checkGroup(good), "") << good;
  }
  for (const char* bad : {"239.254.255.255", "239.0.0.1", "224.0.0.1", "127.0.0.1", "8.8.8.8",
                          "255.255.255.255", "239.255.0", "239.255.0.1.", "239.255.0.256",
                          "239.255.0001.1", " 239.255.0.1", "239.255.0.1 ", "", "group"}) {
    EXPECT_NE(checkGroup(bad), "") << bad;
  }
  EXPECT_EQ(checkInterface("127.0.0.1"), "");
  for (const char* bad : {"127.0.0.2", "0.0.0.0", "192.168.1.1", "localhost", ""}) {
    EXPECT_NE(checkInterface(bad), "") << bad;
  }

  std::string host;
  uint16_t port = 0;
  EXPECT_TRUE(parseEndpoint("239.255.0.1:30001", &host, &port));
  EXPECT_EQ(host, "239.255.0.1");
  EXPECT_EQ(port, 30001);
  EXPECT_TRUE(parseEndpoint("239.255.0.1:65535", &host, &port));
  for (const char* bad : {"239.255.0.1", "239.255.0.1:", "239.255.0.1:0", "239.255.0.1:65536",
                          "239.255.0.1:3x", "239.255.0.1:-1", "239.255.0.1:1000000"}) {
    EXPECT_FALSE(parseEndpoint(bad, &host, &port)) << bad;
  }

  MulticastSender sender;
  std::string error;
  EXPECT_FALSE(sender.open("224.0.0.251", 30001, "127.0.0.1", &error));
  EXPECT_NE(error.find("239.255.0.0/16"), std::string::npos) << error;
  EXPECT_FALSE(sender.open("239.255.0.1", 30001, "0.0.0.0", &error));
  EXPECT_NE(error.find("127.0.0.1"), std::string::npos) << error;
  EXPECT_FALSE(sender.open("239.255.0.1", 0, "127.0.0.1", &error));
  EXPECT_FALSE(sender.isOpen());
  EXPECT_FALSE(sender.send(reinterpret_cast<const uint8_t*>("x"), 1));
}

// A socket joined to the group on 127.0.0.1 receives what the sender sends.
TEST(SimMulticast, LoopbackRoundTrip) {
  const char* kGroup = "239.255.77.1";
  platform::startupSockets();
  int fd = platform::createSocket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  ASSERT_GE(fd, 0);
  struct sockaddr_in local;
  std::memset(&local, 0, sizeof local);
  local.sin_family = AF_INET;
  local.sin_addr.s_addr = htonl(INADDR_ANY);
  local.sin_port = 0;  // the system picks the port
  ASSERT_EQ(platform::bindSocket(fd, reinterpret_cast<struct sockaddr*>(&local), sizeof local), 0);
  int length = sizeof local;
  ASSERT_EQ(platform::localAddress(fd, reinterpret_cast<struct sockaddr*>(&local), &length), 0);
  uint16_t port = ntohs(local.sin_port);

  struct ip_mreq join;
  std::memset(&join, 0, sizeof join);
  uint32_t group = 0;
  ASSERT_TRUE(parseIPv4(kGroup, &group));
  join.imr_multiaddr.s_addr = htonl(group);
  join.imr_interface.s_addr = htonl(INADDR_LOOPBACK);
  if (platform::setSocketOption(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &join, sizeof join) != 0) {
    int error = platform::lastSocketError();
    platform::closeSocket(fd);
    GTEST_SKIP() << "can't join a group on 127.0.0.1 here: " << platform::errorText(error);
  }

  MulticastSender sender;
  std::string error;
  ASSERT_TRUE(sender.open(kGroup, port, "127.0.0.1", &error)) << error;
  std::vector<Datagram> sent = session(40);
  sent.resize(5);
  for (const Datagram& d : sent) ASSERT_TRUE(sender.send(d.bytes.data(), d.bytes.size()));

  for (const Datagram& d : sent) {
    platform::PollFd p;
    std::memset(&p, 0, sizeof p);
    p.fd = fd;
    p.events = POLLIN;
    // A generous bound: the datagrams are already queued on loopback.
    ASSERT_EQ(platform::pollSockets(&p, 1, 5000), 1) << "nothing received";
    uint8_t buffer[5000];
    int n = platform::receiveFrom(fd, buffer, sizeof buffer, nullptr, nullptr);
    ASSERT_EQ(n, static_cast<int>(d.bytes.size()));
    EXPECT_EQ(Bytes(buffer, buffer + n), d.bytes);
  }
  platform::closeSocket(fd);
}

// The simulator's outputs: recorded sessions (round trip and malformed lines)
// and the address checks that keep its multicast sender on loopback. The
// sender's datagrams themselves are received by the end-to-end test.
#include <gtest/gtest.h>

#include <sstream>

#include "sim/MarketEngine.h"
#include "sim/MulticastSender.h"
#include "sim/Replay.h"

using namespace velmar::sim;

TEST(SimReplay, WhatIsWrittenReadsBackTheSame) {
  MarketEngine engine;
  std::vector<Datagram> written;
  for (int step = 0; step < 600; ++step) {
    for (Datagram& d : engine.step()) written.push_back(std::move(d));
  }
  std::stringstream file;
  ReplayWriter writer(file);
  writer.comment("seed 1\nsecond line");
  for (const Datagram& d : written) writer.write(d);
  writer.flush();
  EXPECT_EQ(file.str().rfind("# vlmd feed recording 1\n", 0), 0u);
  EXPECT_NE(file.str().find("\n# seed 1 second line\n"), std::string::npos);

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

// Reading stops at the first bad line, which the error names; an error stays.
TEST(SimReplay, LinesReadAndMalformedLines) {
  struct Case {
    const char* text;
    size_t datagrams;
    const char* error;
  } cases[] = {
      {"# comment\r\n\r\n0 0A0b\r\n7 ff\r\n", 2, ""},  // Windows line ends, either case
      {"0 00\n5 abc\n", 1, "line 2: odd or empty hex"},
      {"5 \n", 0, "line 1: odd or empty hex"},
      {"x 00\n", 0, "line 1: bad time 'x'"},
      {"-1 00\n", 0, "line 1: bad time '-1'"},
      {"99999999999999999999 00\n", 0, "line 1: bad time '99999999999999999999'"},
      {"5 0g\n", 0, "line 1: bad hex digit"},
      {"#\n10 00\n9 00\n", 1, "line 3: time goes back"},
      {"100\n", 0, "line 1: expected '<time> <hex>'"},
      {" 00\n", 0, "line 1: expected '<time> <hex>'"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    std::istringstream in(c.text);
    ReplayReader reader(in);
    Datagram d;
    size_t n = 0;
    while (reader.next(&d)) ++n;
    EXPECT_EQ(n, c.datagrams);
    EXPECT_EQ(reader.error(), c.error);
    EXPECT_FALSE(reader.next(&d));
  }
  std::istringstream in("7 0aFF\n");
  Datagram d;
  ASSERT_TRUE(ReplayReader(in).next(&d));
  EXPECT_EQ(d.timeUs, 7);
  EXPECT_EQ(d.bytes, (Bytes{0x0A, 0xFF}));
}

// Only groups of 239.255.0.0/16 and the interface 127.0.0.1 are accepted.
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
  for (const char* bad : {"239.255.0.1", "239.255.0.1:", "239.255.0.1:0", "239.255.0.1:65536",
                          "239.255.0.1:3x", "239.255.0.1:-1"}) {
    EXPECT_FALSE(parseEndpoint(bad, &host, &port)) << bad;
  }

  MulticastSender sender;
  std::string error;
  EXPECT_FALSE(sender.open("224.0.0.251", 30001, "127.0.0.1", &error));
  EXPECT_NE(error.find("239.255.0.0/16"), std::string::npos) << error;
  EXPECT_FALSE(sender.open("239.255.0.1", 30001, "0.0.0.0", &error));
  EXPECT_NE(error.find("127.0.0.1"), std::string::npos) << error;
  EXPECT_FALSE(sender.isOpen());
  EXPECT_FALSE(sender.send(reinterpret_cast<const uint8_t*>("x"), 1));
}

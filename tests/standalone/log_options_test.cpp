// The log options through a real Init: the folder and the level chosen before
// it hold, the level changes at once afterwards, the folder no more; and
// once a session runs, only the level may change.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "VLClientApi/MdApiImpl.h"
#include "VLClientApi/ProcessLog.h"
#include "VelmarMdApi.h"
#include "support/TempDir.h"
#include "utility/Logging.h"

using velmar::mdapi::MdApiImpl;
using velmar::utility::Logger;

namespace {

std::string filesIn(const std::string& folder) {
  std::string text;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error))
    text += velmar::testing::TempDir::readFile(entry.path().string());
  return text;
}

bool has(const std::string& text, const char* piece) {
  return text.find(piece) != std::string::npos;
}

}  // namespace

TEST(LogOptions, FolderAndLevelChosenBeforeInitHold) {
  std::error_code ignored;
  for (const char* folder : {"chosen", "log", "elsewhere"})
    std::filesystem::remove_all(folder, ignored);  // an earlier run's files prove nothing

  static velmar::mdapi::VelmarMdSpi spi;  // the session's threads use it to the end
  velmar::mdapi::VelmarMdApi* api = velmar::mdapi::VelmarMdApi::CreateMdUserApi("");
  api->RegisterSpi(&spi);
  ASSERT_EQ(api->SetOption("log.directory", "chosen/md/"), 0);
  ASSERT_EQ(api->SetOption("log.level", "warn"), 0);
  // No front: Init starts the log, then stops at the address.
  ASSERT_EQ(api->Init(), -115);
  EXPECT_EQ(Logger::logLevel(), Logger::WARN);
  LOG_INFO << "info at warn";
  LOG_WARN << "warn at warn";
  EXPECT_EQ(api->SetOption("log.directory", "elsewhere"), -302);  // the log runs

  ASSERT_EQ(api->SetOption("log.level", "info"), 0);
  LOG_INFO << "info at info";
  // Now a session that runs: nothing answers on port 1, and the feed group is
  // joined on loopback, where nothing sends.
  api->RegisterFront("tcp://127.0.0.1:1");
  api->RegisterMulticast("udp://239.255.42.9:30109");
  api->RegisterMulticastInterface("127.0.0.1");
  ASSERT_EQ(api->Init(), 0);
  EXPECT_EQ(Logger::logLevel(), Logger::INFO);  // not DEBUG
  EXPECT_EQ(api->SetOption("book.idle", "block"), -302);
  EXPECT_EQ(api->SetOption("log.level", "error"), 0);
  LOG_WARN << "warn at error";
  // No Release: a quit that comes before the loop has started looping is
  // lost, and Join would wait for ever. The session ends with the process.

  ASSERT_TRUE(velmar::mdapi::flushProcessLog(5.0));
  const std::string text = filesIn("chosen/md");
  EXPECT_FALSE(has(text, "info at warn")) << text;
  EXPECT_TRUE(has(text, "warn at warn")) << text;
  EXPECT_TRUE(has(text, "InValid front address")) << text;
  EXPECT_TRUE(has(text, "SetOption log.directory = elsewhere refused, -302")) << text;
  EXPECT_TRUE(has(text, "info at info")) << text;
  EXPECT_TRUE(has(text, "server begin to init")) << text;  // the second Init, at INFO
  EXPECT_FALSE(has(text, "DEBUG  ")) << text;
  EXPECT_FALSE(has(text, "warn at error")) << text;
  EXPECT_FALSE(std::filesystem::exists("log/md"));
  EXPECT_FALSE(std::filesystem::exists("elsewhere"));
}

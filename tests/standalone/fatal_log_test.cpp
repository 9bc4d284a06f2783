// The lines that explain the end of a process are in its log file: a FATAL
// line, and the lines just before it, reach the file before the abort rather
// than at the writer's next interval, which never comes.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "VelmarMdApi.h"
#include "support/TempDir.h"
#include "utility/Logging.h"

namespace {

// Every file the process log wrote into ./log/md, the folder Init uses.
std::string logText() {
  std::string text;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("log/md", error))
    text += velmar::testing::TempDir::readFile(entry.path().string());
  return text;
}

}  // namespace

TEST(FatalLogDeathTest, FatalLineAndThoseBeforeItAreInTheFile) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::error_code ignored;
  std::filesystem::remove_all("log/md", ignored);  // an earlier run's lines prove nothing
  EXPECT_DEATH(
      {
        // Init sets up the process log before it looks at the addresses.
        auto* api = velmar::mdapi::VelmarMdApi::CreateMdUserApi("");
        if (api->Init() != -115) return;
        LOG_INFO << "the line before";
        LOG_FATAL << "the end";
      },
      "the end");
  const std::string text = logText();
  EXPECT_NE(text.find("the line before"), std::string::npos) << text;
  EXPECT_NE(text.find("FATAL  "), std::string::npos) << text;
  EXPECT_NE(text.find("the end"), std::string::npos) << text;
}

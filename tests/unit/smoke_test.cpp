#include <gtest/gtest.h>

#include "VelmarMdApi.h"
TEST(Smoke, Version) {
  EXPECT_STREQ(velmar::mdapi::VelmarMdApi::GetVersion(), "VELMAR_API_V1.0.1");
}

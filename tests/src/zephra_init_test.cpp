// Tests of start-up's waiting slots: a full table refuses a slot instead of writing past its end.

#include "zephra_init.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "data/data_auth.h"
#include "loader/admin.h"
#include "support/framework_support.h"

namespace {

constexpr int kTableSize = 1024;

// Static: slots left in the table may be served by any later start-up in this process.
zp::Admin* g_slots[kTableSize + 1];

TEST(AttachRoot, FullTableRefusesTheSlotAndServesTheOthers) {
    ASSERT_EQ(zp::ppCD, nullptr);
    testing::internal::CaptureStderr();
    for (int i = 0; i < kTableSize; ++i) ASSERT_EQ(zp::AttachRoot(&g_slots[i]), 0) << i;
    EXPECT_EQ(zp::AttachRoot(&g_slots[0]), 0) << "a queued slot is not queued again";
    EXPECT_EQ(zp::AttachRoot(&g_slots[kTableSize]), -1);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("can't wait for init: all 1024 slots taken\n"), std::string::npos) << err;

    testing::internal::CaptureStderr();
    {
        kinefix_test::StartedFramework framework("zephra_init_test");
        ASSERT_NE(zp::ppCD, nullptr);
        EXPECT_EQ(g_slots[0], zp::ppCD);
        EXPECT_EQ(g_slots[kTableSize - 1], zp::ppCD);
        EXPECT_EQ(g_slots[kTableSize], nullptr);
    }
    testing::internal::GetCapturedStderr();
}

}  // namespace

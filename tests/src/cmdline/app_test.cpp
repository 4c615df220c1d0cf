// Tests of zp::App: the printed record, the logged setters and the data-store forwards.

#include "cmdline/app.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "core/testing_hooks.h"
#include "data/data_auth.h"
#include "loader/admin.h"
#include "support/framework_support.h"
#include "support/test_support.h"
#include "support/value_support.h"
#include "zephra_init.h"

namespace {

using zp::Value;

TEST(App, RecordPrintsStartUpNamesAndDataAndDataForwards) {
    // Start-up's process values; nothing else in this program reads them.
    zp::g_programPath = "/opt/kf/kinefix.bin";
    zp::g_programDir = "/opt/kf/";
    zp::g_programName = "kinefix";
    zp::App app;
    app.set_version("1.1.0");
    app.set_organization(app.default_organization());
    app.set_release("2026-11-23");
    app.set_describe("repairs videos");
    app.set_data("runs", kinefix_test::int_value(7));
    kinefix_test::TempDir dir;
    const std::string path = dir / "app.txt";
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    app.print(f);
    const std::string printed = kinefix_test::read_file(path);  // before fclose: flushed
    std::fclose(f);
    EXPECT_EQ(printed,
              "------------ [App] ------------\n"
              ">> app_name      = kinefix\n"
              ">> app_dir       = /opt/kf/\n"
              ">> app_filepath  = /opt/kf/kinefix.bin\n"
              ">> version       = 1.1.0\n"
              ">> organization  = Tavrik\n"
              ">> release_time  = 2026-11-23\n"
              ">> describe      = repairs videos\n"
              "   [data] runs = [i]7\n"
              "-------------------------------\n\n");

    const Value fallback = kinefix_test::int_value(-1);
    EXPECT_EQ(app.get_data("n", fallback, true).write(), "[i]-1");
    EXPECT_FALSE(app.remove_data("n"));
    EXPECT_TRUE(app.set_data("n", kinefix_test::value_of("[str:4][i]5"), "me"));
    EXPECT_EQ(app.get_data("n", fallback, true).write(), "[i]5");
    EXPECT_EQ(app.get_data("n", fallback, false).write(), "[str:4][i]5");
    EXPECT_FALSE(app.remove_data("n", "other"));
    EXPECT_TRUE(app.remove_data("n", "me"));
    EXPECT_FALSE(app.exist_data("n"));
}

// The setter lines go through the root's logger without any prefix.
TEST(App, SettersAreLoggedAtDebugLevel) {
    std::vector<std::string> lines;
    testing::internal::CaptureStderr();
    {
        kinefix_test::StartedFramework framework("app_test");
        zp::testing_hooks::log_sink() = [&](int& level, const char*& tag, const char*& text) {
            lines.push_back(std::to_string(level) + "|" + tag + "|" + text);
        };
        zp::App app;
        app.set_name("kinefix");
        app.set_display("KF");
        app.set_version("1.1");
        app.set_release(nullptr);
        app.set_organization("T");
        app.set_describe("d");
        EXPECT_STREQ(app.release(), "");
        zp::testing_hooks::log_sink() = nullptr;
    }
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(lines,
              (std::vector<std::string>{"5|zp|[App] name=kinefix\n", "5|zp|[App] display=KF\n",
                                        "5|zp|[App] version=1.1\n", "5|zp|[App] release=\n",
                                        "5|zp|[App] organization=T\n", "5|zp|[App] describe=d\n"}));
}

}  // namespace

// Tests of zp::App: the printed record, the logged setters and the data-store forwards.

#include "cmdline/app.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "data/data.h"
#include "data/data_auth.h"
#include "loader/admin.h"
#include "log/logger.h"
#include "support/test_support.h"
#include "zephra_init.h"

namespace {

using zp::Value;

std::string printed(zp::App& app) {
    FILE* f = std::tmpfile();
    EXPECT_NE(f, nullptr);
    if (!f) return std::string();
    app.print(f);
    std::rewind(f);
    std::string out;
    char buf[256];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    std::fclose(f);
    return out;
}

// Start-up's process values, replaced for one test.
struct ProgramNames {
    const std::string saved[3] = {zp::g_programPath, zp::g_programDir, zp::g_programName};
    ProgramNames(const char* path, const char* dir, const char* name) { set(path, dir, name); }
    ~ProgramNames() { set(saved[0], saved[1], saved[2]); }
    static void set(const std::string& path, const std::string& dir, const std::string& name) {
        zp::g_programPath = path;
        zp::g_programDir = dir;
        zp::g_programName = name;
    }
};

TEST(App, RecordPrintsStartUpNamesAndData) {
    ProgramNames names("/opt/kf/kinefix.bin", "/opt/kf/", "kinefix");
    zp::App app;
    app.set_name("Kinefix");
    app.set_version("1.1.0");
    app.set_release("2024-05-01 10:00");
    app.set_organization(app.default_organization());
    app.set_describe("video repair");
    Value v;
    v.set_int(7);
    app.set_data("runs", v);
    v.set_string("x");
    app.set_data("a", v);
    EXPECT_EQ(printed(app),
              "------------ [App] ------------\n"
              ">> app_name      = kinefix\n"
              ">> app_dir       = /opt/kf/\n"
              ">> app_filepath  = /opt/kf/kinefix.bin\n"
              ">> version       = 1.1.0\n"
              ">> organization  = Tavrik\n"
              ">> release_time  = 2024-05-01 10:00\n"
              ">> describe      = video repair\n"
              "   [data] a = [str:1]x\n"
              "   [data] runs = [i]7\n"
              "-------------------------------\n\n");
}

TEST(App, DataForwards) {
    zp::App app;
    Value def;
    def.set_string("none");
    EXPECT_EQ(app.get_data("missing", def, true).as_string(), "none");
    Value text;
    text.set_string("[i]12");
    EXPECT_TRUE(app.set_data("n", text, "me"));
    EXPECT_EQ(app.get_data("n", def, false).as_string(), "[i]12");
    EXPECT_EQ(app.get_data("n", def, true).as_int(), 12);
    EXPECT_FALSE(app.remove_data("n", "someone else"));
    EXPECT_TRUE(app.remove_data("n", "me"));
    EXPECT_FALSE(app.exist_data("n"));
}

// The setter lines go through the root's logger without any prefix.
TEST(App, SettersAreLoggedAtDebugLevel) {
    kinefix_test::TempDir home;
    for (const auto& kv : kinefix_test::isolated_env(home))
        setenv(kv.first.c_str(), kv.second.c_str(), 1);
    const std::string prog = home / "app_test";
    char* argv[] = {const_cast<char*>(prog.c_str()), nullptr};
    testing::internal::CaptureStderr();
    zp::InitFramework(1, argv);
    testing::internal::GetCapturedStderr();

    std::vector<std::string> lines;
    zp::Logger::sink() = [&](int& level, const char*& tag, const char*& text) {
        lines.push_back(std::to_string(level) + "|" + tag + "|" + text);
    };
    {
        zp::App app;
        app.set_display("KF");
        app.set_describe("");
    }
    zp::Logger::sink() = nullptr;
    // The root only clears its data_auth view, leaving it to the process exit; free it here
    // so that the leak checker sees a clean test.
    ASSERT_NE(zp::ppCD->data_auth, nullptr);
    std::unique_ptr<zp::DataAuth> left(zp::ppCD->data_auth);
    testing::internal::CaptureStderr();
    zp::ShutdownFramework();
    testing::internal::GetCapturedStderr();

    EXPECT_EQ(lines, (std::vector<std::string>{"5|zp|[App] display=KF\n",
                                               "5|zp|[App] describe=\n"}));
}

}  // namespace

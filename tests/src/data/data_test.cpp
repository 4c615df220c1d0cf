// Tests of zp::Data and zp::DataAuth: owner rights, conversion and concurrent use.

#include "data/data.h"
#include "data/data_auth.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/test_support.h"
#include "support/value_support.h"

namespace {

using kinefix_test::int_value;
using zp::Value;

TEST(Data, OwnersChangeOnlyTheirOwnKeysCopiesConvertAndThreadsShareIt) {
    zp::Data data;
    zp::DataAuth alice(&data, "alice");
    zp::DataAuth bob(&data, "bob");
    EXPECT_TRUE(alice.set("k", int_value(1)));
    EXPECT_FALSE(bob.set("k", int_value(2)));
    EXPECT_FALSE(data.set("k", int_value(3)));  // no identity is no right either
    EXPECT_EQ(bob.get("k").as_int(), 1);        // but everyone reads
    EXPECT_FALSE(bob.remove("k"));
    EXPECT_TRUE(alice.remove("k"));
    // Once gone, the key is free for the next owner.
    EXPECT_TRUE(bob.set("k", int_value(5)));
    EXPECT_EQ(data.owner_of("k"), "bob");
    EXPECT_TRUE(data.set("open", int_value(1)));
    EXPECT_TRUE(alice.set("open", int_value(2)));  // a key set without identity is open
    EXPECT_FALSE(data.set("", int_value(1)));
    Value s = kinefix_test::value_of("[str:5][i]12");
    EXPECT_TRUE(data.set("s", s));
    s.set_string("plain words");
    EXPECT_EQ(data.convert(data.get("s")).write(), "[i]12");    // the stored copy, converted
    EXPECT_EQ(data.convert(s).write(), "[str:11]plain words");  // not a written value: kept

    zp::Data shared;
    constexpr int kThreads = 4, kKeys = 200;
    kinefix_test::on_threads(kThreads, [&shared](int t) {
        zp::DataAuth me(&shared, ("owner" + std::to_string(t)).c_str());
        for (int i = 0; i < kKeys; ++i) {
            const std::string own = "t" + std::to_string(t) + "." + std::to_string(i);
            EXPECT_TRUE(me.set(own.c_str(), int_value(i)));
            me.set("shared", int_value(t));
            me.get("shared");
        }
    });
    EXPECT_EQ(shared.size(), static_cast<size_t>(kThreads * kKeys + 1));
    // Contended key: only its first owner kept writing it.
    EXPECT_EQ("owner" + std::to_string(shared.get("shared").as_int()), shared.owner_of("shared"));
}

}  // namespace

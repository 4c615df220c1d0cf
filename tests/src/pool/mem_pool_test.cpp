// zp::Mem_Pool: limits, alignment, block growth, the large list, reset and cleanup order.
#include "pool/mem_pool.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

// Trace lines carry their terminating zero.
const std::string kNewBlock("call zrc_mem_block\n", 20);
const std::string kFromLarge("alloc from large\n", 18);
const std::string kFromBlock("alloc from current block\n", 26);

// A pool tracing into a temporary file.
class TracedPool {
  public:
    explicit TracedPool(size_t size) : pool(new zp::Mem_Pool(size, nullptr)) {
        pool->set_log(log_);
    }
    ~TracedPool() {
        pool.reset();
        fclose(log_);
    }
    std::string trace() {
        fflush(log_);
        std::string out(static_cast<size_t>(ftell(log_)), '\0');
        rewind(log_);
        out.resize(fread(&out[0], 1, out.size(), log_));
        fseek(log_, 0, SEEK_END);  // the pool writes next: no read may be pending
        return out;
    }
    size_t count(const std::string& line) {
        const std::string t = trace();
        size_t n = 0;
        for (size_t at = t.find(line); at != std::string::npos; at = t.find(line, at + 1)) ++n;
        return n;
    }
    // Allocates and touches every byte, so that ASan checks the bounds.
    uint8_t* fill(size_t n) {
        auto* p = static_cast<uint8_t*>(pool->alloc(n));
        return p != nullptr ? static_cast<uint8_t*>(memset(p, 0xA5, n)) : nullptr;
    }

    FILE* log_ = tmpfile();
    std::unique_ptr<zp::Mem_Pool> pool;
};

std::vector<int> g_calls;
void record(void* data) {
    g_calls.push_back(*static_cast<int*>(data));
}

TEST(MemPoolTest, BlockLimitGrowthLargeRecordReuseResetAndCleanup) {
    TracedPool big(16384);
    big.fill(2048);
    big.fill(2049);
    EXPECT_EQ(big.count(kFromLarge), 1u) << "the limit is the pool size capped at 2048";
    // A small pool's limit is its size, more than a block holds behind its header.
    TracedPool small(256);
    for (size_t n : {250u, 256u, 256u}) ASSERT_NE(small.fill(n), nullptr);
    EXPECT_EQ(small.count(kFromLarge), 0u);
    // 512-byte blocks: four 100-byte requests in the first, then four per further block.
    TracedPool pool(512);
    std::vector<uint8_t*> got;
    for (int i = 0; i < 33; ++i) got.push_back(pool.fill(100));
    // A block is passed over at its seventh failure, not before: the second still serves.
    const uintptr_t tail = reinterpret_cast<uintptr_t>(pool.fill(16));
    EXPECT_LT(tail - reinterpret_cast<uintptr_t>(got[4]), 512u);
    for (int i = 0; i < 7; ++i) got.push_back(pool.fill(100));
    for (uint8_t* p : got) EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
    EXPECT_EQ(pool.count(kNewBlock), 9u);
    EXPECT_EQ(zp::Mem_Pool(1024, nullptr).alloc(16), nullptr) << "no trace stream, no memory";
    // Freed large records are reused when found within five looks.
    TracedPool p(16384);
    std::vector<void*> records;
    for (int i = 0; i < 6; ++i) records.push_back(p.fill(3000));
    EXPECT_EQ(p.pool->free(p.fill(64)), 0) << "block memory is not freed";
    // The list is newest first: the oldest record is the sixth looked at, too far.
    ASSERT_EQ(p.pool->free(records[0]), 1);
    EXPECT_EQ(p.pool->free(records[0]), 0);
    std::string before = p.trace();
    ASSERT_NE(p.fill(3000), nullptr);
    EXPECT_EQ(p.trace(), before + kFromLarge + kFromBlock) << "a new record";
    ASSERT_EQ(p.pool->free(records[2]), 1);  // fifth, now that a new record went in front
    before = p.trace();
    ASSERT_NE(p.fill(3000), nullptr);
    EXPECT_EQ(p.trace(), before + kFromLarge) << "the freed record is taken again";

    // Reset rewinds the blocks and frees large memory (LeakSanitizer would see it kept); cleanup
    // handlers survive it and run newest first at the end, removed ones never.
    TracedPool r(256);
    std::vector<void*> first, again;
    for (int i = 0; i < 3; ++i) first.push_back(r.fill(150));
    void* large = r.fill(4000);
    r.pool->reset();
    EXPECT_EQ(r.pool->free(large), 0);
    for (int i = 0; i < 3; ++i) again.push_back(r.fill(150));
    EXPECT_EQ(again, first);
    EXPECT_EQ(r.count(kNewBlock), 2u);

    int a = 1, b = 2, c = 3;
    const zp::PoolCleanup removed = [](void*) { g_calls.push_back(0); };
    EXPECT_EQ(r.pool->add_cleanup(record, &a), 1);
    EXPECT_EQ(r.pool->add_cleanup(removed, &b), 1);
    EXPECT_EQ(r.pool->add_cleanup(record, &c), 1);
    EXPECT_EQ(r.pool->remove_cleanup(removed), 1);
    r.pool->reset();
    for (int i = 0; i < 8; ++i) r.fill(100);  // overwrite what a block held
    EXPECT_TRUE(g_calls.empty());
    r.pool.reset();
    EXPECT_EQ(g_calls, (std::vector<int>{3, 1}));
}

}  // namespace

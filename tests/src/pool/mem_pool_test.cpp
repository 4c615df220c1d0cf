// zp::Mem_Pool: limits, alignment, block growth, the failed-counter rule, the large list,
// reset and cleanup order.
#include "pool/mem_pool.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using zp::Mem_Pool;

// A pool tracing into a temporary file; `trace()` is everything traced so far.
class TracedPool {
  public:
    explicit TracedPool(size_t size) : log_(tmpfile()), pool_(new Mem_Pool(size, nullptr)) {
        pool_->set_log(log_);
    }
    ~TracedPool() {
        pool_.reset();
        fclose(log_);
    }
    Mem_Pool* operator->() { return pool_.get(); }
    void destroy() { pool_.reset(); }
    std::string trace() {
        fflush(log_);
        std::string out(static_cast<size_t>(ftell(log_)), '\0');
        rewind(log_);
        out.resize(fread(&out[0], 1, out.size(), log_));
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
        auto* p = static_cast<uint8_t*>(pool_->alloc(n));
        if (p != nullptr) memset(p, 0xA5, n);
        return p;
    }

  private:
    FILE* log_;
    std::unique_ptr<Mem_Pool> pool_;
};

// Trace lines carry their terminating zero.
const std::string kFromBlock("alloc from current block\n", 26);
const std::string kNewBlock("call zrc_mem_block\n", 20);
const std::string kFromLarge("alloc from large\n", 18);

TEST(MemPoolTest, BlockLimitIsPoolSizeCappedAt2048) {
    TracedPool big(16384);
    big.fill(2048);
    EXPECT_EQ(big.count(kFromLarge), 0u);
    big.fill(2049);
    EXPECT_EQ(big.count(kFromLarge), 1u);
    // A small pool's limit is its size, more than a block holds behind its header.
    TracedPool small(256);
    for (size_t n : {250u, 256u, 256u}) ASSERT_NE(small.fill(n), nullptr);
    EXPECT_EQ(small.count(kFromLarge), 0u);

    Mem_Pool no_log(1024, nullptr);
    EXPECT_EQ(no_log.alloc(16), nullptr);
}

TEST(MemPoolTest, FullBlocksAddBlocksOfThePoolSize) {
    TracedPool pool(512);
    std::vector<uint8_t*> ptrs;
    for (int i = 0; i < 40; ++i) {
        ptrs.push_back(pool.fill(100));
        ASSERT_NE(ptrs.back(), nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(ptrs.back()) % 16, 0u);
    }
    // 512-byte blocks: four 100-byte requests in the first, then four per further block.
    EXPECT_EQ(pool.count(kNewBlock), 9u);
}

// A 256-byte pool's first block keeps 16 free bytes after a 160-byte request; every further
// block holds two 100-byte requests. A block passed over six times is still searched, the
// seventh pass moves the search start past it.
TEST(MemPoolTest, BlockPassedOverMoreThanSixTimesLeavesTheSearch) {
    for (size_t blocks : {7u, 8u}) {
        TracedPool pool(256);
        uint8_t* p0 = pool.fill(160);
        while (pool.count(kNewBlock) < blocks) ASSERT_NE(pool.fill(100), nullptr);
        uint8_t* p = pool.fill(16);
        EXPECT_EQ(p >= p0 && p < p0 + 176, blocks == 7) << blocks;
    }
}

TEST(MemPoolTest, FreeReleasesLargeAllocationsAndTheirRecordsAreReused) {
    TracedPool pool(16384);
    void* small = pool.fill(64);
    std::vector<void*> big;
    for (int i = 0; i < 6; ++i) big.push_back(pool.fill(3000));
    EXPECT_EQ(pool->free(small), 0);
    EXPECT_EQ(pool->free(big[5]), 1);
    EXPECT_EQ(pool->free(big[5]), 0);
    std::string before = pool.trace();
    ASSERT_NE(pool.fill(6000), nullptr);
    EXPECT_EQ(pool.trace(), before + kFromLarge) << "the newest record is taken again";

    // The list is newest first and the search gives up after five records.
    ASSERT_EQ(pool->free(big[0]), 1);  // sixth
    before = pool.trace();
    ASSERT_NE(pool.fill(3000), nullptr);
    EXPECT_EQ(pool.trace(), before + kFromLarge + kFromBlock);
    ASSERT_EQ(pool->free(big[2]), 1);  // fifth, now that a new record went in front
    before = pool.trace();
    ASSERT_NE(pool.fill(3000), nullptr);
    EXPECT_EQ(pool.trace(), before + kFromLarge);
}

std::vector<int>* g_calls = nullptr;
void record(void* data) {
    g_calls->push_back(*static_cast<int*>(data));
}
void record_other(void* data) {
    g_calls->push_back(100 + *static_cast<int*>(data));
}

// Reset rewinds the blocks and frees large memory (LeakSanitizer would see it kept); cleanup
// handlers survive it and run newest first at the end, removed ones never.
TEST(MemPoolTest, ResetRewindsAndKeepsCleanupHandlers) {
    TracedPool pool(256);
    std::vector<void*> first;
    for (int i = 0; i < 3; ++i) first.push_back(pool.fill(150));
    void* big = pool.fill(4000);
    const size_t blocks = pool.count(kNewBlock);
    pool->reset();
    EXPECT_EQ(pool->free(big), 0);
    std::vector<void*> again;
    for (int i = 0; i < 3; ++i) again.push_back(pool.fill(150));
    EXPECT_EQ(again, first);
    EXPECT_EQ(pool.count(kNewBlock), blocks);

    std::vector<int> calls;
    g_calls = &calls;
    int a = 1, b = 2, c = 3;
    EXPECT_EQ(pool->add_cleanup(record, &a), 1);
    EXPECT_EQ(pool->add_cleanup(record_other, &b), 1);
    EXPECT_EQ(pool->add_cleanup(record, &c), 1);
    EXPECT_EQ(pool->remove_cleanup(record_other), 1);
    pool->reset();
    for (int i = 0; i < 8; ++i) pool.fill(100);  // overwrite what a block held
    EXPECT_TRUE(calls.empty());
    pool.destroy();
    EXPECT_EQ(calls, (std::vector<int>{3, 1}));
    g_calls = nullptr;
}

}  // namespace

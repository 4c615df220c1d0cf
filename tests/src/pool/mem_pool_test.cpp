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

// A pool with its trace stream in a temporary file.
class TracedPool {
  public:
    explicit TracedPool(size_t size) : log_(tmpfile()), pool_(new Mem_Pool(size, nullptr)) {
        pool_->set_log(log_);
    }
    ~TracedPool() {
        pool_.reset();
        if (log_ != nullptr) fclose(log_);
    }
    Mem_Pool& operator*() { return *pool_; }
    Mem_Pool* operator->() { return pool_.get(); }
    void destroy() { pool_.reset(); }

    // Everything traced so far, terminating zeros included.
    std::string trace() {
        fflush(log_);
        long n = ftell(log_);
        std::string out(static_cast<size_t>(n), '\0');
        rewind(log_);
        size_t got = fread(&out[0], 1, out.size(), log_);
        out.resize(got);
        fseek(log_, 0, SEEK_END);
        return out;
    }
    size_t count(const std::string& line) {
        std::string t = trace();
        size_t n = 0;
        for (size_t at = t.find(line); at != std::string::npos; at = t.find(line, at + 1)) ++n;
        return n;
    }

  private:
    FILE* log_;
    std::unique_ptr<Mem_Pool> pool_;
};

const std::string kFromBlock("alloc from current block\n", 26);
const std::string kNewBlock("call zrc_mem_block\n", 20);
const std::string kFromLarge("alloc from large\n", 18);

bool aligned16(const void* p) {
    return reinterpret_cast<uintptr_t>(p) % 16 == 0;
}

void* fill(void* p, size_t n) {
    if (p != nullptr) memset(p, 0xA5, n);  // touches every byte: ASan checks the bounds
    return p;
}

TEST(MemPoolTest, BlockLimitIsPoolSizeCappedAt2048) {
    TracedPool small(1024);
    EXPECT_EQ(small->max_block_alloc(), 1024u);
    TracedPool big(16384);
    EXPECT_EQ(big->max_block_alloc(), 2048u);

    fill(big->alloc(2048), 2048);
    EXPECT_EQ(big.count(kFromLarge), 0u);
    fill(big->alloc(2049), 2049);
    EXPECT_EQ(big.count(kFromLarge), 1u);
}

TEST(MemPoolTest, NoLogStreamMeansNoAllocation) {
    Mem_Pool pool(1024, nullptr);
    EXPECT_EQ(pool.alloc(16), nullptr);
    EXPECT_EQ(pool.alloc(4096), nullptr);
    EXPECT_EQ(pool.add_cleanup([](void*) {}, nullptr), -1);
}

TEST(MemPoolTest, FullBlocksAddBlocksOfThePoolSize) {
    TracedPool pool(512);
    std::vector<uint8_t*> ptrs;
    for (int i = 0; i < 40; ++i) {
        auto* p = static_cast<uint8_t*>(pool->alloc(100));
        ASSERT_NE(p, nullptr);
        EXPECT_TRUE(aligned16(p));
        fill(p, 100);
        ptrs.push_back(p);
    }
    // 512-byte blocks: four 100-byte requests in the first, then four per further block.
    EXPECT_EQ(pool.count(kNewBlock), 9u);
    for (size_t i = 0; i < ptrs.size(); ++i)
        for (size_t j = i + 1; j < ptrs.size(); ++j)
            EXPECT_TRUE(ptrs[j] >= ptrs[i] + 100 || ptrs[i] >= ptrs[j] + 100);
}

TEST(MemPoolTest, RequestsUpToTheLimitFitEvenInASmallPool) {
    // The limit equals the pool size, larger than what a block can hold behind its header.
    TracedPool pool(256);
    for (size_t n : {250u, 256u, 200u, 256u}) {
        void* p = pool->alloc(n);
        ASSERT_NE(p, nullptr);
        EXPECT_TRUE(aligned16(p));
        fill(p, n);
    }
    EXPECT_EQ(pool.count(kFromLarge), 0u);
}

// A 256-byte pool's first block keeps 16 free bytes after a 160-byte request; every further
// block holds two 100-byte requests. A block passed over six times is still searched, the
// seventh pass moves the search start past it.
TEST(MemPoolTest, BlockPassedOverMoreThanSixTimesLeavesTheSearch) {
    for (size_t blocks : {7u, 8u}) {
        TracedPool pool(256);
        auto* p0 = static_cast<uint8_t*>(pool->alloc(160));
        while (pool.count(kNewBlock) < blocks) ASSERT_NE(fill(pool->alloc(100), 100), nullptr);
        auto* p = static_cast<uint8_t*>(fill(pool->alloc(16), 16));
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(p >= p0 && p < p0 + 176, blocks == 7) << blocks;
    }
}

TEST(MemPoolTest, FreeReleasesOnlyLargeAllocationsAndReusesTheirRecord) {
    TracedPool pool(16384);
    void* small = pool->alloc(64);
    void* big = fill(pool->alloc(5000), 5000);
    ASSERT_NE(big, nullptr);
    // The large record itself comes from a block.
    EXPECT_EQ(pool.trace(), kFromBlock + kFromLarge + kFromBlock);

    EXPECT_EQ(pool->free(small), 0);
    EXPECT_EQ(pool->free(nullptr), 0);
    EXPECT_EQ(pool->free(big), 1);
    EXPECT_EQ(pool->free(big), 0);

    const std::string before = pool.trace();
    ASSERT_NE(fill(pool->alloc(6000), 6000), nullptr);
    EXPECT_EQ(pool.trace(), before + kFromLarge);  // no new record
}

TEST(MemPoolTest, LargeRecordSearchGivesUpAfterFive) {
    TracedPool pool(16384);
    std::vector<void*> big;
    for (int i = 0; i < 6; ++i) big.push_back(fill(pool->alloc(3000), 3000));
    // The list is newest first: the oldest record is the sixth looked at.
    ASSERT_EQ(pool->free(big[0]), 1);
    std::string before = pool.trace();
    ASSERT_NE(pool->alloc(3000), nullptr);
    EXPECT_EQ(pool.trace(), before + kFromLarge + kFromBlock);

    ASSERT_EQ(pool->free(big[2]), 1);  // fifth looked at now (a new record went in front)
    before = pool.trace();
    ASSERT_NE(pool->alloc(3000), nullptr);
    EXPECT_EQ(pool.trace(), before + kFromLarge);
}

TEST(MemPoolTest, ResetRewindsEveryBlockAndFreesLargeMemory) {
    TracedPool pool(256);
    std::vector<void*> first;
    for (int i = 0; i < 3; ++i) first.push_back(fill(pool->alloc(150), 150));
    ASSERT_EQ(pool.count(kNewBlock), 2u);
    void* big = fill(pool->alloc(4000), 4000);
    ASSERT_NE(big, nullptr);

    pool->reset();  // LeakSanitizer reports the large block if reset keeps it
    EXPECT_EQ(pool->free(big), 0);

    std::vector<void*> again;
    for (int i = 0; i < 3; ++i) again.push_back(fill(pool->alloc(150), 150));
    EXPECT_EQ(again, first);
    EXPECT_EQ(pool.count(kNewBlock), 2u);
}

std::vector<int>* g_calls = nullptr;
void record(void* data) {
    g_calls->push_back(*static_cast<int*>(data));
}
void record_twice(void* data) {
    g_calls->push_back(100 + *static_cast<int*>(data));
}

// Handlers run newest first at the end, removed ones never, and a reset keeps them.
TEST(MemPoolTest, CleanupHandlersRunNewestFirstAndSurviveReset) {
    std::vector<int> calls;
    g_calls = &calls;
    int a = 1, b = 2, c = 3;
    TracedPool pool(256);
    EXPECT_EQ(pool->add_cleanup(record, &a), 1);
    EXPECT_EQ(pool->add_cleanup(record_twice, &b), 1);
    EXPECT_EQ(pool->add_cleanup(record, &c), 1);
    EXPECT_EQ(pool->remove_cleanup(record_twice), 1);
    EXPECT_EQ(pool->remove_cleanup(record_twice), 0);
    pool->reset();
    for (int i = 0; i < 8; ++i) fill(pool->alloc(100), 100);  // overwrite what a block held
    EXPECT_TRUE(calls.empty());
    pool.destroy();
    EXPECT_EQ(calls, (std::vector<int>{3, 1}));
    g_calls = nullptr;
}

TEST(MemPoolTest, CreateGivesAnIndependentPoolWithTheSameOwner) {
    auto* owner = reinterpret_cast<zp::Admin*>(0x1000);
    FILE* log = tmpfile();
    Mem_Pool parent(1024, owner);
    parent.set_log(log);
    std::unique_ptr<zp::Abstract_MemPool> child(parent.create(4096));
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(child->owner(), owner);
    void* p = fill(child->alloc(1500), 1500);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(parent.free(p), 0);
    child.reset();
    fclose(log);
}

}  // namespace

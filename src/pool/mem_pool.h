#pragma once
// zp::Mem_Pool: a region allocator; small requests are carved from blocks, large ones are
// tracked on a list, everything is released together.

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "core/abstract_base.h"

namespace zp {

// Called with its data pointer when the pool is destroyed.
using PoolCleanup = void (*)(void* data);

class Abstract_MemPool : public Abstract_Base {
  public:
    using Abstract_Base::Abstract_Base;
    ~Abstract_MemPool() override = default;

    // 16-byte aligned block memory, or the heap's pointer above the block limit; null on
    // failure or when no log stream is set.
    virtual void* alloc(size_t size) = 0;
    // 1 when `p` was a large allocation (freed now), 0 otherwise; block memory stays.
    virtual int free(void* p) = 0;
    // Frees the large allocations and rewinds every block; the blocks are kept.
    virtual void reset() = 0;
    // Where the pool's trace lines go. Allocation needs one.
    virtual void set_log(FILE* log) = 0;
    // 1, or -1 when the pool cannot hold the record.
    virtual int add_cleanup(PoolCleanup handler, void* data) = 0;
    // Unlinks the first record with this handler without calling it: 1 found, 0 not.
    virtual int remove_cleanup(PoolCleanup handler) = 0;
    // A new pool of `size` bytes per block with the same owner (the caller deletes it).
    virtual Abstract_MemPool* create(size_t size) = 0;
};

class Mem_Pool : public Abstract_MemPool {
  public:
    static constexpr size_t kAlignment = 16;
    static constexpr size_t kMaxBlockAlloc = 2048;
    static constexpr size_t kPoolHeader = 72;
    static constexpr size_t kBlockHeader = 32;

    Mem_Pool(size_t size, Admin* owner);
    ~Mem_Pool() override;
    Mem_Pool(const Mem_Pool&) = delete;
    Mem_Pool& operator=(const Mem_Pool&) = delete;

    void* alloc(size_t size) override;
    int free(void* p) override;
    void reset() override;
    void set_log(FILE* log) override;
    int add_cleanup(PoolCleanup handler, void* data) override;
    int remove_cleanup(PoolCleanup handler) override;
    Abstract_MemPool* create(size_t size) override;

    // False when the first block could not be had.
    bool valid() const { return pool_ != nullptr; }
    // Requests up to this size are served from blocks.
    size_t max_block_alloc() const;

    struct Pool;

  private:
    Mem_Pool(size_t size, Admin* owner, FILE* log);

    Pool* pool_;
};

}  // namespace zp

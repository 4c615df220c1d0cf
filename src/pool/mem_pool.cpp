// zp::Mem_Pool: blocks with a bump pointer, a large-allocation list and cleanup handlers.
#include "pool/mem_pool.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace zp {

namespace {

struct Block {
    uint8_t* last;
    uint8_t* end;
    Block* next;
    uint64_t failed;
};

struct Large {
    void* alloc;
    Large* next;
};

struct Cleanup {
    PoolCleanup handler;
    void* data;
    Cleanup* next;
};

// The fit test looks at the unrounded free pointer, so an aligned request may run up to 15
// bytes past a block's end; every block is allocated with that much room behind it.
constexpr size_t kSlack = Mem_Pool::kAlignment;

static_assert(sizeof(Block) == Mem_Pool::kBlockHeader, "block header is four words");
static_assert(sizeof(Large) == 16 && sizeof(Cleanup) == 24, "record sizes");

// Trace lines carry their terminating zero into the stream.
void trace(FILE* log, const char* text) {
    if (log != nullptr) fwrite(text, 1, strlen(text) + 1, log);
}

void trace_failure(FILE* log, const char* who, const char* what) {
    char line[128];
    snprintf(line, sizeof(line), "%s %s\n", who, what);
    trace(log, line);
}

void* zrc_alloc(size_t size, FILE* log) {
    void* p = malloc(size);
    if (p == nullptr) trace_failure(log, "zrc_alloc", "malloc failed");
    return p;
}

// The alignment is not passed on: malloc's own 16-byte alignment is relied on.
void* zrc_memalign(size_t size, size_t /*alignment*/, FILE* log) {
    void* p = malloc(size);
    if (p == nullptr) trace_failure(log, "zrc_memalign", "memalign failed");
    return p;
}

uint8_t* align_up(uint8_t* p) {
    uintptr_t v = reinterpret_cast<uintptr_t>(p);
    v = (v + Mem_Pool::kAlignment - 1) & ~static_cast<uintptr_t>(Mem_Pool::kAlignment - 1);
    return reinterpret_cast<uint8_t*>(v);
}

}  // namespace

struct Mem_Pool::Pool {
    Block d;
    uint64_t max;
    Block* current;
    Large* large;
    Cleanup* cleanup;
    FILE* log;
};

static_assert(sizeof(Mem_Pool::Pool) == Mem_Pool::kPoolHeader, "pool header is nine words");

namespace {

using Pool = Mem_Pool::Pool;

uint8_t* pool_start(Pool* p) {
    return reinterpret_cast<uint8_t*>(p);
}
Block* first_block(Pool* p) {
    return &p->d;
}

Pool* create_pool(size_t size, FILE* log) {
    size_t bytes = (size < Mem_Pool::kPoolHeader ? Mem_Pool::kPoolHeader : size) + kSlack;
    auto* p = static_cast<Pool*>(zrc_memalign(bytes, Mem_Pool::kAlignment, log));
    if (p == nullptr) return nullptr;
    p->d.last = pool_start(p) + Mem_Pool::kPoolHeader;
    p->d.end = pool_start(p) + size;
    p->d.next = nullptr;
    p->d.failed = 0;
    p->max = size < Mem_Pool::kMaxBlockAlloc ? size : Mem_Pool::kMaxBlockAlloc;
    p->current = first_block(p);
    p->large = nullptr;
    p->cleanup = nullptr;
    p->log = log;
    return p;
}

// A new block of the pool's size, linked at the end; serves `size` bytes from its start.
void* alloc_block(Pool* p, size_t size) {
    size_t block_size = static_cast<size_t>(p->d.end - pool_start(p));
    // A request up to the limit must fit a fresh block even when the pool's own size is
    // smaller than the limit.
    if (block_size < Mem_Pool::kBlockHeader + size) block_size = Mem_Pool::kBlockHeader + size;
    auto* mem =
        static_cast<uint8_t*>(zrc_memalign(block_size + kSlack, Mem_Pool::kAlignment, p->log));
    if (mem == nullptr) return nullptr;

    Block* b = p->current != nullptr ? p->current : first_block(p);
    for (; b->next != nullptr; b = b->next) {
        if (b->failed++ > 5) p->current = b->next;
    }
    auto* nb = reinterpret_cast<Block*>(mem);
    b->next = nb;
    uint8_t* m = align_up(mem + Mem_Pool::kBlockHeader);
    nb->last = m + size;
    nb->end = mem + block_size;
    nb->next = nullptr;
    nb->failed = 0;
    if (p->current == nullptr) p->current = nb;
    return m;
}

void* alloc_small(Pool* p, size_t size, bool traced) {
    for (Block* b = p->current; b != nullptr; b = b->next) {
        uint8_t* m = align_up(b->last);
        if (b->end - b->last >= static_cast<int32_t>(size)) {
            b->last = m + size;
            if (traced) trace(p->log, "alloc from current block\n");
            return m;
        }
    }
    if (traced) trace(p->log, "call zrc_mem_block\n");
    return alloc_block(p, size);
}

void* alloc_large(Pool* p, size_t size) {
    trace(p->log, "alloc from large\n");
    void* mem = zrc_alloc(size, p->log);
    if (mem == nullptr) return nullptr;
    int seen = 0;
    for (Large* l = p->large; l != nullptr; l = l->next) {
        if (l->alloc == nullptr) {
            l->alloc = mem;
            return mem;
        }
        if (seen++ > 3) break;
    }
    auto* rec = static_cast<Large*>(alloc_small(p, sizeof(Large), true));
    if (rec == nullptr) {
        ::free(mem);
        return nullptr;
    }
    rec->alloc = mem;
    rec->next = p->large;
    p->large = rec;
    return mem;
}

void free_large(Pool* p) {
    for (Large* l = p->large; l != nullptr; l = l->next) {
        if (l->alloc != nullptr) ::free(l->alloc);
    }
}

}  // namespace

Mem_Pool::Mem_Pool(size_t size, Admin* owner) : Mem_Pool(size, owner, nullptr) {}

Mem_Pool::Mem_Pool(size_t size, Admin* owner, FILE* log)
    : Abstract_MemPool(owner), pool_(create_pool(size, log)) {}

Mem_Pool::~Mem_Pool() {
    Pool* p = pool_;
    if (p == nullptr) return;
    for (Cleanup* c = p->cleanup; c != nullptr; c = c->next) {
        if (c->handler != nullptr) c->handler(c->data);
    }
    free_large(p);
    Block* b = first_block(p);
    while (b != nullptr) {
        Block* next = b->next;
        ::free(b);
        b = next;
    }
    pool_ = nullptr;
}

void* Mem_Pool::alloc(size_t size) {
    Pool* p = pool_;
    if (p == nullptr || p->log == nullptr) return nullptr;
    if (size <= p->max) return alloc_small(p, size, true);
    return alloc_large(p, size);
}

int Mem_Pool::free(void* ptr) {
    if (pool_ == nullptr || ptr == nullptr) return 0;
    for (Large* l = pool_->large; l != nullptr; l = l->next) {
        if (l->alloc == ptr) {
            ::free(l->alloc);
            l->alloc = nullptr;
            return 1;
        }
    }
    return 0;
}

void Mem_Pool::reset() {
    Pool* p = pool_;
    if (p == nullptr) return;
    // Cleanup records live in pool memory that is about to be handed out again: keep the
    // handlers (newest first) and give them fresh records at the front of the rewound blocks.
    std::vector<Cleanup> kept;
    for (Cleanup* c = p->cleanup; c != nullptr; c = c->next) kept.push_back(*c);
    p->cleanup = nullptr;

    free_large(p);
    p->large = nullptr;

    p->d.last = pool_start(p) + kPoolHeader;
    for (Block* b = p->d.next; b != nullptr; b = b->next) {
        b->last = reinterpret_cast<uint8_t*>(b) + kBlockHeader;
    }

    for (auto it = kept.rbegin(); it != kept.rend(); ++it) {
        auto* c = static_cast<Cleanup*>(alloc_small(p, sizeof(Cleanup), false));
        if (c == nullptr) {
            // No room for the record: release the resource now rather than never.
            if (it->handler != nullptr) it->handler(it->data);
            continue;
        }
        c->handler = it->handler;
        c->data = it->data;
        c->next = p->cleanup;
        p->cleanup = c;
    }
}

void Mem_Pool::set_log(FILE* log) {
    if (pool_ != nullptr) pool_->log = log;
}

int Mem_Pool::add_cleanup(PoolCleanup handler, void* data) {
    auto* c = static_cast<Cleanup*>(alloc(sizeof(Cleanup)));
    if (c == nullptr) return -1;
    c->handler = handler;
    c->data = data;
    c->next = pool_->cleanup;
    pool_->cleanup = c;
    return 1;
}

int Mem_Pool::remove_cleanup(PoolCleanup handler) {
    if (pool_ == nullptr) return 0;
    for (Cleanup** link = &pool_->cleanup; *link != nullptr; link = &(*link)->next) {
        if ((*link)->handler == handler) {
            *link = (*link)->next;
            return 1;
        }
    }
    return 0;
}

Abstract_MemPool* Mem_Pool::create(size_t size) {
    // The new pool traces where this one does, so that it can allocate at once.
    return new Mem_Pool(size, owner_, pool_ != nullptr ? pool_->log : nullptr);
}

size_t Mem_Pool::max_block_alloc() const {
    return pool_ != nullptr ? pool_->max : 0;
}

}  // namespace zp

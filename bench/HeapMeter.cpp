// SPDX-License-Identifier: Apache-2.0
#include "HeapMeter.hpp"

#include "harness.hpp"

#include <malloc.h>
#include <atomic>
#include <cerrno>
#include <cstdlib>

// The C library's own functions, below the ones that programs call.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): their names
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace {

constinit std::atomic<std::size_t> g_held{0};
constinit std::atomic<std::size_t> g_most{0};

void* counted(void* block) noexcept {
    if (block != nullptr) {
        const auto size = ::malloc_usable_size(block);
        const auto held = g_held.fetch_add(size, std::memory_order_relaxed) + size;
        auto most = g_most.load(std::memory_order_relaxed);
        while (held > most && !g_most.compare_exchange_weak(most, held, std::memory_order_relaxed)) {
        }
    }
    return block;
}

void discount(void* block) noexcept {
    if (block != nullptr) {
        g_held.fetch_sub(::malloc_usable_size(block), std::memory_order_relaxed);
    }
}

}  // namespace

#define BENCH_INTERPOSE extern "C" __attribute__((visibility("default")))

BENCH_INTERPOSE void* malloc(std::size_t size) noexcept {
    return counted(__libc_malloc(size));
}

BENCH_INTERPOSE void* calloc(std::size_t count, std::size_t size) noexcept {
    return counted(__libc_calloc(count, size));
}

BENCH_INTERPOSE void* realloc(void* block, std::size_t size) noexcept {
    const auto former = block != nullptr ? ::malloc_usable_size(block) : 0;
    void* const moved = __libc_realloc(block, size);
    if (moved != nullptr || size == 0) {
        g_held.fetch_sub(former, std::memory_order_relaxed);
    }
    return counted(moved);
}

BENCH_INTERPOSE void* memalign(std::size_t alignment, std::size_t size) noexcept {
    return counted(__libc_memalign(alignment, size));
}

BENCH_INTERPOSE void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return counted(__libc_memalign(alignment, size));
}

BENCH_INTERPOSE int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
    *block = counted(__libc_memalign(alignment, size));
    return *block == nullptr ? ENOMEM : 0;
}

BENCH_INTERPOSE void free(void* block) noexcept {
    discount(block);
    __libc_free(block);
}

namespace bench {

std::size_t measureHeapGrowth(const std::function<void()>& call) {
    const auto measure = [](const std::function<void()>& measured) {
        const auto before = g_held.load();
        g_most = before;
        measured();
        return g_most.load() - before;
    };
    constexpr std::size_t kProof = 1234567;
    const auto seen = measure([] {
        // Called through a volatile pointer: the compiler may leave out what it sees being freed unused.
        void* (*volatile allocate)(std::size_t) = std::malloc;
        std::free(allocate(kProof));
    });
    require(seen >= kProof && seen < 2 * kProof, "the heap's growth cannot be seen");
    return measure(call);
}

}  // namespace bench

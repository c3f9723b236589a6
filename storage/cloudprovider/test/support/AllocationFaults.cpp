// SPDX-License-Identifier: Apache-2.0
#include "AllocationFaults.hpp"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace storage::cloudprovider::test {

namespace {

// Initialised without code: the first allocation may come before any of ours runs.
constinit thread_local std::size_t t_callsLeft = 0;  // 0: none will fail
constinit thread_local bool t_hasFailed = false;

bool isToFail() noexcept {
    if (t_callsLeft == 0 || --t_callsLeft != 0) {
        return false;
    }
    t_hasFailed = true;
    return true;
}

void* allocate(std::size_t size, std::align_val_t alignment) noexcept {
    if (isToFail()) {
        return nullptr;
    }
    void* block = nullptr;
    const auto multiple = std::max(static_cast<std::size_t>(alignment), sizeof(void*));  // posix_memalign takes no less
    return ::posix_memalign(&block, multiple, size == 0 ? 1 : size) == 0 ? block : nullptr;
}

void* allocate(std::size_t size) noexcept {
    return isToFail() ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* orThrow(void* block) {
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

void AllocationFaults::failNth(std::size_t nth) noexcept {
    t_callsLeft = nth;
}

void AllocationFaults::reset() noexcept {
    t_callsLeft = 0;
    t_hasFailed = false;
}

bool AllocationFaults::hasFailed() noexcept {
    return t_hasFailed;
}

}  // namespace storage::cloudprovider::test

// Every form is replaced: those of a sanitizer do not forward to one another.

using storage::cloudprovider::test::allocate;
using storage::cloudprovider::test::orThrow;

void* operator new(std::size_t size) {
    return orThrow(allocate(size));
}
void* operator new[](std::size_t size) {
    return orThrow(allocate(size));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return orThrow(allocate(size, alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return orThrow(allocate(size, alignment));
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size, alignment);
}

void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete[](void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}
void operator delete(void* block, std::align_val_t /*alignment*/) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::align_val_t /*alignment*/) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    std::free(block);
}
void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
    std::free(block);
}
void operator delete[](void* block, const std::nothrow_t& /*tag*/) noexcept {
    std::free(block);
}
void operator delete(void* block, std::align_val_t /*alignment*/, const std::nothrow_t& /*tag*/) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::align_val_t /*alignment*/, const std::nothrow_t& /*tag*/) noexcept {
    std::free(block);
}

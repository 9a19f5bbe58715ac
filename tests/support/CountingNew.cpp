// In a file of its own: where the compiler sees malloc behind new, it takes their pairs for a mistake.

#include "tests/support/CountingNew.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int allocations = 0;
thread_local std::size_t newestSize = 0;

} // namespace

int CountingNew::count() {
    return allocations;
}

std::size_t CountingNew::lastSize() {
    return newestSize;
}

void* operator new(std::size_t size) {
    ++allocations;
    newestSize = size;
    if (void* const block = std::malloc(size)) {
        return block;
    }
    throw std::bad_alloc();
}

// Without these the address sanitizer brings its own, which match nothing here.
void* operator new[](std::size_t size) {
    return operator new(size);
}

void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept {
    return std::malloc(size);
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}

void operator delete[](void* block) noexcept {
    std::free(block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}

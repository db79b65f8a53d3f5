#include "BrwTask/BrwOMFunctionState.h"

#include <new>

namespace Brw {

namespace {

constexpr std::size_t GRANULE = 16;
constexpr std::size_t LARGEST_POOLED = 1024;

struct FreeBlock {
    FreeBlock* fNext;
};

// One free list per size class, each block as large as its class; blocks are never returned to the
// heap, so the pool holds at most what the deepest chain of calls needed at once.
FreeBlock*& freeList(std::size_t size) {
    static FreeBlock* lists[LARGEST_POOLED / GRANULE + 1] = {};
    return lists[(size + GRANULE - 1) / GRANULE];
}

} // namespace

void* OMFunctionState::operator new(std::size_t size) {
    if (size > LARGEST_POOLED) {
        return ::operator new(size);
    }
    FreeBlock*& list = freeList(size);
    if (list == nullptr) {
        return ::operator new((size + GRANULE - 1) / GRANULE * GRANULE);
    }
    FreeBlock* block = list;
    list = block->fNext;
    return block;
}

void OMFunctionState::operator delete(void* memory, std::size_t size) {
    if (memory == nullptr) {
        return;
    }
    if (size > LARGEST_POOLED) {
        ::operator delete(memory);
        return;
    }
    auto* block = static_cast<FreeBlock*>(memory);
    block->fNext = freeList(size);
    freeList(size) = block;
}

} // namespace Brw

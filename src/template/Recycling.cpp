#include "template/Recycling.h"

#include <new>

namespace drovel::templating::recycling {

namespace {

// Sizes are rounded up to the granule; larger objects are not kept.
constexpr std::size_t granule = 16;
constexpr std::size_t largest = 1024;
// Under AddressSanitizer nothing is kept, so that it still sees every use of a freed tag or scope.
#if defined(__SANITIZE_ADDRESS__)
constexpr std::size_t keptPerSize = 0;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr std::size_t keptPerSize = 0;
#else
constexpr std::size_t keptPerSize = 8;
#endif
#else
constexpr std::size_t keptPerSize = 8;
#endif

std::size_t roundedUp(std::size_t size) { return (size + granule - 1) / granule * granule; }

// Blocks go back with the unsized delete: not every compiler enables sized deallocation by default.

class Cache {
public:
    Cache() = default;
    Cache(const Cache&) = delete;
    Cache& operator=(const Cache&) = delete;
    ~Cache() {
        for (List& list : lists_) {
            while (Block* block = list.head) {
                list.head = block->next;
                ::operator delete(block);
            }
        }
    }

    void* take(std::size_t size) {
        List& list = lists_[(size - 1) / granule];
        Block* block = list.head;
        if (!block) return ::operator new(roundedUp(size));
        list.head = block->next;
        --list.count;
        return block;
    }

    void give(void* memory, std::size_t size) {
        List& list = lists_[(size - 1) / granule];
        if (list.count == keptPerSize) {
            ::operator delete(memory);
            return;
        }
        list.head = ::new (memory) Block{list.head};
        ++list.count;
    }

private:
    struct Block {
        Block* next;
    };
    struct List {
        Block* head = nullptr;
        std::size_t count = 0;
    };
    List lists_[largest / granule];
};

// The thread's cache. Blocks freed after it ended (by objects that outlive it) go straight back
// to the allocator.
Cache* cacheOfThread() { return PerThread<Cache>::get(); }

}  // namespace

void* allocate(std::size_t size) {
    if (size == 0 || size > largest) return ::operator new(size);
    if (Cache* cache = cacheOfThread()) return cache->take(size);
    return ::operator new(roundedUp(size));
}

void release(void* block, std::size_t size) noexcept {
    if (size == 0 || size > largest) {
        ::operator delete(block);
        return;
    }
    if (Cache* cache = cacheOfThread()) cache->give(block, size);
    else ::operator delete(block);
}

}  // namespace drovel::templating::recycling

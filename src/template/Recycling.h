#pragma once
// Memory for the objects that a rendering makes and ends again and again: a tag for every tag
// statement it walks (once per loop pass), a scope for every block. Freed blocks are kept per
// thread, by size, for the next objects of that size instead of going back to the allocator each
// time. Only a few blocks of each size are kept; the rest go back. Builds with AddressSanitizer
// keep none, so that it still sees every use of freed memory.

#include <cstddef>

namespace drovel::templating {

namespace recycling {

void* allocate(std::size_t size);
void release(void* block, std::size_t size) noexcept;

}  // namespace recycling

// An allocator of recycled memory, for the containers that a rendering makes and ends again and
// again (a scope's statements).
template <class T>
struct RecyclingAllocator {
    using value_type = T;
    RecyclingAllocator() = default;
    template <class U>
    RecyclingAllocator(const RecyclingAllocator<U>&) {}
    T* allocate(std::size_t count) { return static_cast<T*>(recycling::allocate(count * sizeof(T))); }
    void deallocate(T* block, std::size_t count) noexcept { recycling::release(block, count * sizeof(T)); }
    friend bool operator==(const RecyclingAllocator&, const RecyclingAllocator&) { return true; }
};

// A T of the calling thread, made on first use and ended with the thread; null once it has
// ended, so that objects which outlive it (statics ended after the thread's objects) do without.
template <class T>
class PerThread {
public:
    static T* get() {
        if (current_ || ended_) return current_;
        thread_local Owner owner;
        return current_;
    }

private:
    struct Owner {
        T object;
        Owner() { current_ = &object; }
        ~Owner() {
            current_ = nullptr;
            ended_ = true;
        }
    };
    static inline thread_local T* current_ = nullptr;
    static inline thread_local bool ended_ = false;
};

// Derive from it to give a class, and the classes derived from it, recycled memory.
struct Recycled {
    static void* operator new(std::size_t size) { return recycling::allocate(size); }
    static void operator delete(void* block, std::size_t size) noexcept { recycling::release(block, size); }
};

}  // namespace drovel::templating

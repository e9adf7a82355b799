#pragma once
// A vector that keeps its first N elements inline, constructed only when pushed: expression
// components and filter arguments are almost always a handful, and rendering should not
// allocate (or build unused elements) for them.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <span>
#include <utility>
#include <vector>

namespace drovel::templating {

template <class T, std::size_t N>
class SmallVector {
public:
    SmallVector() = default;
    SmallVector(const SmallVector&) = delete;
    SmallVector& operator=(const SmallVector&) = delete;
    ~SmallVector() { std::destroy_n(inlineData(), std::min(size_, N)); }

    void push_back(T value) {
        if (size_ < N) {
            new (inlineData() + size_) T(std::move(value));
        } else {
            if (size_ == N) {
                spill_.reserve(2 * N);
                for (std::size_t i = 0; i < N; ++i) spill_.push_back(std::move(inlineData()[i]));
            }
            spill_.push_back(std::move(value));
        }
        ++size_;
    }
    // Appends an element made from `arguments` in place and returns it.
    template <class... Arguments>
    T& emplace_back(Arguments&&... arguments) {
        if (size_ < N) {
            T* made = new (inlineData() + size_) T(std::forward<Arguments>(arguments)...);
            ++size_;
            return *made;
        }
        push_back(T(std::forward<Arguments>(arguments)...));
        return spill_.back();
    }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    T* data() { return size_ <= N ? inlineData() : spill_.data(); }
    const T* data() const { return size_ <= N ? inlineData() : spill_.data(); }
    T& operator[](std::size_t i) { return data()[i]; }
    const T& operator[](std::size_t i) const { return data()[i]; }
    T* begin() { return data(); }
    T* end() { return data() + size_; }
    const T* begin() const { return data(); }
    const T* end() const { return data() + size_; }
    operator std::span<const T>() const { return {data(), size_}; }

private:
    T* inlineData() { return std::launder(reinterpret_cast<T*>(storage_)); }
    const T* inlineData() const { return std::launder(reinterpret_cast<const T*>(storage_)); }

    alignas(T) unsigned char storage_[N * sizeof(T)];
    std::vector<T> spill_;
    std::size_t size_ = 0;
};

}  // namespace drovel::templating

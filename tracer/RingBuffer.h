#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

namespace ZelTracer {

// A ring of T addressed by raw slot index. One slot always stays free, so a ring of capacity K
// holds at most K - 1 elements; callers address position r as (begin + r) % capacity.
template<class T> class RingBuffer
{
public:
    std::uint32_t begin = 0; // oldest element
    std::uint32_t end = 0; // next free slot

    virtual ~RingBuffer() = default;
    virtual void clear() { begin = end = 0; }
    virtual void push_back(T const& value) = 0;
    // Not guarded against an empty ring: callers must not pop one.
    virtual void pop_back()
    {
        end = end == 0 ? numberOfElements() - 1 : end - 1;
        if (begin == end)
            RingBuffer::clear();
    }
    virtual std::uint32_t size() const { return end >= begin ? end - begin : numberOfElements() + end - begin; }
    virtual std::uint32_t numberOfElements() const = 0;
    virtual bool empty() const { return begin == end; }
    virtual T& operator()(unsigned int i) = 0;
    virtual T const& operator()(unsigned int i) const = 0;

protected:
    // Moves end on by one and, when that meets begin, drops the oldest element.
    void advanceEnd()
    {
        const std::uint32_t capacity = numberOfElements();
        end = (end + 1) % capacity;
        if (end == begin)
            begin = (begin + 1) % capacity;
    }
};

// The display row: a position in the model's local record ring plus what the display made of it.
template<class T> struct RingBufferIterator
{
    std::uint32_t begin; // the record ring's read index, write index and capacity when the row was made
    std::uint32_t end;
    std::uint32_t capacity;
    std::uint32_t current; // the slot of the record this row shows
    RingBuffer<T>* ring;
    T* entry;
    std::uint64_t displayKind;
    std::uint64_t firstId;
    std::uint64_t repeatCount;
    double summedDuration;

    void reset() { *this = RingBufferIterator(); }
};

template<class T> class RingBufferLocalMem : public RingBuffer<T>
{
    static_assert(std::is_trivially_copyable_v<T>, "elements are copied and zeroed as plain bytes");

public:
    explicit RingBufferLocalMem(unsigned int capacity)
        : capacity(capacity)
        , data(new T[capacity]())
    { }

    // On an allocation failure the capacity becomes 0 and the old array stays, unused.
    void reset(unsigned int n)
    {
        T* fresh = new (std::nothrow) T[n]();
        if (fresh) {
            data.reset(fresh);
            capacity = n;
        } else {
            capacity = 0;
        }
        this->clear();
    }

    void push_back(T const& value) override
    {
        if (capacity == 0)
            return;
        data[this->end] = value;
        this->advanceEnd();
    }
    std::uint32_t numberOfElements() const override { return capacity; }
    T& operator()(unsigned int i) override { return data[i]; }
    T const& operator()(unsigned int i) const override { return data[i]; }

private:
    std::uint32_t capacity;
    std::unique_ptr<T[]> data;
};

} // namespace ZelTracer

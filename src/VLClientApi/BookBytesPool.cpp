#include "VLClientApi/BookBytesPool.h"

#include <new>

namespace velmar {
namespace mdapi {

BookBytesPool::BookBytesPool()
    : storage_(new char[kSlotSize * kSlots]), ring_(new uint32_t[kSlots]) {
  for (uint32_t i = 0; i < kSlots; ++i) ring_[i] = i;
}

char* BookBytesPool::take(size_t size) {
  if (spare_ != nullptr) {
    char* bytes = spare_;
    spare_ = nullptr;
    return bytes;
  }
  const uint64_t head = head_.load(std::memory_order_relaxed);
  // The book thread writes tail_ on every release, so reading it costs a
  // cache line from the other core; the receiver reads it again only when
  // the free slots it last saw are used up. Acquire: the index in the ring
  // and the book thread's last reads of that slot come before the slot is
  // written again.
  if (head == seenTail_) seenTail_ = tail_.load(std::memory_order_acquire);
  if (head != seenTail_) {
    const uint32_t index = ring_[head & kMask];
    head_.store(head + 1, std::memory_order_relaxed);
    return storage_.get() + static_cast<size_t>(index) * kSlotSize;
  }
  return new (std::nothrow) char[size];  // all slots in flight
}

void BookBytesPool::putBack(char* bytes) {
  if (bytes == nullptr) return;
  if (owns(bytes)) {
    spare_ = bytes;  // take handed out the spare first, so the place is free
  } else {
    delete[] bytes;
  }
}

void BookBytesPool::release(const char* bytes) {
  if (bytes == nullptr) return;
  if (!owns(bytes)) {
    delete[] bytes;
    return;
  }
  const uint32_t index = static_cast<uint32_t>((bytes - storage_.get()) / kSlotSize);
  // Every index is in the ring, in flight or the spare, so the ring never
  // holds more than kSlots and the cell written here was read long ago.
  const uint64_t tail = tail_.load(std::memory_order_relaxed);
  ring_[tail & kMask] = index;
  tail_.store(tail + 1, std::memory_order_release);
}

uint32_t BookBytesPool::freeSlots() const {
  return static_cast<uint32_t>(tail_.load(std::memory_order_acquire) -
                               head_.load(std::memory_order_relaxed)) +
         (spare_ != nullptr ? 1u : 0u);
}

}  // namespace mdapi
}  // namespace velmar

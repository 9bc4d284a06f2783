// Private bytes for the nodes of the book queue.
//
// A node points to the body of a received datagram, but the receiver reuses
// its receive buffer as soon as the handlers return, while the book thread may
// read the node much later. So the receiver copies the body's book bytes (at
// most kSlotSize) into bytes of the node's own before it queues the node, and
// the book thread gives them back when it has handled the node.
//
// The bytes come from a fixed set of slots. The free slots' indexes travel
// back to the receiver through a ring with one writer, the book thread, and
// one reader, the receiver thread; neither side ever waits on the other. In
// the steady state nothing is allocated, and memory stays at kSlots slots as
// long as the book thread keeps up. When every slot is in flight (a burst, or
// a slow OnRtnOrderBook holding the book thread), the receiver falls back to
// the heap for that node; release tells the two apart by address and frees
// heap bytes with delete[]. A slot goes back to the ring only after the book
// thread is done with it, so nothing is reused while it is still being read.
//
// Threads: take and putBack on the receiver thread only (the one producer of
// the queue), release on the book thread only (its one consumer). Calls on
// one side from different threads need a happens-before between them, as the
// one-producer, one-consumer queue itself does.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace velmar {
namespace mdapi {

class BookBytesPool {
 public:
  /// Large enough for the book bytes of any node kind (a snapshot's 361).
  static constexpr size_t kSlotSize = 384;
  /// Nodes that can be in flight before the heap is used. A power of two.
  static constexpr uint32_t kSlots = 1024;

  BookBytesPool();
  BookBytesPool(const BookBytesPool&) = delete;
  BookBytesPool& operator=(const BookBytesPool&) = delete;

  /// Receiver thread: bytes for one node, at least `size` of them (size must
  /// not exceed kSlotSize). A free slot if there is one, else new heap bytes;
  /// nullptr only if the heap has none either.
  char* take(size_t size);
  /// Receiver thread: gives back bytes from take that never reached the queue.
  void putBack(char* bytes);
  /// Book thread: gives back the bytes of a handled node. Null is ignored.
  void release(const char* bytes);

  /// True if the bytes are one of the pool's slots (for tests).
  bool owns(const char* bytes) const {
    return bytes >= storage_.get() && bytes < storage_.get() + kSlotSize * kSlots;
  }
  /// Free slots as the receiver sees them (for tests; exact when idle).
  uint32_t freeSlots() const;

 private:
  static constexpr uint32_t kMask = kSlots - 1;
  static_assert((kSlots & kMask) == 0, "kSlots must be a power of two");

  std::unique_ptr<char[]> storage_;
  std::unique_ptr<uint32_t[]> ring_;  // indexes of free slots
  /// Slot kept by the receiver after a failed enqueue; used first next time.
  char* spare_ = nullptr;
  /// Read position: receiver thread only.
  alignas(64) std::atomic<uint64_t> head_{0};
  /// tail_ as the receiver last read it: receiver thread only.
  uint64_t seenTail_ = 0;
  /// Write position: book thread only; starts full.
  alignas(64) std::atomic<uint64_t> tail_{kSlots};
};

}  // namespace mdapi
}  // namespace velmar

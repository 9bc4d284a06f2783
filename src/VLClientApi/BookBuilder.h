// BookBuilder: how books are built from Shenzhen messages. OrderBooks keeps
// the map, the queue and the lock; a builder knows only one book and one
// message body at a time. LevelBookBuilder is the one in use; another way of
// building books sits beside it as a second implementation.
//
// Threads: makeBook on the front thread, apply on the book thread; both with
// the session lock held, so a builder needs no lock of its own for state that
// only these two calls touch.
#pragma once

#include <cstdint>
#include <memory>

#include "VelmarMdStruct.h"

namespace velmar {
namespace mdapi {

class BookBuilder {
 public:
  virtual ~BookBuilder() = default;

  /// A new, empty book for a 16-byte instrument id, as a subscription
  /// answer enters it in the map.
  virtual std::unique_ptr<CVelmarOrderBook> makeBook(const char* id16) = 0;

  /// One queued message for the book of its instrument: the builder's own
  /// gate, then its rule. `kind` is an orderBookNode::Kind the books know.
  /// True if the message was accepted; the caller then publishes the book.
  /// A refusal changes nothing and says nothing.
  virtual bool apply(CVelmarOrderBook& book, const char* body, int32_t kind) = 0;
};

}  // namespace mdapi
}  // namespace velmar

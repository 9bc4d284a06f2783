#include "VLClientApi/SessionCounters.h"

#include "utility/Timestamp.h"

namespace velmar {
namespace mdapi {

namespace {
uint64_t read(const SessionCounters::Counter& c) {
  return c.load(std::memory_order_relaxed);
}
}  // namespace

void SessionCounters::noteBookNodeQueued() {
  add(receiver.bookNodesQueued);
  // The handled count may lag behind the book thread by a moment, which only
  // ever makes the depth look larger than it was, never smaller.
  const uint64_t queued = read(receiver.bookNodesQueued);
  const uint64_t handled = read(books.nodesHandled);
  const uint64_t depth = queued > handled ? queued - handled : 0;
  if (depth > read(receiver.bookQueueHighWater))
    receiver.bookQueueHighWater.store(depth, std::memory_order_relaxed);
}

void SessionCounters::fill(CVelmarStatistics* out) const {
  out->Size = sizeof(CVelmarStatistics);
  out->Reserved = 0;
  out->SampleTime = Timestamp::now().microSecondsSinceEpoch();

  out->DatagramsReceived = read(receiver.datagrams);
  out->BytesReceived = read(receiver.bytes);
  out->DroppedByGate = read(receiver.droppedByGate);
  out->DroppedBySequence = read(receiver.droppedBySequence);
  out->DroppedStale = read(receiver.droppedStale);
  out->SequenceGaps = read(receiver.sequenceGaps);
  out->MessagesMissing = read(receiver.messagesMissing);
  out->ReceiveErrors = read(receiver.receiveErrors);
  out->KernelDrops = read(receiver.kernelDrops);
  out->ShortDatagrams = read(receiver.shortDatagrams);
  out->DroppedUnknownChannel = read(receiver.droppedUnknownChannel);

  out->BookNodesQueued = read(receiver.bookNodesQueued);
  out->BookNodesDropped = read(receiver.bookNodesDropped);
  out->BookQueueHighWater = read(receiver.bookQueueHighWater);
  out->BookNodesHandled = read(books.nodesHandled);
  out->BooksPublished = read(books.published);

  out->CallbacksSession = read(front.callbacksSession);
  out->CallbacksResponse = read(front.callbacksResponse);
  out->CallbacksError = read(front.callbacksError) + read(anyThread.callbacksError);
  out->CallbacksMarketData = read(front.callbacksMarketData) + read(receiver.callbacksMarketData);
  out->CallbacksTickByTick = read(front.callbacksTickByTick) + read(receiver.callbacksTickByTick);
  out->CallbacksOrderBook = read(books.callbacksOrderBook);
  out->CallbacksStatus =
      read(front.callbacksStatus) + read(receiver.callbacksStatus) + read(books.callbacksStatus);
}

}  // namespace mdapi
}  // namespace velmar

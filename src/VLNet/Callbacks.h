// Callable types shared by the network library.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "utility/Timestamp.h"

namespace velmar {
namespace net {

/// A unit of work handed to a loop: no arguments, no result.
using Functor = std::function<void()>;
using TimerCallback = std::function<void()>;

class Buffer;
class TcpConnection;
using TcpConnectionPtr = std::shared_ptr<TcpConnection>;

/// Up and down of a connection: the state tells which.
using ConnectionCallback = std::function<void(const TcpConnectionPtr&)>;
/// Data has arrived in the connection's input buffer; the time is that of the
/// poll pass.
using MessageCallback = std::function<void(const TcpConnectionPtr&, Buffer*, Timestamp)>;
/// The output buffer has drained.
using WriteCompleteCallback = std::function<void(const TcpConnectionPtr&)>;
/// The output backlog crossed the high-water mark; the size is the backlog.
using HighWaterMarkCallback = std::function<void(const TcpConnectionPtr&, size_t)>;
using CloseCallback = std::function<void(const TcpConnectionPtr&)>;

void defaultConnectionCallback(const TcpConnectionPtr& conn);
void defaultMessageCallback(const TcpConnectionPtr& conn, Buffer* buffer, Timestamp receiveTime);

}  // namespace net
}  // namespace velmar

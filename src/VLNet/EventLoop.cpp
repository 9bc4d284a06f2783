#include "VLNet/EventLoop.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "VLNet/Channel.h"
#include "VLNet/Poller.h"
#include "VLNet/TimerQueue.h"
#include "utility/ByteOrder.h"
#include "utility/CurrentThread.h"
#include "utility/Logging.h"
#include "utility/Platform.h"

namespace velmar {
namespace net {

namespace {

constexpr int kPollTimeMs = 1;  // timers have no other way to run
constexpr int kMaxStrangers = 8;

void setIntOption(int fd, int level, int option) {
  int on = 1;  // an int: Linux refuses shorter values
  platform::setSocketOption(fd, level, option, &on, sizeof on);
}

bool sameAddress(const sockaddr_in& a, const sockaddr_in& b) {
  return a.sin_addr.s_addr == b.sin_addr.s_addr && a.sin_port == b.sin_port;
}

// Closes what is open and keeps the socket error of the failed step.
int failPair(int listener, int reader, int writer) {
  int error = platform::lastSocketError();
  if (listener >= 0) platform::closeSocket(listener);
  if (reader >= 0) platform::closeSocket(reader);
  if (writer >= 0) platform::closeSocket(writer);
  platform::setLastSocketError(error);
  return -1;
}

}  // namespace

int createLoopbackPair(int fds[2]) {
  platform::startupSockets();
  int listener = platform::createSocket(AF_INET, SOCK_STREAM, 0);
  if (listener < 0) return failPair(-1, -1, -1);
  setIntOption(listener, SOL_SOCKET, SO_REUSEADDR);
  setIntOption(listener, IPPROTO_TCP, TCP_NODELAY);

  sockaddr_in addr;
  std::memset(&addr, 0, sizeof addr);
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = 0;  // chosen by the system: no two listeners share a port
  if (platform::bindSocket(listener, addr) != 0 || platform::listenSocket(listener, 1) != 0 ||
      platform::localAddress(listener, &addr) != 0) {
    return failPair(listener, -1, -1);
  }

  int writer = platform::createSocket(AF_INET, SOCK_STREAM, 0);
  if (writer < 0) return failPair(listener, -1, -1);
  setIntOption(writer, IPPROTO_TCP, TCP_NODELAY);
  sockaddr_in writerAddr;
  if (platform::connectSocket(writer, addr) != 0 ||
      platform::localAddress(writer, &writerAddr) != 0) {
    return failPair(listener, -1, writer);
  }

  // Anybody on the machine may connect to the listener in the moment it is
  // open. Our own connection is in the queue already, so strangers are
  // accepted, dropped, and the next one taken.
  int reader = -1;
  for (int attempt = 0; attempt <= kMaxStrangers; ++attempt) {
    sockaddr_in peer;
    reader = platform::acceptSocket(listener, &peer);
    if (reader < 0) return failPair(listener, -1, writer);
    if (sameAddress(peer, writerAddr)) break;
    platform::closeSocket(reader);
    reader = -1;
  }
  if (reader < 0) {
    platform::setLastSocketError(platform::kErrConnRefused);
    return failPair(listener, -1, writer);
  }
  platform::closeSocket(listener);
  fds[0] = reader;
  fds[1] = writer;
  return 0;
}

EventLoop::EventLoop()
    : looping_(false),
      quit_(false),
      handlingEvents_(false),
      runningFunctors_(false),
      iteration_(0),
      threadId_(CurrentThread::tid()),
      lastPollTime_(),
      wakeupPair_{-1, -1},
      currentChannel_(nullptr) {
  if (createLoopbackPair(wakeupPair_) != 0) {
    errno = platform::lastSocketError();
    LOG_SYSFATAL << "EventLoop cannot make its loopback wake-up pair";
  }
  wakeupChannel_.reset(new Channel(this, wakeupPair_[0]));
  poller_ = Poller::makeDefaultPoller(this);
  timerQueue_.reset(new TimerQueue(this));
  wakeupChannel_->setReadCallback([this](Timestamp) { handleRead(); });
  wakeupChannel_->enableReading();
}

EventLoop::~EventLoop() {
  wakeupChannel_->disableAll();
  wakeupChannel_->remove();
  // The pair belongs to this loop alone; a loop that goes leaves no sockets.
  platform::closeSocket(wakeupPair_[0]);
  platform::closeSocket(wakeupPair_[1]);
  // Destroyed unrun, outside the lock: a functor's captures may queue more
  // on their way out, which then die unrun with the loop.
  std::vector<Functor> functors;
  {
    utility::MutexLockGuard lock(mutex_);
    functors.swap(pendingFunctors_);
  }
}

void EventLoop::loop() {
  assertInLoopThread();
  looping_ = true;
  quit_ = false;
  LOG_TRACE << "EventLoop " << this << " start looping";
  do {
    readyChannels_.clear();
    lastPollTime_ = poller_->poll(kPollTimeMs, &readyChannels_);
    ++iteration_;

    handlingEvents_ = true;
    for (Channel* channel : readyChannels_) {
      currentChannel_ = channel;
      channel->handleEvent(lastPollTime_);
    }
    currentChannel_ = nullptr;
    handlingEvents_ = false;

    doPendingFunctors();

    for (Channel* channel : everyPassChannels_) {
      currentChannel_ = channel;
      channel->setRevents(Channel::kReadEvent);
      channel->handleEvent(lastPollTime_);
    }
    currentChannel_ = nullptr;
  } while (!quit_);
}

void EventLoop::quit() {
  quit_ = true;
  if (!isInLoopThread()) wakeup();
}

void EventLoop::runInLoop(Functor cb) {
  if (isInLoopThread()) {
    cb();
  } else {
    queueInLoop(std::move(cb));
  }
}

void EventLoop::queueInLoop(Functor cb) {
  {
    utility::MutexLockGuard lock(mutex_);
    pendingFunctors_.push_back(std::move(cb));
  }
  // The loop thread in an event callback reaches the functor step of this
  // pass anyway; in the functor step or a timer it does not, and must not
  // wait out the next poll.
  if (!isInLoopThread() || runningFunctors_) wakeup();
}

TimerId EventLoop::runAfter(double delay, TimerCallback cb) {
  return timerQueue_->addTimer(std::move(cb), addTime(Timestamp::now(), delay), 0.0);
}

TimerId EventLoop::runEvery(double interval, TimerCallback cb) {
  return timerQueue_->addTimer(std::move(cb), addTime(Timestamp::now(), interval), interval);
}

void EventLoop::cancel(TimerId timerId) {
  timerQueue_->cancel(timerId);
}

void EventLoop::updateChannel(Channel* channel) {
  assertInLoopThread();
  poller_->updateChannel(channel);
}

void EventLoop::removeChannel(Channel* channel) {
  assertInLoopThread();
  poller_->removeChannel(channel);
}

bool EventLoop::hasChannel(Channel* channel) {
  assertInLoopThread();
  return poller_->hasChannel(channel);
}

void EventLoop::addEveryPassChannel(Channel* channel) {
  everyPassChannels_.push_back(channel);
}

bool EventLoop::isInLoopThread() const {
  return threadId_ == CurrentThread::tid();
}

void EventLoop::abortNotInLoopThread() const {
  LOG_FATAL << "EventLoop::abortNotInLoopThread - EventLoop " << this
            << " was created in threadId_ = " << threadId_
            << ", current thread id = " << CurrentThread::tid();
}

void EventLoop::wakeup() {
  char bytes[8];
  utility::storeLE<uint64_t>(bytes, 1);
  int n = platform::sendSocket(wakeupPair_[1], bytes, sizeof bytes);
  if (n != 8) LOG_ERROR << "EventLoop::wakeup() writes " << n << " bytes instead of 8";
}

// One wake-up per call: wake-ups that arrived together stay in the stream and
// make the channel readable again on the next poll.
void EventLoop::handleRead() {
  char bytes[8];
  int n = platform::recvSocket(wakeupPair_[0], bytes, sizeof bytes);
  if (n != 8) LOG_ERROR << "EventLoop::handleRead() reads " << n << " bytes instead of " << 8;
}

void EventLoop::doPendingFunctors() {
  std::vector<Functor> functors;
  runningFunctors_ = true;
  {
    utility::MutexLockGuard lock(mutex_);
    functors.swap(pendingFunctors_);
  }
  for (const Functor& functor : functors) functor();  // an empty one throws
  runningFunctors_ = false;
}

}  // namespace net
}  // namespace velmar

#include "utility/Thread.h"

#include <cstdio>
#include <system_error>
#include <utility>

#include "utility/CurrentThread.h"
#include "utility/Logging.h"

namespace velmar {
namespace utility {

std::atomic<int> Thread::numCreated_{0};

namespace {

// What the new thread needs, owned by that thread. The weak reference lets a
// thread whose Thread object is already gone run on without writing its id
// into freed memory.
struct StartRecord {
  Thread::ThreadFunc func;
  std::string name;
  std::weak_ptr<std::atomic<uint64_t>> tid;
};

void runThread(std::unique_ptr<StartRecord> record) {
  if (auto tid = record->tid.lock()) tid->store(CurrentThread::tid(), std::memory_order_release);
  CurrentThread::t_threadName = record->name.empty() ? "ftmdThread" : record->name.c_str();
  record->func();
  CurrentThread::t_threadName = "finished";
}

}  // namespace

Thread::Thread(ThreadFunc func, const std::string& name)
    : started_(false),
      joined_(false),
      tid_(std::make_shared<std::atomic<uint64_t>>(0)),
      func_(std::move(func)),
      name_(name) {
  int number = numCreated_.fetch_add(1);
  if (name_.empty()) {
    char buf[32];
    snprintf(buf, sizeof buf, "Thread%d", number);
    name_ = buf;
  }
}

Thread::~Thread() {
  // Started and not joined; a join that failed (on the thread itself) leaves
  // the thread joinable too, and a joinable std::thread must not be destroyed.
  if (thread_ && thread_->joinable()) thread_->detach();
}

void Thread::start() {
  started_ = true;
  auto record = std::unique_ptr<StartRecord>(new StartRecord{func_, name_, tid_});
  try {
    // If creation fails the record dies with the unstarted thread's arguments.
    thread_ = std::make_shared<std::thread>(runThread, std::move(record));
  } catch (const std::system_error& e) {
    started_ = false;
    LOG_ERROR << "Failed in creating thread " << name_ << ": " << e.what();
    throw;
  }
}

void Thread::join() {
  joined_ = true;
  if (!thread_) throw std::system_error(std::make_error_code(std::errc::invalid_argument));
  thread_->join();
}

}  // namespace utility
}  // namespace velmar

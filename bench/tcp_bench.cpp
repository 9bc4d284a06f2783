// Round trip of a 100-byte message on loopback to an echo peer (a blocking
// thread that sends back what it reads):
//  - through a TcpConnection: the loop thread sends, and sends the next one
//    from the message callback that receives the echo;
//  - with a plain blocking socket: send, then recv until the 100 bytes are
//    back.
// Both are measured in the same run, in alternating batches, so that they
// see the same machine. Counters: median and 99th percentile in microseconds
// of each, and the ratio connection / plain of both figures.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "VLNet/Buffer.h"
#include "VLNet/EventLoop.h"
#include "VLNet/EventLoopThread.h"
#include "VLNet/TcpClient.h"
#include "VLNet/TcpConnection.h"
#include "support/TcpTestSockets.h"
#include "utility/CountDownLatch.h"
#include "utility/Platform.h"

using velmar::net::Buffer;
using velmar::net::EventLoop;
using velmar::net::EventLoopThread;
using velmar::net::TcpClient;
using velmar::net::TcpConnectionPtr;
using velmar::test::TestListener;
using velmar::utility::CountDownLatch;
namespace platform = velmar::platform;

namespace {

using Clock = std::chrono::steady_clock;
constexpr size_t kMessageSize = 100;
constexpr int kBatch = 1000;

double percentile(std::vector<double> v, double p) {
  if (v.empty()) return 0.0;
  size_t at = static_cast<size_t>(p * static_cast<double>(v.size() - 1));
  std::nth_element(v.begin(), v.begin() + static_cast<long>(at), v.end());
  return v[at];
}

// Accepts one connection and echoes it until the peer closes.
std::thread echoPeer(TestListener& listener) {
  return std::thread([&listener] {
    int fd = listener.accept();
    if (fd < 0) return;
    char buf[4096];
    for (;;) {
      int n = platform::recvSocket(fd, buf, sizeof buf);
      if (n <= 0 || !velmar::test::sendAll(fd, buf, static_cast<size_t>(n))) break;
    }
    platform::closeSocket(fd);
  });
}

// The loop side: a client connected to an echo peer, ping-pong driven from the
// message callback.
class ConnectionRoundTrip {
 public:
  ConnectionRoundTrip() : message_(kMessageSize, 'm') {
    loop_ = thread_.startLoop();
    peer_ = echoPeer(listener_);
    CountDownLatch up(1);
    loop_->runInLoop([this, &up] {
      client_.reset(new TcpClient(loop_, listener_.address(), "bench"));
      client_->setConnectionCallback([this, &up](const TcpConnectionPtr& conn) {
        if (conn->connected()) {
          conn_ = conn;
          up.countDown();
        }
      });
      client_->setMessageCallback([this](const TcpConnectionPtr& conn, Buffer* buffer,
                                         velmar::Timestamp) { onMessage(conn, buffer); });
      client_->connect();
    });
    up.wait();
  }

  ~ConnectionRoundTrip() {
    CountDownLatch gone(1);
    loop_->runInLoop([this, &gone] {
      conn_->shutdown();
      conn_.reset();
      client_.reset();
      gone.countDown();
    });
    gone.wait();
    peer_.join();
    thread_.quit();
    thread_.join();
  }

  /// Runs `count` round trips on the loop thread, appending their times (us).
  void run(int count, std::vector<double>* samples) {
    CountDownLatch done(1);
    loop_->runInLoop([this, count, samples, &done] {
      samples_ = samples;
      remaining_ = count;
      done_ = &done;
      start_ = Clock::now();
      conn_->send(message_.data(), static_cast<int>(message_.size()));
    });
    done.wait();
  }

 private:
  void onMessage(const TcpConnectionPtr& conn, Buffer* buffer) {
    if (buffer->readableBytes() < kMessageSize) return;
    buffer->retrieve(kMessageSize);
    Clock::time_point now = Clock::now();
    samples_->push_back(std::chrono::duration<double, std::micro>(now - start_).count());
    if (--remaining_ == 0) {
      done_->countDown();
      return;
    }
    start_ = Clock::now();
    conn->send(message_.data(), static_cast<int>(message_.size()));
  }

  EventLoopThread thread_;
  EventLoop* loop_ = nullptr;
  TestListener listener_;
  std::thread peer_;
  std::unique_ptr<TcpClient> client_;  // created and destroyed on the loop thread
  TcpConnectionPtr conn_;
  const std::string message_;
  // Loop thread only while a run is going.
  std::vector<double>* samples_ = nullptr;
  int remaining_ = 0;
  CountDownLatch* done_ = nullptr;
  Clock::time_point start_;
};

// The same exchange on a plain blocking socket.
class PlainRoundTrip {
 public:
  PlainRoundTrip() : message_(kMessageSize, 'm') {
    peer_ = echoPeer(listener_);
    fd_ = platform::createSocket(AF_INET, SOCK_STREAM, 0);
    platform::connectSocket(fd_, listener_.address().sockAddr());
  }
  ~PlainRoundTrip() {
    platform::closeSocket(fd_);
    peer_.join();
  }

  void run(int count, std::vector<double>* samples) {
    char buf[kMessageSize];
    for (int i = 0; i < count; ++i) {
      Clock::time_point start = Clock::now();
      velmar::test::sendAll(fd_, message_.data(), message_.size());
      size_t got = 0;
      while (got < kMessageSize) {
        int n = platform::recvSocket(fd_, buf + got, kMessageSize - got);
        if (n <= 0) return;
        got += static_cast<size_t>(n);
      }
      samples->push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
  }

 private:
  TestListener listener_;
  std::thread peer_;
  int fd_ = -1;
  const std::string message_;
};

void RoundTrip100Bytes(benchmark::State& state) {
  ConnectionRoundTrip connection;
  PlainRoundTrip plain;
  std::vector<double> connectionSamples;
  std::vector<double> plainSamples;
  // Warm-up of both paths, not counted.
  std::vector<double> discard;
  connection.run(kBatch, &discard);
  plain.run(kBatch, &discard);
  for (auto _ : state) {
    connection.run(kBatch, &connectionSamples);
    plain.run(kBatch, &plainSamples);
  }
  double connectionMedian = percentile(connectionSamples, 0.5);
  double connectionP99 = percentile(connectionSamples, 0.99);
  double plainMedian = percentile(plainSamples, 0.5);
  double plainP99 = percentile(plainSamples, 0.99);
  state.counters["conn_median_us"] = connectionMedian;
  state.counters["conn_p99_us"] = connectionP99;
  state.counters["plain_median_us"] = plainMedian;
  state.counters["plain_p99_us"] = plainP99;
  state.counters["ratio_median"] = plainMedian > 0 ? connectionMedian / plainMedian : 0;
  state.counters["ratio_p99"] = plainP99 > 0 ? connectionP99 / plainP99 : 0;
}
BENCHMARK(RoundTrip100Bytes)->Unit(benchmark::kMillisecond)->Iterations(20);

}  // namespace

#include "platform/linux/TerminationSignals.h"

#include <csignal>
#include <utility>

#include <asio/error_code.hpp>
#include <asio/signal_set.hpp>

#include "platform/linux/AsioLoop.h"

namespace tessivane {

struct TerminationSignals::Waiter {
  Waiter(TaskQueue& target, std::function<void(int)> closure)
      : queue(target), told(std::make_shared<std::function<void(int)>>(std::move(closure))) {}

  void wait() {
    signals.async_wait([this](const asio::error_code& error, int signal) {
      if (error)
        return;
      queue.async([weak = std::weak_ptr(told), signal] {
        if (const auto closure = weak.lock())
          (*closure)(signal);
      });
      wait();
    });
  }

  TaskQueue& queue;
  std::shared_ptr<std::function<void(int)>> told;
  AsioThread thread{"tessivane.signals"};
  asio::signal_set signals{thread.loop().context()};
};

TerminationSignals::TerminationSignals(TaskQueue& queue, std::function<void(int)> told)
    : waiter_(std::make_unique<Waiter>(queue, std::move(told))) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    // It can only fail for signals that cannot be caught.
    asio::error_code ignored;
    waiter_->signals.add(signal, ignored);
  }
  waiter_->wait();
}

TerminationSignals::~TerminationSignals() {
  waiter_->thread.stop();
}

}  // namespace tessivane

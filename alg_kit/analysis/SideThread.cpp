#include <alg_kit/analysis/SideThread.h>

#include <alg_kit/session/QuietThread.h>

#include <exception>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

namespace analysis {
namespace {

/// Jobs by number, of which every thread takes the next one.
class Shared {
 public:
  /// @param job  is called no more once `wait` has returned
  Shared(std::size_t count, const std::function<void(std::size_t)>& job)
      : job_(job), errors_(count) {}

  void work() {
    for (std::size_t i = take(); i < errors_.size(); i = take()) {
      std::exception_ptr error;
      try {
        job_(i);
      } catch (...) {
        error = std::current_exception();
      }
      const std::lock_guard<std::mutex> guard(mutex_);
      errors_[i] = error;
      ++done_;
      allDone_.notify_one();
    }
  }

  void wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    allDone_.wait(lock, [this] { return done_ == errors_.size(); });
    for (const std::exception_ptr& error : errors_)
      if (error) std::rethrow_exception(error);
  }

 private:
  std::size_t take() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return next_ < errors_.size() ? next_++ : next_;
  }

  const std::function<void(std::size_t)>& job_;
  std::mutex mutex_;
  std::condition_variable allDone_;
  std::size_t next_ = 0, done_ = 0;
  std::vector<std::exception_ptr> errors_;
};

}  // namespace

SideThread::~SideThread() {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    stop_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void SideThread::run(Job job) {
  if (!thread_.joinable() && !alone_) {
    try {
      thread_ = session::quietThread([this] { work(); });
    } catch (const std::system_error&) {
      alone_ = true;
    }
  }
  if (alone_) {
    job();
    return;
  }
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    jobs_.push_back(std::move(job));
  }
  wake_.notify_one();
}

void SideThread::runAll(std::size_t count, const std::function<void(std::size_t)>& job) {
  // The other thread may come to it late, when all is done.
  const auto shared = std::make_shared<Shared>(count, job);
  run([shared] { shared->work(); });
  shared->work();
  shared->wait();
}

void SideThread::work() {
  for (;;) {
    Job job;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      wake_.wait(lock, [this] { return stop_ || !jobs_.empty(); });
      if (stop_) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    job();
  }
}

}  // namespace analysis

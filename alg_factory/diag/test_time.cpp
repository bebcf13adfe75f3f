#include <alg_factory/diag/test_time.h>

#include <sstream>

#include <alg_factory/diag/PerformanceCounter.h>

namespace qor {

void TimingEntry::finish(std::int64_t ticks, std::int64_t frequency) {
  stopTicks = ticks;
  const double t =
      static_cast<double>(stopTicks - startTicks) / static_cast<double>(frequency) * 1000.0;
  if (!(t > 0.0)) return;
  averageMs = count == 0 ? t : (averageMs + t) * 0.5;
  ++count;
}

test_time::test_time() : frequency_(performanceFrequency()) {}

void test_time::start(std::string name) {
  TimingEntry& entry = entries_[name];
  entry.startTicks = performanceCounter();
}

void test_time::stop(std::string name) {
  entries_[name].finish(performanceCounter(), frequency_);
}

std::string test_time::report() const {
  std::ostringstream table;
  table << "function name"
        << "    "
        << "execution time"
        << "    "
        << "execution frequency" << '\n';
  for (const auto& [name, entry] : entries_) {
    table << "   " << name << "         " << entry.averageMs << "ms"
          << "         " << entry.count << '\n';
  }
  return table.str();
}

}  // namespace qor

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace analysis {

/// The smallest and largest value of every column, NaN for a column without any.
struct Envelope {
  std::vector<float> low, high;
};

/// Many rows of numbers over one time, in bounded memory, for plots. Up to `most` packets have a
/// column each. Of more, columns have equal widths in time, which double whenever the recording
/// outgrows them: between half of `most` and all of them are in use.
class Columns {
 public:
  /// @param most  at least 4
  Columns(std::size_t envelopes, std::size_t counts, std::size_t most);

  /// Goes on to the next packet. What is added next is of it.
  /// @param time  seconds, not before the packet before
  void begin(double time, std::int64_t packet, std::int64_t call);

  /// The latest packet, for what is known of it only later.
  struct Packet {
    double time = 0;
    std::size_t number = 0;  ///< of all that began
  };
  Packet latest() const { return latest_; }
  /// The column that a packet is in, until the next one begins.
  std::size_t columnOf(const Packet& packet) const;

  /// To a column, or to the latest packet's. A value that is not finite adds nothing.
  void add(std::size_t column, std::size_t envelope, double value);
  void add(std::size_t envelope, double value) { add(times_.size() - 1, envelope, value); }
  void count(std::size_t column, std::size_t counts) { ++counts_[counts][column]; }
  void count(std::size_t counts) { count(times_.size() - 1, counts); }

  /// Opens an empty column in every long pause, where every packet still has one of its own, so
  /// that lines end there. Once, at the end.
  void breakAtPauses();

  double width() const { return width_; }                      ///< seconds; 0 = a packet each
  const std::vector<double>& times() const { return times_; }  ///< the columns' middles, ascending
  /// The number of a column's first packet, and its call; -1 in a column without a packet.
  const std::vector<std::int64_t>& packets() const { return packets_; }
  const std::vector<std::int64_t>& calls() const { return calls_; }
  const Envelope& envelope(std::size_t i) const { return envelopes_[i]; }
  const std::vector<std::int32_t>& counts(std::size_t i) const { return counts_[i]; }

 private:
  void append(double time);
  /// Old column i becomes part of column `columnOf[i]` of `count`.
  void regroup(const std::vector<std::size_t>& columnOf, std::size_t count);
  void shareColumns();
  void doubleWidth();

  std::size_t most_;
  double begin_ = 0, width_ = 0;
  Packet latest_;
  std::vector<double> times_;
  std::vector<std::int64_t> packets_, calls_;
  std::vector<Envelope> envelopes_;
  std::vector<std::vector<std::int32_t>> counts_;
};

}  // namespace analysis

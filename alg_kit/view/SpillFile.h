#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace view {

/// Bytes that are kept on disk and not in memory: a file without a name among the temporary files,
/// gone with this object or its process, however it ends. Not for several threads at once.
class SpillFile {
 public:
  /// @throws std::runtime_error in one line, as the two operations below
  SpillFile();
  ~SpillFile();
  SpillFile(const SpillFile&) = delete;
  SpillFile& operator=(const SpillFile&) = delete;

  /// @return where the bytes begin
  std::uint64_t append(const void* bytes, std::size_t size);

  /// Bytes that were appended.
  void read(std::uint64_t offset, void* bytes, std::size_t size);
  void overwrite(std::uint64_t offset, const void* bytes, std::size_t size);

  std::uint64_t size() const { return written_ + waiting_.size(); }

 private:
  void flush();

  int file_ = -1;
  std::uint64_t written_ = 0;
  std::string waiting_;  ///< behind `written_`
};

/// Records of one size in such a file.
template <typename Record>
class SpillRows {
 public:
  std::uint64_t size() const { return file_.size() / sizeof(Record); }
  void append(const Record& record) { file_.append(&record, sizeof record); }
  Record at(std::uint64_t i) {
    Record record;
    file_.read(i * sizeof record, &record, sizeof record);
    return record;
  }
  void replace(std::uint64_t i, const Record& record) {
    file_.overwrite(i * sizeof record, &record, sizeof record);
  }
  std::uint64_t bytes() const { return file_.size(); }

 private:
  SpillFile file_;
};

}  // namespace view

#pragma once

#include <tools/algtrack/terminal/Json.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace algtrack {

/// One value of a table: what a person reads, and what --json gives.
struct Cell {
  Cell(const char* words) : Cell(std::string(words)) {}
  Cell(std::string words) : text(words), json(std::move(words)) {}
  Cell(std::int64_t number) : text(std::to_string(number)), json(number), isNumber(true) {}
  Cell(int number) : Cell(std::int64_t{number}) {}
  /// Shown with `decimals` digits behind the point; --json gives every digit, null if not finite.
  Cell(double number, int decimals);

  std::string text;
  nlohmann::ordered_json json;
  bool isNumber = false;
};

/// Rows under headings. Text columns are left-aligned, columns of numbers right-aligned.
class Table {
 public:
  explicit Table(std::vector<std::string> headings);

  /// @param row  as many cells as there are headings
  void addRow(std::vector<Cell> row);

  bool empty() const { return rows_.empty(); }
  void print(std::ostream& stream) const;

  /// An array with one object per row; its keys are the headings.
  nlohmann::ordered_json json() const;

 private:
  std::vector<std::string> headings_;
  std::vector<std::vector<Cell>> rows_;
};

}  // namespace algtrack

#pragma once

#include <tools/algtrack/terminal/Json.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace algtrack {

/// What a file or a device gave, made fit for one line of a terminal: as text::escaped, without the
/// newlines at its end.
std::string oneLine(std::string text);

/// A number as printf writes it.
std::string numberText(double value, const char* format = "%.9g");

/// One value of a table: what a person reads, and what --json gives.
struct Cell {
  Cell(const char* words) : Cell(std::string(words)) {}
  Cell(std::string words) : text(oneLine(words)), json(std::move(words)) {}
  Cell(std::int64_t number) : text(std::to_string(number)), json(number), isNumber(true) {}
  Cell(int number) : Cell(std::int64_t{number}) {}
  /// Shown with `decimals` digits behind the point; --json gives every digit, null if not finite.
  Cell(double number, int decimals);
  /// A number that there is not: "-", null.
  static Cell none();

  std::string text;
  Json json;
  bool isNumber = false;
};

/// A column's name for people and, in snake case and with its unit, for programs.
struct Column {
  /// @param name  the key too, with '_' for blanks
  Column(const char* name);
  Column(const char* name, const char* jsonName) : heading(name), key(jsonName) {}

  std::string heading, key;
};

/// Rows under headings. Text columns are left-aligned, columns of numbers right-aligned.
class Table {
 public:
  explicit Table(std::vector<Column> columns);

  /// @param row  as many cells as there are columns
  void addRow(std::vector<Cell> row);

  bool empty() const { return rows_.empty(); }
  void print(std::ostream& stream) const;

  /// An array with one object per row.
  Json json() const;

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<Cell>> rows_;
};

/// Named values, one a line; an object for programs.
class Facts {
 public:
  /// @param key  snake case, with its unit
  void add(std::string name, std::string key, Cell value);

  /// For people alone.
  void addText(std::string name, Cell value) { table_.addRow({std::move(name), std::move(value)}); }

  /// For programs alone.
  void addJson(std::string key, Json value) { json_[std::move(key)] = std::move(value); }

  void print(std::ostream& stream) const;
  const Json& json() const { return json_; }

 private:
  Table table_{{"quantity", "value"}};
  Json json_;
};

}  // namespace algtrack

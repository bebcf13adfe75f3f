#include <tools/algtrack/terminal/Table.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace algtrack {

Cell::Cell(double number, int decimals) : isNumber(true) {
  if (!std::isfinite(number)) {
    text = std::isnan(number) ? "nan" : number > 0 ? "inf" : "-inf";
    return;
  }
  char buffer[400];
  std::snprintf(buffer, sizeof buffer, "%.*f", decimals, number);
  text = buffer;
  json = number;
}

Table::Table(std::vector<std::string> headings) : headings_(std::move(headings)) {}

void Table::addRow(std::vector<Cell> row) {
  if (row.size() != headings_.size()) throw std::logic_error("a row without a cell per heading");
  rows_.push_back(std::move(row));
}

void Table::print(std::ostream& stream) const {
  std::vector<std::size_t> widths;
  std::vector<bool> numbers;
  for (std::size_t column = 0; column < headings_.size(); ++column) {
    widths.push_back(headings_[column].size());
    numbers.push_back(!rows_.empty());
    for (const auto& row : rows_) {
      widths[column] = std::max(widths[column], row[column].text.size());
      numbers[column] = numbers[column] && row[column].isNumber;
    }
  }
  const auto printRow = [&](const auto& textOf) {
    std::string line;
    for (std::size_t column = 0; column < headings_.size(); ++column) {
      const std::string text = textOf(column);
      const std::string padding(widths[column] - text.size(), ' ');
      line += (column > 0 ? "  " : "") + (numbers[column] ? padding + text : text + padding);
    }
    stream << line.erase(line.find_last_not_of(' ') + 1) << "\n";
  };
  printRow([&](std::size_t column) { return headings_[column]; });
  for (const auto& row : rows_) printRow([&](std::size_t column) { return row[column].text; });
}

nlohmann::ordered_json Table::json() const {
  auto array = nlohmann::ordered_json::array();
  for (const auto& row : rows_) {
    nlohmann::ordered_json object;
    for (std::size_t column = 0; column < headings_.size(); ++column)
      object[headings_[column]] = row[column].json;
    array.push_back(std::move(object));
  }
  return array;
}

}  // namespace algtrack

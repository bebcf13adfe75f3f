#include <alg_kit/text/TextFile.h>
#include <tools/algtrack/terminal/Table.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace algtrack {

std::string oneLine(std::string text) {
  constexpr std::size_t kLongest = 5000;  // more than the longest path
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text::escaped(text, kLongest);
}

std::string numberText(double value, const char* format) {
  char text[400];  // the largest double has 309 digits before its point
  std::snprintf(text, sizeof text, format, value);
  return text;
}

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

Cell Cell::none() {
  Cell cell(0);
  cell.text = "-";
  cell.json = nullptr;
  return cell;
}

Column::Column(const char* name) : heading(name), key(name) {
  std::replace(key.begin(), key.end(), ' ', '_');
}

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

void Table::addRow(std::vector<Cell> row) {
  if (row.size() != columns_.size()) throw std::logic_error("a row without a cell per column");
  rows_.push_back(std::move(row));
}

void Table::print(std::ostream& stream) const {
  std::vector<std::size_t> widths;
  std::vector<bool> numbers;
  for (std::size_t column = 0; column < columns_.size(); ++column) {
    widths.push_back(columns_[column].heading.size());
    numbers.push_back(!rows_.empty());
    for (const auto& row : rows_) {
      widths[column] = std::max(widths[column], row[column].text.size());
      numbers[column] = numbers[column] && row[column].isNumber;
    }
  }
  const auto printRow = [&](const auto& textOf) {
    std::string line;
    for (std::size_t column = 0; column < columns_.size(); ++column) {
      const std::string text = textOf(column);
      const std::string padding(widths[column] - text.size(), ' ');
      line += (column > 0 ? "  " : "") + (numbers[column] ? padding + text : text + padding);
    }
    stream << line.erase(line.find_last_not_of(' ') + 1) << "\n";
  };
  printRow([&](std::size_t column) { return columns_[column].heading; });
  for (const auto& row : rows_) printRow([&](std::size_t column) { return row[column].text; });
}

Json Table::json() const {
  Json array = Json::array();
  for (const auto& row : rows_) {
    Json object;
    for (std::size_t column = 0; column < columns_.size(); ++column)
      object[columns_[column].key] = row[column].json;
    array.push_back(std::move(object));
  }
  return array;
}

void Facts::add(std::string name, std::string key, Cell value) {
  json_[std::move(key)] = value.json;
  table_.addRow({std::move(name), std::move(value)});
}

void Facts::print(std::ostream& stream) const {
  table_.print(stream);
}

}  // namespace algtrack

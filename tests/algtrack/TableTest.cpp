#include <tools/algtrack/terminal/Table.h>

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <stdexcept>

namespace {

using algtrack::Cell;
using algtrack::Table;

TEST(TableTest, AlignsTextLeftAndNumbersRight) {
  Table table({"name", "n", "share"});
  table.addRow({"a", 5, Cell(0.5, 2)});
  table.addRow({"longer", 1234, Cell(12.0, 2)});
  std::ostringstream stream;
  table.print(stream);
  EXPECT_EQ(stream.str(),
            "name       n  share\n"
            "a          5   0.50\n"
            "longer  1234  12.00\n");
}

TEST(TableTest, GivesJsonWithFullNumbersInOrder) {
  Table table({"b", "a"});
  table.addRow({"x", Cell(0.125, 1)});
  table.addRow({"y", Cell(NAN, 1)});
  EXPECT_EQ(table.json().dump(), R"([{"b":"x","a":0.125},{"b":"y","a":null}])");
}

TEST(TableTest, RefusesARowOfAnotherLength) {
  Table table({"one"});
  EXPECT_THROW(table.addRow({"a", "b"}), std::logic_error);
}

}  // namespace

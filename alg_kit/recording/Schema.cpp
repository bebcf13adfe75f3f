#include <alg_kit/recording/Schema.h>

#include <alg_kit/recording/Database.h>
#include <alg_kit/recording/Recording.h>
#include <alg_kit/text/TextFile.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace recording {
namespace {

struct Part {
  const char* type;
  const char* name;
  const char* before;  ///< what makes it, up to where its checksum belongs
  const char* after;
};

constexpr const char* kChecksum = ",\n  checksum INTEGER NOT NULL";

constexpr std::array<Part, 7> kParts = {{
    {"table", "meta",
     R"(CREATE TABLE meta (
  key TEXT PRIMARY KEY,
  value TEXT NOT NULL)",
     R"(
) WITHOUT ROWID)"},
    {"table", "calls",
     R"(CREATE TABLE calls (
  id INTEGER PRIMARY KEY,
  parent INTEGER,
  parent_step INTEGER NOT NULL,
  kind TEXT NOT NULL,
  type INTEGER NOT NULL,
  mode INTEGER NOT NULL,
  offset INTEGER NOT NULL,
  length INTEGER NOT NULL,
  pointer_given INTEGER NOT NULL,
  output_given INTEGER NOT NULL,
  payload BLOB,
  returned INTEGER,
  output BLOB,
  start_ns INTEGER NOT NULL,
  duration_ns INTEGER)",
     R"(
))"},
    {"table", "logs",
     R"(CREATE TABLE logs (
  call INTEGER NOT NULL,
  step INTEGER NOT NULL,
  level INTEGER NOT NULL,
  text TEXT NOT NULL,
  threw INTEGER NOT NULL,
  PRIMARY KEY (call, step)
) WITHOUT ROWID)",
     nullptr},
    {"table", "blocks",
     R"(CREATE TABLE blocks (
  call INTEGER NOT NULL,
  step INTEGER NOT NULL,
  block BLOB NOT NULL,
  threw INTEGER NOT NULL,
  PRIMARY KEY (call, step)
) WITHOUT ROWID)",
     nullptr},
    {"table", "truth",
     R"(CREATE TABLE truth (
  frame INTEGER NOT NULL,
  call INTEGER,
  time_ns INTEGER NOT NULL,
  object INTEGER NOT NULL,
  marker INTEGER NOT NULL,
  x REAL NOT NULL,
  y REAL NOT NULL,
  z REAL NOT NULL,
  in_left INTEGER NOT NULL,
  in_right INTEGER NOT NULL)",
     R"(,
  PRIMARY KEY (frame, object, marker)
) WITHOUT ROWID)"},
    {"index", "truth_call", R"(CREATE INDEX truth_call ON truth (call))", nullptr},
    {"view", "configurations",
     R"(CREATE VIEW configurations AS
  SELECT id AS call, type AS product_type, payload AS calibration
  FROM calls WHERE kind = 'Init')",
     nullptr},
}};

std::string statementFor(const Part& part, int version) {
  std::string statement = part.before;
  if (part.after == nullptr) return statement;
  if (version >= 2) statement += kChecksum;
  return statement + part.after;
}

/// Without what only the eye needs.
std::string squeezed(std::string_view text) {
  std::string result;
  for (const char c : text)
    if (c != ' ' && c != '\n' && c != '\t' && c != '\r') result += c;
  return result;
}

}  // namespace

std::string schemaStatements() {
  std::string statements;
  for (const Part& part : kParts) statements += statementFor(part, kFormatVersion) + ";\n";
  return statements;
}

void checkSchema(Database& database, int version) {
  std::size_t found = 0;
  Statement row(database, "SELECT type, name, sql FROM sqlite_master");
  while (row.step()) {
    const std::string name(row.text(1));
    if (row.isNull(2)) continue;  // an index that a primary key brings
    const auto part =
        std::find_if(kParts.begin(), kParts.end(), [&](const Part& p) { return name == p.name; });
    if (part == kParts.end() || row.text(0) != part->type)
      throw RecordingError(database.path(), "expected the tables of a recording alone, found the " +
                                                text::quoted(row.text(0)) + " " +
                                                text::quoted(name));
    if (squeezed(row.text(2)) != squeezed(statementFor(*part, version)))
      throw RecordingError(database.path(), "expected the table " + name +
                                                " of a recording, found another one of that name");
    // A damaged table may give the same row again and again.
    if (++found > kParts.size())
      throw RecordingError(database.path(), "expected each table of a recording once, found more");
  }
  if (found == kParts.size()) return;
  for (const Part& part : kParts) {
    Statement named(database, "SELECT count(*) FROM sqlite_master WHERE name = ?");
    named.bindText(1, part.name);
    if (!named.step() || named.integer(0) != 1)
      throw RecordingError(
          database.path(),
          "expected a recording's tables, found: no such table: " + std::string(part.name));
  }
}

}  // namespace recording

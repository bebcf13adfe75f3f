"""The tables of a batch, and its page."""
import csv
import html
import io
import os
import secrets
import shlex
import sqlite3

from .files import complete_file, write_file

RUN_COLUMNS = {
    "recording": "TEXT", "variant": "TEXT", "status": "TEXT", "message": "TEXT",
    "calibration": "TEXT", "filter_mode": "INTEGER", "product_type": "INTEGER", "calls": "INTEGER",
    "packets": "INTEGER", "blocks": "INTEGER", "duration_s": "REAL", "has_truth": "INTEGER",
    "complete": "INTEGER", "library": "TEXT", "key": "TEXT"}
OBJECT_COLUMNS = {
    "recording": "TEXT", "variant": "TEXT", "object": "INTEGER", "packets": "INTEGER",
    "seen": "INTEGER", "gaps": "INTEGER", "lost": "INTEGER", "gained": "INTEGER",
    "moved_median_mm": "REAL", "moved_most_mm": "REAL", "answers_moved_median_mm": "REAL",
    "answers_moved_most_mm": "REAL", "worst": "TEXT", "worst_time_s": "REAL",
    "worst_packet": "INTEGER", "worst_call": "INTEGER", "error_median_mm": "REAL", "filtered_error_median_mm": "REAL",
    "epipolar_median_px": "REAL", "jumps": "INTEGER"}


def object_rows(rows):
    """One row per run and object."""
    return [{**of_object, "recording": row["recording"], "variant": row["variant"]}
            for row in rows for of_object in row.get("objects", ())]


def write_tables(folder, rows):
    tables = {"runs": (RUN_COLUMNS, rows), "objects": (OBJECT_COLUMNS, object_rows(rows))}
    for name, (columns, content) in tables.items():
        text = io.StringIO()
        writer = csv.DictWriter(text, list(columns), extrasaction="ignore", lineterminator="\n")
        writer.writeheader()
        writer.writerows(content)
        write_file(os.path.join(folder, name + ".csv"), text.getvalue().encode(), overwrite=True)
    with complete_file(os.path.join(folder, "runs.sqlite"), overwrite=True) as partial:
        database = sqlite3.connect(partial)
        with database:
            for name, (columns, content) in tables.items():
                fields = ", ".join(f'"{column}" {kind}' for column, kind in columns.items())
                key = '"recording", "variant"' + (', "object"' if name == "objects" else "")
                database.execute(f"CREATE TABLE {name} ({fields}, PRIMARY KEY ({key}))")
                places = ", ".join("?" * len(columns))
                database.executemany(f"INSERT INTO {name} VALUES ({places})",
                                     [[row.get(column) for column in columns] for row in content])
        database.close()
    _write_parquet(folder, tables)


def _write_parquet(folder, tables):
    try:
        import pyarrow
        from pyarrow import parquet
    except ImportError:
        return
    kinds = {"TEXT": pyarrow.string(), "INTEGER": pyarrow.int64(), "REAL": pyarrow.float64()}
    for name, (columns, content) in tables.items():
        table = pyarrow.table({column: pyarrow.array([_plain(row.get(column)) for row in content],
                                                     kinds[kind])
                               for column, kind in columns.items()})
        with complete_file(os.path.join(folder, name + ".parquet"), overwrite=True) as partial:
            parquet.write_table(table, partial)


def _plain(value):
    return int(value) if isinstance(value, bool) else value


# The page

STYLE = """
:root { color-scheme: light dark; --ink: #1b1f24; --paper: #fff; --line: #d0d7de; --dim: #57606a;
        --bad: #b3261e; --head: #f2f4f7; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #e6edf3; --paper: #0d1117; --line: #30363d; --dim: #9aa4af; --bad: #ff8b82;
          --head: #161b22; } }
body { font: 15px/1.5 system-ui, sans-serif; color: var(--ink); background: var(--paper);
       margin: 2rem auto; max-width: 90rem; padding: 0 1rem; }
h1 { font-size: 1.5rem; } h2 { font-size: 1.15rem; margin-top: 2.2rem; }
.scroll { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; }
th { text-align: left; background: var(--head); position: sticky; top: 0; font-weight: 600; }
th, td { padding: .3rem .6rem; border-bottom: 1px solid var(--line); vertical-align: top; }
.number { text-align: right; } .bad { color: var(--bad); } .dim { color: var(--dim); }
code { font-size: .85em; user-select: all; word-break: break-all; }
summary { cursor: pointer; }
"""


def _number(value, decimals=3):
    return "–" if value is None else f"{value:,.{decimals}f}" if decimals else f"{value:,}"


def _share(row):
    return 100 * row["seen"] / row["packets"] if row["packets"] else None


def changes_of(rows):
    """What changed, per recording and object, the worst first: [{"recording", "object", "score",
    "variants": [object row, ...]}, ...]. The score is the largest move of a delivered position or an
    answer in mm; a packet that a variant lost weighs as a move of 100 mm."""
    groups = {}
    for row in object_rows(rows):
        groups.setdefault((row["recording"], row["object"]), []).append(row)
    weight = lambda row: max(row["moved_most_mm"] or 0, row["answers_moved_most_mm"] or 0,
                             100 * (row["lost"] or 0))
    changes = [{"recording": recording, "object": object, "score": max(map(weight, variants)),
                "variants": sorted(variants, key=weight, reverse=True)}
               for (recording, object), variants in groups.items()]
    return sorted(changes, key=lambda change: -change["score"])


def _table(heads, lines):
    head = "".join(f"<th>{html.escape(text)}</th>" for text in heads)
    return (f'<div class="scroll"><table><thead><tr>{head}</tr></thead>'
            f'<tbody>{"".join(lines)}</tbody></table></div>')


def _cell(text, kind=""):
    return f'<td class="{kind}">{text}</td>' if kind else f"<td>{text}</td>"


def _moment(row, token):
    """The commands that show the worst moment."""
    if row["worst_packet"] is None:
        return '<span class="dim">nothing changed</span>'
    recording = shlex.quote(row["recording"])
    what = {"lost": "first lost", "moved": "moved most", "answer": "answer moved most"}[row["worst"]]
    inspect = (f"algtrack inspect {recording} --explain --packet {row['worst_packet']} "
               f"--object {row['object']}")
    view = f"algtrack view {recording} --no-browser --port {VIEW_PORT} --token {token}"
    link = (f"http://127.0.0.1:{VIEW_PORT}/?token={token}"
            f"#t={row['worst_time_s']:.6f}&object={row['object']}")
    commands = "".join(f"<br><code>{html.escape(command)}</code>" for command in (inspect, view))
    return (f"<details><summary>{what}: packet {row['worst_packet']}, "
            f"call {row.get('worst_call', '-')}, {row['worst_time_s']:.3f} s"
            f'</summary>{commands[4:]}<br>then <a href="{html.escape(link)}">this moment</a></details>')


def _change_lines(change, token):
    lines = []
    for index, row in enumerate(change["variants"]):
        first = ""
        if index == 0:
            name = os.path.basename(row["recording"])
            span = len(change["variants"])
            first = (f'<td rowspan="{span}" title="{html.escape(row["recording"])}">'
                     f"{html.escape(name)}</td>"
                     f'<td rowspan="{span}" class="number">{row["object"]}</td>')
        lost = f'{_number(row["lost"], 0)} / {_number(row["gained"], 0)}'
        lines.append("<tr>" + first + _cell(html.escape(row["variant"]))
                     + _cell(_number(_share(row), 2), "number")
                     + _cell(lost, "number bad" if row["lost"] else "number")
                     + _cell(_number(row["moved_median_mm"]), "number")
                     + _cell(_number(row["moved_most_mm"]), "number")
                     + _cell(_number(row["answers_moved_median_mm"]), "number")
                     + _cell(_number(row["answers_moved_most_mm"]), "number")
                     + _cell(_number(row["error_median_mm"]), "number")
                     + _cell(_number(row["filtered_error_median_mm"]), "number")
                     + _cell(_moment(row, token)) + "</tr>")
    return lines


MOST_SHOWN = 500
VIEW_PORT = 8700  # of the viewer that the page's links go to


def write_page(folder, rows):
    """index.html: one file, which needs nothing else."""
    bad = [row for row in rows if row["status"] != "done"]
    changes = changes_of(rows)
    token = secrets.token_hex(16)  # the viewer shows itself to whoever knows it
    recordings = len({row["recording"] for row in rows})
    variants = len({row["variant"] for row in rows})
    parts = [
        "<!DOCTYPE html>\n<html lang=en><head><meta charset=utf-8>"
        '<meta name=viewport content="width=device-width, initial-scale=1">'
        f"<title>Batch of {len(rows)} runs</title><style>{STYLE}</style></head><body>",
        f"<h1>{len(rows)} runs: {recordings} recordings in {variants} variants</h1>",
        f"<p>{len(rows) - len(bad)} done, {len(bad)} failed. "
        "Every run is held against what was recorded. All figures are in "
        "<code>runs.csv</code>, <code>objects.csv</code> and <code>runs.sqlite</code>.</p>"]
    if bad:
        parts.append("<h2>Failed</h2>" + _table(
            ("recording", "variant", "why"),
            ("<tr>" + _cell(html.escape(row["recording"])) + _cell(html.escape(row["variant"]))
             + _cell(html.escape(row["message"]), "bad") + "</tr>" for row in bad)))
    parts.append("<h2>What changed, the worst first</h2>"
                 "<p class=dim>seen: share of packets with the object. lost, gained: packets that "
                 "delivered it in the recording and not in the variant, and the other way round. "
                 "moved: distance between the recorded and the variant's delivered position, and "
                 "between their filtered answers. error: distance of the variant's position, and of "
                 "its answer, to the truth, where there is one. Open a moment for the commands that "
                 "show it.</p>")
    lines = [line for change in changes[:MOST_SHOWN] for line in _change_lines(change, token)]
    parts.append(_table(("recording", "object", "variant", "seen, %", "lost / gained",
                         "moved, mm (median)", "moved most, mm", "answers moved, mm (median)",
                         "answers moved most, mm", "error, mm (median)",
                         "error of answers, mm (median)", "the moment"), lines))
    if len(changes) > MOST_SHOWN:
        parts.append(f"<p>{len(changes) - MOST_SHOWN} more in objects.csv.</p>")
    parts.append("</body></html>\n")
    write_file(os.path.join(folder, "index.html"), "".join(parts).encode(), overwrite=True)

#!/usr/bin/python3
# The log tab through the accessibility bus, as a screen reader reads it,
# after a testing pass of the stand-in whose results name files (one that
# exists, one that does not): the column headers, every row read as its
# date, type and message, the arrow keys moving through the rows, Enter
# showing a message's files, and a missing file saying so in words.
# Run inside dbus-run-session.
#
#   tst_atspi_logtab.py --app ORVEX --standin STANDIN [--show]
import argparse
import json
import os
import re
import shutil
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
SKIP = 77

try:
    import pyatspi
    from gi.repository import GLib
except ImportError as e:
    print("SKIP: no Python AT-SPI binding (python3-pyatspi): %s" % e)
    sys.exit(SKIP)
for tool in ("Xvfb", "/usr/libexec/at-spi-bus-launcher", "xdotool"):
    if not shutil.which(tool):
        print("SKIP: %s is missing" % tool)
        sys.exit(SKIP)

import atspi_dump as reader  # noqa: E402
from atspi_session import Failure, Session, wait_for  # noqa: E402

DAMAGED = "File Structures test found 2 damaged files on the test disk"
WARNED = "SMART test warning on the test disk: 8 reallocated sectors"
# A row as a screen reader reads it: its date (a time, for today), its type
# and its message, then how many files it names, if any.
ROW = re.compile(r"^(?P<date>\d{1,2}[:.]\d{2}(?:[:.]\d{2})?(?:\s?[AaPp]\.?[Mm]\.?)?), "
                 r"(?P<type>[A-Z][a-z]+), (?P<message>.+?)(?:, (?P<files>\d+) files?)?$")


def pump():
    context = GLib.MainContext.default()
    while context.iteration(False):
        pass


def scenario(folder):
    present = os.path.join(folder, "present.txt")
    with open(present, "w") as f:
        f.write("kept\n")
    missing = os.path.join(folder, "gone", "missing.txt")
    path = os.path.join(folder, "scenario.json")
    with open(path, "w") as f:
        json.dump({
            "stepMilliseconds": 100,
            "disks": [{"id": "d", "bsdName": "sdz", "uuid": "0f0e0d0c-0b0a-0908-0706-050403020100",
                       "name": "Test Disk"}],
            "tests": [
                {"test": "SMART", "disk": "d", "outcome": "warning", "log": WARNED},
                {"test": "FileStructures", "disk": "d", "outcome": "error", "log": DAMAGED,
                 "files": [present, missing]},
                {"test": "Memory", "outcome": "passed"},
            ],
        }, f)
    return path, present, missing


def tree_of(app):
    return reader.find(app, lambda n: n.getRole() in (pyatspi.ROLE_TREE, pyatspi.ROLE_TREE_TABLE)
                       and n.name == "Log")


def headers(tree):
    table = tree.queryTable()
    names = []
    for column in range(table.nColumns):
        header = table.getColumnHeader(column)
        names.append(header.name if header is not None else table.getColumnDescription(column))
    return names


def rows(tree):
    """Each visible row's words: the name of its first cell."""
    table = tree.queryTable()
    out = []
    for row in range(table.nRows):
        cell = table.getAccessibleAt(row, 0)
        out.append(cell.name if cell is not None else None)
    return out


def focused_row(tree):
    table = tree.queryTable()
    for row in range(table.nRows):
        for column in range(table.nColumns):
            cell = table.getAccessibleAt(row, column)
            if cell is not None and cell.getState().contains(pyatspi.STATE_FOCUSED):
                return cell.name
    return None


def check_row(words):
    match = ROW.match(words or "")
    if not match:
        raise Failure("the row %r does not read as date, type and message" % words)
    return match


def run(args, folder):
    path, present, missing = scenario(folder)
    with Session(args.app, args.standin, standin_args=["--scenario", path, "--start"]) as session:
        session.start_app()
        app = wait_for(lambda: reader.application("Orvex") or reader.application("orvex"), 30,
                       "Orvex on the accessibility bus", step=pump)
        log_button = wait_for(lambda: reader.find(app, lambda n: n.getRole() == pyatspi.ROLE_PUSH_BUTTON
                                                  and n.name == "Log"), 30, "the Log tab button", step=pump)
        # The pass ends within a second; its entries then stand in the log.
        reader.press(log_button)
        tree = wait_for(lambda: (lambda t: t if t is not None and t.getState().contains(pyatspi.STATE_SHOWING)
                                 else None)(tree_of(app)), 20, "the log's tree, showing", step=pump)

        def has_entries():
            pump()
            return any(words and DAMAGED in words for words in rows(tree))
        wait_for(has_entries, 30, "the pass's entries in the log", step=pump)

        seen = headers(tree)
        if args.show:
            print("headers: %s" % seen)
            for words in rows(tree):
                print("row: %r" % words)
        if seen != ["Type", "Date", "Log Message"]:
            raise Failure("the column headers read %s" % seen)
        print("ok: the column headers read %s" % seen)

        words = [w for w in rows(tree) if w != "Blank row"]
        if not words:
            raise Failure("no rows to read")
        found = {}
        for each in words:
            match = check_row(each)
            found[match["message"]] = match
        if DAMAGED not in found or found[DAMAGED]["type"] != "Error" or found[DAMAGED]["files"] != "2":
            raise Failure("the damaged files' entry reads wrong: %s" % sorted(found))
        if WARNED not in found or found[WARNED]["type"] != "Warning":
            raise Failure("the SMART warning reads wrong: %s" % sorted(found))
        unnamed = [n for n in reader.walk(tree) if n.getRole() != pyatspi.ROLE_TABLE_CELL
                   and not n.name and n.getRole() not in reader.CONTAINERS | reader.SELF_DESCRIBING
                   and n.getState().contains(pyatspi.STATE_SHOWING)]
        if unnamed:
            raise Failure("controls without words on the log tab: %s" % [reader.describe(n) for n in unnamed])
        print("ok: %d rows read as date, type and message" % len(words))

        # The keyboard: into the tree, down the rows to the damaged files'
        # entry (a screen reader follows), Enter shows its files.
        session.focus_window()
        tree.queryComponent().grabFocus()
        for _ in range(12):
            pump()
            if focused_row(tree):
                break
            session.key("Tab")
            time.sleep(0.2)
        wait_for(lambda: focused_row(tree), 10, "a row with the keyboard's focus", step=pump)
        for _ in range(len(words) + 2):
            if DAMAGED in (focused_row(tree) or ""):
                break
            before = focused_row(tree)
            session.key("Down")
            wait_for(lambda: focused_row(tree) != before, 5, "Down to move to the next row", step=pump)
        if DAMAGED not in (focused_row(tree) or ""):
            raise Failure("Down never reached the damaged files' entry (at %r)" % focused_row(tree))
        print("ok: the arrow keys move, read as %r" % focused_row(tree))
        session.key("Return")

        def file_rows():
            pump()
            return [w for w in rows(tree) if w and ", File, " in w]
        shown = wait_for(lambda: len(file_rows()) == 2 and file_rows(), 10, "Enter to show the files",
                         step=pump)
        if args.show:
            for each in shown:
                print("file row: %r" % each)
        by_path = {}
        for each in shown:
            check_row(each)
            for path in (present, missing):
                if (", %s, " % path) in each:
                    by_path[path] = each
        if not by_path.get(missing, "").endswith(", not found"):
            raise Failure("the missing file does not say so: %r" % by_path.get(missing))
        if by_path.get(present, "").endswith(", not found"):
            raise Failure("the file that exists reads as missing: %r" % by_path.get(present))
        print("ok: the missing file reads %r" % by_path[missing])
    return 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--app", required=True)
    parser.add_argument("--standin", required=True)
    parser.add_argument("--show", action="store_true", help="print what is read")
    args = parser.parse_args()
    started = time.monotonic()
    folder = tempfile.mkdtemp(prefix="orvex-logtab.")
    try:
        status = run(args, folder)
    except Failure as e:
        print("FAIL: %s" % e)
        return 1
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    print("done in %.1f s" % (time.monotonic() - started))
    return status


if __name__ == "__main__":
    sys.exit(main())

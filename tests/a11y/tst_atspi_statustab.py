#!/usr/bin/python3
# The status tab through the accessibility bus, as a screen reader reads it:
# before a testing pass, after one (the stand-in's default scenario), with
# the drives' result box open and after closing it. Each dump is compared
# with the one kept beside this file; a status change must also be announced
# as object:property-change:accessible-name. Run inside dbus-run-session.
# The kept dumps are those of a machine without a battery, a RAID set or a
# SMART-capable drive (the test machines): elsewhere those tests read "not
# applicable" differently. --update writes them anew, to be read over.
#
#   tst_atspi_statustab.py --app ORVEX --standin STANDIN --expected DIR [--update]
#   tst_atspi_statustab.py --app ORVEX --standin STANDIN --count-unnamed
import argparse
import difflib
import os
import shutil
import sys
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
for tool in ("Xvfb", "/usr/libexec/at-spi-bus-launcher"):
    if not shutil.which(tool):
        print("SKIP: %s is missing" % tool)
        sys.exit(SKIP)

import atspi_dump as reader  # noqa: E402
from atspi_session import Failure, Session, wait_for  # noqa: E402


def pump():
    context = GLib.MainContext.default()
    while context.iteration(False):
        pass


def status_dump(root):
    lines = reader.dump(root)
    return "\n".join(lines) + "\n"


def settled(read, quiet=1.0, timeout=20):
    """A dump that has stayed the same for `quiet` seconds."""
    last, since = None, time.monotonic()
    deadline = since + timeout
    while time.monotonic() < deadline:
        pump()
        now = read()
        if now != last:
            last, since = now, time.monotonic()
        elif time.monotonic() - since >= quiet:
            return now
        time.sleep(0.05)
    raise Failure("the status tab did not settle")


class Checker:
    def __init__(self, expected_dir, update):
        self.expected_dir = expected_dir
        self.update = update

    def expect(self, name, root, timeout, ready=None):
        path = os.path.join(self.expected_dir, name + ".txt")
        if self.update:
            if ready:
                wait_for(ready, timeout, "the status tab to be ready for %s.txt" % name, step=pump)
            text = settled(lambda: status_dump(root))
            with open(path, "w") as f:
                f.write(text)
            print("wrote %s" % path)
            return text
        with open(path) as f:
            want = f.read()
        seen = [None]

        def matches():
            pump()
            seen[0] = status_dump(root)
            return seen[0] == want
        try:
            wait_for(matches, timeout, "the status tab to read as %s.txt" % name, step=pump)
        except Failure:
            diff = difflib.unified_diff(want.splitlines(), seen[0].splitlines(), name + ".txt (expected)",
                                        "as read", lineterm="")
            raise Failure("%s.txt differs:\n%s" % (name, "\n".join(diff)))
        unnamed = reader.unnamed_controls(root, showing_only=True) + reader.symbol_names(root)
        if unnamed:
            raise Failure("controls without words in %s: %s" % (name, unnamed))
        print("ok: %s" % name)
        return want


BUTTONS = (pyatspi.ROLE_PUSH_BUTTON, pyatspi.ROLE_TOGGLE_BUTTON, pyatspi.ROLE_CHECK_BOX)


def named(root, prefix, roles=BUTTONS):
    node = reader.find(root, lambda n: n.getRole() in roles and n.name.startswith(prefix))
    if node is None:
        raise Failure("no button named %s..." % prefix)
    return node


def run(args):
    with Session(args.app, args.standin) as session:
        session.start_app()
        app = wait_for(lambda: reader.application("Orvex") or reader.application("orvex"), 30,
                       "Orvex on the accessibility bus", step=pump)
        root = wait_for(lambda: reader.status_tab(app), 30, "the status tab", step=pump)

        if args.count_unnamed:
            settled(lambda: status_dump(root))
            unnamed = reader.unnamed_controls(root)
            print(status_dump(root))
            print("unnamed controls on the status tab: %d, showing: %d"
                  % (len(unnamed), len(reader.unnamed_controls(root, showing_only=True))))
            for line in unnamed:
                print("  " + line)
            symbols = reader.symbol_names(root)
            print("controls named only by a sign: %d" % len(symbols))
            for line in symbols:
                print("  " + line)
            return 0

        check = Checker(args.expected, args.update)
        before = check.expect("before", root, 20)

        # Every name that a pass changes must be announced.
        announced = []
        listener = lambda event: announced.append(event.source)  # noqa: E731
        pyatspi.Registry.registerEventListener(listener, "object:property-change:accessible-name")
        # Start Testing is a push button to a screen reader, and its press
        # action starts the pass.
        start = named(app, "Start Testing", roles=(pyatspi.ROLE_PUSH_BUTTON,))
        reader.press(start)
        def pass_finished():
            groups = reader.status_groups(root)
            return len(groups) == 4 and not any(n.name.endswith("Pending") for n in groups)
        after = check.expect("after", root, 60, ready=pass_finished)
        pump()
        names_now = {(n.getRoleName(), n.name) for n in announced if n is not None}
        changed = set(after.splitlines()) - set(before.splitlines())
        for line in sorted(changed):
            role, _, rest = line.strip().partition(" ")
            if role not in ("push button", "image"):
                continue
            name = rest.split(" [")[0].strip("'\"")
            if (role, name) not in names_now:
                raise Failure("the change to %s %r was not announced (announced: %s)"
                              % (role, name, sorted(names_now)))
        print("ok: %d name changes announced" % len(announced))

        # The drives' box: its advice is text with links, the other groups
        # faded away; Close brings them back.
        drives = named(root, "Drives:")
        reader.press(drives)
        check.expect("box", root, 20)
        reader.press(named(drives, "Close"))
        check.expect("after", root, 20)
    return 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--app", required=True)
    parser.add_argument("--standin", required=True)
    parser.add_argument("--expected", default=os.path.join(HERE, "expected"))
    parser.add_argument("--update", action="store_true", help="write the dumps as they are now")
    parser.add_argument("--count-unnamed", action="store_true")
    args = parser.parse_args()
    started = time.monotonic()
    try:
        status = run(args)
    except Failure as e:
        print("FAIL: %s" % e)
        return 1
    print("done in %.1f s" % (time.monotonic() - started))
    return status


if __name__ == "__main__":
    sys.exit(main())

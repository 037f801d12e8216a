#!/usr/bin/python3
# A walk through the window with the keyboard alone, on a display of its own,
# after a testing pass of the stand-in: Tab to the drives' group, Enter opens
# its box, Tab on to the advice's first link, Escape closes the box. At each
# step the keyboard's place is read through the accessibility bus and the
# screen is saved, to be looked at. Run inside dbus-run-session.
#
#   keyboard_walk.py --app ORVEX --standin STANDIN --shots DIR
import argparse
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)

import pyatspi  # noqa: E402
from gi.repository import GLib  # noqa: E402

import atspi_dump as reader  # noqa: E402
import xshot  # noqa: E402
from atspi_session import Failure, Session, wait_for  # noqa: E402


def pump():
    context = GLib.MainContext.default()
    while context.iteration(False):
        pass


def focused(app):
    return reader.find(app, lambda n: n.getState().contains(pyatspi.STATE_FOCUSED))


def say(node):
    return reader.describe(node) if node is not None else "nothing"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--app", required=True)
    parser.add_argument("--standin", required=True)
    parser.add_argument("--shots", required=True)
    args = parser.parse_args()
    os.makedirs(args.shots, exist_ok=True)
    with Session(args.app, args.standin, standin_args=["--start"]) as session:
        session.start_app()
        app = wait_for(lambda: reader.application("Orvex") or reader.application("orvex"), 30,
                       "Orvex on the accessibility bus", step=pump)
        root = wait_for(lambda: reader.status_tab(app), 30, "the status tab", step=pump)
        wait_for(lambda: all(not g.name.endswith("Pending") for g in reader.status_groups(root)), 60,
                 "the end of the pass", step=pump)

        def shot(name):
            path = os.path.join(args.shots, "a11y-%s.png" % name)
            xshot.save_root(session.env["DISPLAY"], path)
            print("saved %s, the keyboard on %s" % (path, say(focused(app))))

        session.focus_window()
        for _ in range(30):
            now = focused(app)
            if now is not None and now.name.startswith("Drives:"):
                break
            session.key("Tab")
            pump()
        else:
            raise Failure("Tab never reached the drives' group")
        shot("walk-1-group")
        session.key("Return")
        wait_for(lambda: (lambda f: f is not None and f.name.startswith("Drives:"))(focused(app))
                 and reader.find(root, lambda n: n.name == "Close"
                                 and n.getState().contains(pyatspi.STATE_SHOWING)), 10,
                 "the box to open with the keyboard on it", step=pump)
        wait_for(lambda: reader.find(root, lambda n: n.getRole() == pyatspi.ROLE_LINK
                                     and n.getState().contains(pyatspi.STATE_SHOWING)), 10,
                 "the advice to show", step=pump)
        import time
        time.sleep(0.6)
        shot("walk-2-box-open")
        for _ in range(10):
            link = reader.find(root, lambda n: n.getRole() == pyatspi.ROLE_LINK
                               and n.getState().contains(pyatspi.STATE_FOCUSED))
            if link is not None:
                break
            session.key("Tab")
            time.sleep(0.1)
            pump()
        else:
            raise Failure("Tab never reached a link of the advice")
        print("the keyboard is on the link %r" % link.name)
        shot("walk-3-link")
        session.key("Escape")
        wait_for(lambda: (lambda f: f is not None and f.name.startswith("Drives:")
                          and f.getState().contains(pyatspi.STATE_SHOWING))(focused(app))
                 and not reader.find(root, lambda n: n.getRole() == pyatspi.ROLE_LINK), 10,
                 "Escape to close the box and give the keyboard back to the group", step=pump)
        time.sleep(0.6)
        shot("walk-4-closed")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failure as e:
        print("FAIL: %s" % e)
        sys.exit(1)

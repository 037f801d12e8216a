# The window as a screen reader meets it: Xvfb, the accessibility bus, the
# stand-in daemons and Orvex, all private to one D-Bus session (run this
# inside dbus-run-session), and the status tab read through AT-SPI.
import os
import shutil
import signal
import subprocess
import tempfile
import time

BUS_LAUNCHER = "/usr/libexec/at-spi-bus-launcher"


class Failure(Exception):
    pass


def wait_for(condition, timeout, what, step=None):
    """Polls `condition` (pumping `step` between polls) until it returns a
    true value, which is returned; fails with `what` after `timeout` s."""
    deadline = time.monotonic() + timeout
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise Failure("timed out after %.0f s waiting for %s" % (timeout, what))
        if step:
            step()
        time.sleep(0.02)


class Session:
    """Starts the display, the accessibility bus, the daemons and the
    window; stops them in reverse order."""

    def __init__(self, app, standin, size="1280x800", standin_args=()):
        self.app_path = app
        self.standin_path = standin
        self.standin_args = list(standin_args)
        self.size = size
        self.root = tempfile.mkdtemp(prefix="orvex-a11y.")
        self.processes = []
        self.app = None
        self.standin = None

    def _start(self, argv, env=None, **kwargs):
        process = subprocess.Popen(argv, env=env, start_new_session=True, **kwargs)
        self.processes.append(process)
        return process

    def __enter__(self):
        read_end, write_end = os.pipe()
        self._start(["Xvfb", "-displayfd", str(write_end), "-screen", "0", self.size + "x24",
                     "-nolisten", "tcp", "-noreset"], pass_fds=(write_end,),
                    stderr=subprocess.DEVNULL)
        os.close(write_end)
        with os.fdopen(read_end) as pipe:
            display = pipe.readline().strip()
        if not display:
            raise Failure("Xvfb did not start")
        os.environ["DISPLAY"] = ":" + display
        self._start([BUS_LAUNCHER, "--launch-immediately"], stderr=subprocess.DEVNULL)

        self.env = dict(os.environ)
        runtime = os.path.join(self.root, "runtime")
        os.makedirs(runtime, mode=0o700)
        self.env.update({
            "ORVEX_ROOT": self.root,
            "ORVEX_DAEMON_BUS": "session",
            "XDG_CONFIG_HOME": os.path.join(self.root, "config"),
            "XDG_DATA_HOME": os.path.join(self.root, "data"),
            "XDG_RUNTIME_DIR": runtime,
            "QT_QPA_PLATFORM": "xcb",
            "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1",
            "QT_ACCESSIBILITY": "1",
            "NO_AT_BRIDGE": "0",
        })
        self.standin_log = open(os.path.join(self.root, "standin.log"), "w+")
        self.standin = self._start([self.standin_path, *self.standin_args], env=self.env, stderr=self.standin_log,
                                   stdout=subprocess.DEVNULL)
        wait_for(lambda: "serving" in self._read(self.standin_log), 15, "the stand-in daemons")
        return self

    def start_app(self, *arguments):
        self.app_log = open(os.path.join(self.root, "orvex.log"), "w+")
        self.app = self._start([self.app_path, *arguments], env=self.env, stdout=self.app_log,
                               stderr=subprocess.STDOUT)
        return self.app

    def window_id(self):
        found = subprocess.run(["xdotool", "search", "--onlyvisible", "--pid", str(self.app.pid)],
                               capture_output=True, text=True, env=self.env)
        ids = found.stdout.split()
        return ids[0] if ids else None

    def focus_window(self):
        """The display's keyboard to the window (there is no window manager
        to give it)."""
        window = wait_for(self.window_id, 10, "the window on the display")
        subprocess.run(["xdotool", "windowfocus", "--sync", window], check=True, env=self.env)

    def key(self, *keys):
        """Keys typed into the window, as on a keyboard."""
        window = wait_for(self.window_id, 10, "the window on the display")
        subprocess.run(["xdotool", "key", "--window", window, *keys], check=True, env=self.env)

    @staticmethod
    def _read(log):
        log.flush()
        with open(log.name) as f:
            return f.read()

    def app_output(self):
        return self._read(self.app_log) if self.app else ""

    def __exit__(self, *exc):
        for process in reversed(self.processes):
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
        for process in reversed(self.processes):
            try:
                process.wait(5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        shutil.rmtree(self.root, ignore_errors=True)
        return False

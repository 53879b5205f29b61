"""A terminal of tmux with a shell in it, for checks of what people type and see."""

import os
import subprocess
import sys
import time

PATIENCE = 60  # seconds until something that should be seen is taken for missing


class Terminal:
    """A terminal of 100 columns and 40 lines, with a shell in a folder."""

    def __init__(self, folder):
        self.server = f"qkmem-check-{os.getpid()}"
        environment = {name: text for name, text in os.environ.items()
                       if not name.startswith("QK_MEM_")}
        environment.update(LC_ALL="C.UTF-8", TERM="screen")
        self._tmux("new-session", "-d", "-x", "100", "-y", "40", "-c", folder,
                   "PS1='ready> ' exec /bin/bash --norc", env=environment)
        self.see("ready>")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._tmux("kill-server")

    def _tmux(self, *words, env=None):
        ended = subprocess.run(["tmux", "-L", self.server, "-f", "/dev/null", *words],
                               capture_output=True, text=True, env=env, check=False)
        if ended.returncode != 0:
            sys.exit(f"tmux {words[0]}: {ended.stderr}")
        return ended.stdout

    def press(self, *keys):
        """Keys by tmux's names for them: Enter, C-c."""
        self._tmux("send-keys", *keys)

    def type(self, text):
        """A line, and the key Enter."""
        self._tmux("send-keys", "-l", text)
        self.press("Enter")

    def run(self, line):
        """Clears what is seen, and types a line."""
        self.type("clear")
        self.wait(lambda seen: seen.split() == ["ready>"], "a clear screen")
        self.type(line)

    def seen(self):
        """The lines of the screen, without those at its end that are empty."""
        return self._tmux("capture-pane", "-p").rstrip("\n") + "\n"

    def see(self, *texts):
        """Waits until all of these are seen, and returns what is seen then."""
        return self.wait(lambda seen: all(text in seen for text in texts), texts)

    def wait(self, is_as_wanted, what):
        end = time.monotonic() + PATIENCE
        while True:
            seen = self.seen()
            if is_as_wanted(seen):
                return seen
            if time.monotonic() > end:
                sys.exit(f"not seen: {what}\nbut:\n{seen}")
            time.sleep(0.05)

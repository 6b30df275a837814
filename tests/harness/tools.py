"""What the harness stands on: commands, bounded waits, and work in the background."""

import contextlib
import subprocess
import threading
import time

# How long a test waits for an effect, in seconds. Only a failure uses it up; it is ample, since the machine may be busy.
PATIENCE = 60


class CommandFailed(Exception):
    pass


def run_command(command, input_text=None, check=True):
    """Runs a command and returns its CompletedProcess; a failure names the command and its error output."""
    done = subprocess.run(command, input=input_text, capture_output=True, text=True, timeout=2 * PATIENCE)
    if check and done.returncode != 0:
        raise CommandFailed(f"{' '.join(command)}: status {done.returncode}: {done.stderr.strip()}")
    return done


def read_file(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def eventually(condition, what, timeout=PATIENCE, interval=0.01):
    """Polls the condition until it holds and returns its value. `what` describes the failure; it may be a function."""
    end = time.monotonic() + timeout
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"not within {timeout} s: {what() if callable(what) else what}")
        time.sleep(interval)


@contextlib.contextmanager
def background(*steps):
    """Calls each step over and over in a thread of its own until the block ends. An exception there fails the block;
    the block gets the list of exceptions, so that it can end early."""
    ended, failures = threading.Event(), []

    def work(step):
        try:
            while not ended.is_set():
                step()
        except Exception as error:  # pylint: disable=broad-except; raised in the caller's thread
            failures.append(error)

    threads = [threading.Thread(target=work, args=(step,)) for step in steps]
    for thread in threads:
        thread.start()
    try:
        yield failures
    finally:
        ended.set()
        for thread in threads:
            thread.join()
    if failures:
        raise failures[0]

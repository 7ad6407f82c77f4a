# SPDX-License-Identifier: MIT
"""Calls that last, and that Ctrl-C nevertheless ends.

Python runs signal handlers in the main thread alone, and only between its own instructions: a native call there would
have to return first. So the main thread lets another one make the call, waits for it, and cancels it when a handler
raises an exception, be it KeyboardInterrupt or a SystemExit of the program's own.
"""

import threading
from collections.abc import Callable

# On Windows a wait without an end is deaf to Ctrl-C.
_WAIT_SECONDS = 0.1


class _Call(threading.Thread):
    def __init__(self, call: Callable[[], None]) -> None:
        super().__init__(daemon=True, name="tonwerk")
        self._call = call
        self._done = threading.Event()
        self.failure: BaseException | None = None

    def run(self) -> None:
        try:
            self._call()
        except BaseException as failure:  # the waiting thread raises it
            self.failure = failure
        finally:
            self._done.set()

    def wait(self) -> None:
        while not self._done.wait(_WAIT_SECONDS):
            pass


def call_interruptibly(call: Callable[[], None], cancel: Callable[[], None]) -> None:
    """Makes the call. If a signal handler raises meanwhile, `cancel` is called, and the exception goes on as soon as
    the call has returned. `cancel` must also work for a call that has not yet begun."""
    if threading.current_thread() is not threading.main_thread():
        call()
        return
    thread = _Call(call)
    try:
        thread.start()
        thread.wait()
    except BaseException:
        cancel()
        if thread.ident is not None:
            thread.wait()
        raise
    if thread.failure is not None:
        raise thread.failure

"""Statuses that are not success."""
from . import _table


def status_text(status: int) -> str:
    """A few words for a status."""
    return _table.STATUSES.get(status, ("", "unknown failure" if status < 0 else "unknown warning"))[1]


class Error(Exception):
    """A call of the library failed: its status is negative.

    status    the number, one of `qelj.Status`
    text      a few words for it
    function  the name of the function
    results   what the call would have returned, as it stands behind the failure
    """

    def __init__(self, status, function, results=None):
        super().__init__(status, function)
        self.status, self.function, self.results = status, function, results
        self.text = status_text(status)

    def __str__(self):
        name = _table.STATUSES.get(self.status, ("status",))[0]
        return f"{self.function}: {self.text} ({name}, {self.status})"


class StatusWarning(UserWarning):
    """The output of a call is complete, but its status is positive: `status` and `text` say why."""

    def __init__(self, status, function):
        super().__init__(f"{function}: {status_text(status)}")
        self.status, self.function, self.text = status, function, status_text(status)

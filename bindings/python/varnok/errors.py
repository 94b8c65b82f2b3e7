"""What the package raises.

`Error` means that a call of the library failed: a port, a target or a command could not be used.
`LibraryNotFoundError` and `UsageError` mean that the machine or the program is not as it should be.
They are no `Error`, so a program that goes on after one port's failure does not hide them.
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Generic, Sequence, TypeVar

from .codes import Status

if TYPE_CHECKING:
    from .scsi import ScsiAnswer

_Record = TypeVar("_Record")


class Error(Exception):
    """A call of the library failed.

    call    the function of the library, such as "VARNOK_OpenAdapter"
    status  what the function returned, a `Status`
    detail  what else is known of the failure; may be empty

    The library tells more in its debug log: set the environment variable VARNOK_API_DEBUG to 4.
    """

    def __init__(self, call: str, status: int, detail: str = "") -> None:
        self.call = call
        self.status = Status(status)
        self.detail = detail
        super().__init__(call, status, detail)

    @property
    def name(self) -> str:
        """The name of the status, such as "VARNOK_STATUS_NOT_FOUND".

        A port of a legacy driver may also fail with an error number's name, such as "ENOENT".
        """
        return self.status.name

    def __str__(self) -> str:
        text = f"{self.call}: {self.name} (0x{self.status.value:08x})"
        return f"{text}: {self.detail}" if self.detail else text


class ListError(Error, Generic[_Record]):
    """A list could not be read to its end.

    records  the records before the one that failed

    The status is VARNOK_STATUS_SUCCESS when no call failed, but the target has more LUNs than the
    library lists (2047).
    """

    def __init__(self, call: str, status: int, detail: str, records: Sequence[_Record]) -> None:
        super().__init__(call, status, detail)
        self.records: Sequence[_Record] = tuple(records)
        self.args = (call, status, detail, self.records)


class ScsiError(Error):
    """The driver failed a SCSI command.

    answer  what came back all the same, a `ScsiAnswer`. A legacy driver may give sense data, a
            native one gives none

    A command that the device itself refused is no such error: see `ScsiAnswer.sense`.
    """

    def __init__(self, call: str, status: int, detail: str, answer: ScsiAnswer) -> None:
        super().__init__(call, status, detail)
        self.answer = answer
        self.args = (call, status, detail, answer)


class SenseError(Exception):
    """The device refused a SCSI command. Only `ScsiAnswer.check` raises it.

    answer  what came back, a `ScsiAnswer`
    """

    def __init__(self, answer: ScsiAnswer) -> None:
        self.answer = answer
        super().__init__(answer)

    def __str__(self) -> str:
        return f"the device refused the command: {self.answer.sense}"


class LibraryNotFoundError(OSError):
    """The library libvarnok is not installed, or is not one that this package can use."""


class UsageError(RuntimeError):
    """A library or a port is used that is not open, or that another process opened."""

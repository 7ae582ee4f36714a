import datetime
import os
from typing import Any, Iterable, Iterator, Literal, Optional, Union

_Path = Union[str, bytes, os.PathLike[str], os.PathLike[bytes]]
# str, int, float, bool, datetime.datetime (UTC), bytes, list[str] (authors, tags, addresses)
# and, for "Error", a dict of its kind and message.
Value = Union[str, int, float, bool, datetime.datetime, bytes, list[str], dict[str, str]]
Result = dict[str, Value]

FailureKind = Literal[
    "not-found",
    "permission",
    "damaged",
    "encrypted",
    "importer-crashed",
    "importer-timeout",
    "too-large",
    "timed-out",
    "unsupported",
]

class Error(Exception):
    kind: FailureKind
    message: str
    path: Optional[str]
    result: Optional[Result]
    def __init__(
        self,
        kind: str,
        message: str,
        path: Optional[str] = ...,
        result: Optional[Result] = ...,
    ) -> None: ...

def import_file(path: _Path, *, ocr: Optional[bool] = ..., timeout: Optional[float] = ...) -> Result: ...
def import_data(
    data: bytes, url: Optional[str] = ..., mime_type: Optional[str] = ...
) -> Result: ...
def import_directory(path: _Path) -> Result: ...
def attributes(path: _Path) -> Result: ...
def classify(path: _Path) -> dict[str, Union[str, int, bool]]: ...
def supports_file(path: _Path) -> bool: ...
def is_plain_file(path: _Path) -> bool: ...
def formats() -> list[dict[str, Any]]: ...
def import_tree(
    path_or_paths: Union[_Path, Iterable[_Path]],
    jobs: Optional[int] = ...,
    *,
    cores: Optional[int] = ...,
    ocr: Optional[bool] = ...,
    timeout: Optional[float] = ...,
    follow_links: bool = ...,
) -> Iterator[tuple[str, Result]]: ...
def walk(path_or_paths: Union[_Path, Iterable[_Path]], *, follow_links: bool = ...) -> list[str]: ...

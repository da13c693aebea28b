import os
from dataclasses import dataclass
from typing import Any, Callable, Iterable, Literal, Optional, Union

@dataclass
class Options:
    format: Optional[str] = None
    type: Optional[str] = None
    colour_space: Optional[str] = None
    quality: int = 0
    ext: str = ".orb"
    input_colour_space: str = "linear"
    threads: int = 1
    transfer: Literal["paths", "bytes"] = "paths"
    @classmethod
    def of(cls, options: Union[Options, dict[str, Any], None]) -> Options: ...

@dataclass
class Result:
    input: str
    output: str
    error: Optional[str] = None
    kind: Optional[str] = None
    worker: Optional[str] = None

def output_path(input: str, out_dir: Union[str, os.PathLike[str]],
                options: Union[Options, dict[str, Any], None]) -> str: ...
def convert_one(source: Union[str, bytes], options: Union[Options, dict[str, Any], None],
                name: Optional[str] = None) -> bytes: ...
def convert(
    inputs: Iterable[Union[str, os.PathLike[str]]],
    out_dir: Union[str, os.PathLike[str]],
    options: Union[Options, dict[str, Any], None] = None,
    client: Any = None,
    progress: Optional[Callable[[Result, int, int], object]] = None,
    jobs: Optional[int] = None,
) -> list[Result]: ...

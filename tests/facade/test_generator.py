"""Throwing into a generator, compared with one of the interpreter's own."""

from __future__ import annotations

import pytest
from kestrune.search_analytics import _candidate_era_configs


class RefusingError(Exception):
    """An error that cannot be made of one argument."""

    def __init__(self, one: object) -> None:
        raise ZeroDivisionError(one)


class NoError(Exception):
    """An error whose class makes something else."""

    def __new__(cls) -> object:
        return 7


def error_with_traceback(error: BaseException) -> BaseException:
    try:
        raise error
    except BaseException as caught:
        return caught


TRACEBACK = error_with_traceback(KeyError("elsewhere")).__traceback__

# What throw() is given, made anew for each generator.
THROWN = {
    "a class": lambda: (KeyError,),
    "an instance": lambda: (KeyError("z"),),
    "an instance that was raised": lambda: (error_with_traceback(KeyError("z")),),
    "class and none": lambda: (KeyError, None),
    "class and argument": lambda: (KeyError, "z"),
    "class and arguments": lambda: (KeyError, ("y", "z")),
    "class and no arguments": lambda: (KeyError, ()),
    "class and its instance": lambda: (KeyError, KeyError("z")),
    "class and a raised instance": lambda: (KeyError, error_with_traceback(KeyError("z"))),
    "class and instance of a subclass": lambda: (LookupError, KeyError("z")),
    "class and instance of another class": lambda: (KeyError, ValueError("z")),
    "class and instance of its base": lambda: (KeyError, LookupError("z")),
    "class and traceback": lambda: (KeyError, None, TRACEBACK),
    "class, instance and traceback": lambda: (KeyError, KeyError("z"), TRACEBACK),
    "class, other instance and traceback": lambda: (KeyError, ValueError("z"), TRACEBACK),
    "instance and traceback": lambda: (KeyError("z"), None, TRACEBACK),
    "all but the class none": lambda: (KeyError, None, None),
    "instance and value": lambda: (KeyError("z"), "value"),
    "instance and instance": lambda: (KeyError("z"), KeyError("z")),
    "no traceback": lambda: (KeyError, None, 7),
    "no error and no traceback": lambda: (7, None, 7),
    "no error": lambda: (7,),
    "a class of something else": lambda: (int, 7),
    "a class that cannot be made": lambda: (RefusingError, 7),
    "a class that lacks its argument": lambda: (RefusingError,),
    "a class that makes no error": lambda: (NoError,),
    "stop": lambda: (StopIteration,),
    "stop with a value": lambda: (StopIteration, 7),
    "a stop that was made": lambda: (StopIteration(7),),
    "exit": lambda: (GeneratorExit,),
    "nothing": lambda: (),
    "too much": lambda: (KeyError, None, None, None),
}


def frames_of_others(error: BaseException) -> int:
    """Count the frames of a traceback that are not those of the call itself."""
    frames, entry = 0, error.__traceback__
    while entry is not None:
        frames += entry.tb_frame.f_code.co_name == "error_with_traceback"
        entry = entry.tb_next
    return frames


def described(error: BaseException | None) -> object:
    """Return what a caller can see of an error that came out of a generator."""
    if error is None:
        return None
    return (
        type(error),
        repr(error.args),
        frames_of_others(error),
        described(error.__cause__),
        described(error.__context__),
    )


def outcome_of_throw(candidates, steps, arguments):
    for _ in range(steps):
        next(candidates, None)
    try:
        try:
            raise OSError("being handled")
        except OSError:
            candidates.throw(*arguments)
    except BaseException as error:
        return described(error), list(candidates)
    raise AssertionError("nothing came out")


def ordinary():
    yield 1
    yield {"era": 1}


EVERY_THROW = pytest.mark.parametrize("thrown", THROWN.values(), ids=THROWN)
EVERY_STATE = pytest.mark.parametrize(
    "steps", range(4), ids=["fresh", "started", "at the last", "exhausted"]
)


@EVERY_STATE
@EVERY_THROW
def test_throw_does_what_that_of_an_ordinary_generator_does(thrown, steps, recwarn):
    expected = outcome_of_throw(ordinary(), steps, thrown())
    warned = [(entry.category, str(entry.message)) for entry in recwarn]
    recwarn.clear()
    globals().pop("__warningregistry__", None)  # the same line may warn again
    assert outcome_of_throw(_candidate_era_configs({"era": 1}), steps, thrown()) == expected
    assert [(entry.category, str(entry.message)) for entry in recwarn] == warned


@EVERY_STATE
@EVERY_THROW
def test_throw_leaves_the_generator_alone_where_its_warning_is_an_error(thrown, steps):
    expected = outcome_of_throw(ordinary(), steps, thrown())
    assert outcome_of_throw(_candidate_era_configs({"era": 1}), steps, thrown()) == expected

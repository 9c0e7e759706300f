"""Types: stubs that say what is, and programs that checkers are content with."""

import ast
import inspect
import json
import os
import pathlib
import subprocess
import sys

import pytest

import stubs
import vxcam
from vxcam import _vxcam

HERE = pathlib.Path(__file__).parent
PACKAGE = HERE.parent / "vxcam"


def run(*command, cwd):
    environment = dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path))
    done = subprocess.run([sys.executable, *command], cwd=cwd, env=environment, capture_output=True, text=True)
    return done.returncode, done.stdout + done.stderr


def test_the_stub_of_the_properties_is_that_of_the_table():
    assert (PACKAGE / "_properties.pyi").read_text() == stubs.text(), (
        "make it anew: python3 python/tests/stubs.py > python/vxcam/_properties.pyi")


def arguments_of(function):
    """How many the extension's function takes, by its own word: "get(self: ..., arg0: str) -> object"."""
    words = function.__doc__.splitlines()[0]
    return words[: words.rindex(" -> ")].count(": ")


def test_the_stub_of_the_extension_is_that_of_the_module():
    tree = ast.parse((PACKAGE / "_vxcam.pyi").read_text())
    named = {node.name for node in tree.body if isinstance(node, (ast.ClassDef, ast.FunctionDef))}
    named |= {node.target.id for node in tree.body if isinstance(node, ast.AnnAssign)}
    assert named == {name for name in vars(_vxcam) if not name.startswith("_")}
    for node in tree.body:
        if not isinstance(node, ast.ClassDef):
            continue
        there = vars(getattr(_vxcam, node.name))
        declared = {item.name: item for item in node.body if isinstance(item, ast.FunctionDef)}
        assert declared.keys() - {"__init__"} == {name for name in there if not name.startswith("_")}
        for name, item in declared.items():
            if not item.decorator_list:
                assert len(item.args.args) == arguments_of(there[name]), f"{node.name}.{name}"


@pytest.mark.besides("checking.py")
def test_programs_and_the_package_are_checked_strictly(besides):
    told = json.loads(besides())
    for name in ("programs", "package"):
        assert told[name][0] == 0, told[name][1]
    code, text = told["wrong"]
    assert code == 1
    for line in (3, 4, 6, 7, 9):
        assert f"wrong.py:{line}: error" in text, text
    assert "wrong.py:8" not in text


def test_the_users_program_runs():
    code, told = run(str(HERE / "user_program.py"), cwd=HERE)
    assert code == 0, told


def public(thing):
    for name, member in inspect.getmembers_static(thing):
        if not name.startswith("_"):
            yield name, member


def test_everything_has_a_docstring():
    missing = []
    for name in vxcam.__all__:
        thing = getattr(vxcam, name)
        if not inspect.isclass(thing):
            continue
        if not thing.__doc__:
            missing.append(name)
        for member_name, member in public(thing):
            own = any(member_name in vars(base) for base in thing.__mro__
                      if base.__module__.startswith("vxcam"))
            tuple_field = member_name in getattr(thing, "_fields", ())
            if own and not tuple_field and not inspect.getdoc(member):
                missing.append(f"{name}.{member_name}")
    assert not missing


def test_help_of_grab_is_enough_to_use_it():
    text = vxcam.Camera.grab.__doc__
    for word in inspect.signature(vxcam.Camera.grab).parameters:
        assert word == "self" or word in text, word

"""What objects say of themselves."""

import ast
import inspect
import json
import pathlib
import pydoc
import subprocess

import oxbeam
from conftest import COMMAND


def test_all_objects_are_described_as_by_the_command():
    said = json.loads(subprocess.check_output([COMMAND, "describe", "--format", "json"]))
    assert oxbeam.objects() == [entry["name"] for entry in said]
    assert oxbeam.objects("light") == [entry["name"] for entry in said if entry["kind"] == "light"]
    for entry in said:
        description = oxbeam.describe(entry["name"])
        assert list(description.parameters) == [p["id"] for p in entry["parameters"]]
        for p in entry["parameters"]:
            own = description.parameters[p["id"]]
            default = tuple(p["default"]) if isinstance(p["default"], list) else p["default"]
            assert own.default == default, (entry["name"], p["id"])
            assert own.help == p.get("help", "")
            lower = p.get("lowerBound")
            assert own.lower == (tuple(lower) if isinstance(lower, list) else lower)
            assert own.items == {item["value"]: item["name"] for item in p.get("items", [])}


def test_help_of_every_class_has_every_parameter():
    for name in oxbeam.objects():
        text = pydoc.render_doc(getattr(oxbeam, name), renderer=pydoc.plaintext)
        for parameter in oxbeam.describe(name).parameters.values():
            assert parameter.name in text
            assert parameter.help.split("\n")[0][:40] in text


def stubs():
    """Names and signatures of the .pyi."""
    tree = ast.parse(pathlib.Path(oxbeam.__file__).with_suffix(".pyi").read_text())
    return {node.name: node for node in tree.body if isinstance(node, (ast.ClassDef, ast.FunctionDef))}


def arguments(node):
    a = node.args
    return [arg.arg for arg in (*a.posonlyargs, *a.args, a.vararg, *a.kwonlyargs, a.kwarg) if arg]


def public(names):
    return {name for name in names if not name.startswith("_")}


def test_types_for_editors_are_those_of_the_module():
    known = stubs()
    assert public(known) == set(oxbeam.__all__)
    for name in public(known):
        thing, node = getattr(oxbeam, name), known[name]
        assert thing.__doc__, name
        if isinstance(node, ast.FunctionDef):
            assert arguments(node) == list(inspect.signature(thing).parameters), name
            continue
        members = {member.name: member for member in node.body if isinstance(member, ast.FunctionDef)}
        fields = {member.target.id for member in node.body if isinstance(member, ast.AnnAssign)}
        if not issubclass(thing, BaseException):  # which set theirs when they are made
            assert public(vars(thing)) == public({*members, *fields}), name
        for method, stub in members.items():
            own = inspect.getattr_static(thing, method, None)
            if inspect.isfunction(own):
                assert arguments(stub) == list(inspect.signature(own).parameters), (name, method)

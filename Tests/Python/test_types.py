"""What editors are told of the module is what it has."""

import ast
import inspect
import pathlib

import oxbeam
import pytest

STUB = ast.parse((pathlib.Path(oxbeam.__file__).parent / "__init__.pyi").read_text())
DECLARED = {node.name: node for node in STUB.body if isinstance(node, (ast.ClassDef, ast.FunctionDef))}
CLASSES = sorted(name for name, node in DECLARED.items() if isinstance(node, ast.ClassDef))


def arguments(function):
    """Names, kinds and defaults, without types; Ellipsis stands for any default."""
    a = function.args
    positional = [*a.posonlyargs, *a.args]
    defaults = [None] * (len(positional) - len(a.defaults)) + a.defaults
    said = [(p.arg, "positional", d) for p, d in zip(positional, defaults)]
    said += [(a.vararg.arg, "rest", None)] if a.vararg else []
    said += [(p.arg, "keyword", d) for p, d in zip(a.kwonlyargs, a.kw_defaults)]
    said += [(a.kwarg.arg, "keywords", None)] if a.kwarg else []
    return [(name, kind, d if d is None else (ast.literal_eval(d),)) for name, kind, d in said if name != "self"]


def own_arguments(function):
    """The same of what is there. What is compiled has it in the first line of what it says of itself."""
    try:
        parameters = inspect.signature(function).parameters.values()
    except ValueError:
        line = function.__doc__.splitlines()[0]
        return arguments(ast.parse(f"def {line}: ...").body[0])
    kinds = {"VAR_POSITIONAL": "rest", "KEYWORD_ONLY": "keyword", "VAR_KEYWORD": "keywords"}
    return [
        (p.name, kinds.get(p.kind.name, "positional"), None if p.default is p.empty else (p.default,))
        for p in parameters
        if p.name != "self"
    ]


def members(node):
    """By name: "property", "settable" or a function."""
    found = {}
    for member in node.body:
        if isinstance(member, ast.AnnAssign):
            found[member.target.id] = "settable"
        elif isinstance(member, ast.FunctionDef):
            decorators = [ast.unparse(d) for d in member.decorator_list]
            set_too = f"{member.name}.setter" in decorators
            found[member.name] = "settable" if set_too else "property" if "property" in decorators else member
    return found


def own_members(of):
    """The same of a class that is there, without what its bases have."""
    found = {}
    for name, member in vars(of).items():
        if isinstance(member, property):
            found[name] = "settable" if member.fset else "property"
        elif inspect.isroutine(member):
            found[name] = member
    return found


def is_public(name):
    return not name.startswith("_") or name in ("__getitem__", "__setitem__", "__contains__", "__iter__", "__len__")


def test_the_module_has_what_is_declared_and_nothing_else():
    named = {node.target.id for node in STUB.body if isinstance(node, ast.AnnAssign)}
    assert set(oxbeam.__all__) == {name for name in DECLARED if not name.startswith("_")}
    assert {name for name in named if not name.startswith("_") or name.startswith("__")} == {"__version__"}
    for name in ("load", "load_packages", "objects", "describe"):
        assert own_arguments(getattr(oxbeam, name)) == arguments(DECLARED[name]), name
    assert all(getattr(oxbeam, name).__doc__ for name in oxbeam.__all__)


@pytest.mark.parametrize("name", CLASSES)
def test_classes_have_what_is_declared_and_nothing_else(name):
    of = getattr(oxbeam, name)
    said, there = members(DECLARED[name]), own_members(of)
    if issubclass(of, tuple):
        assert [key for key, what in said.items() if what == "settable"] == list(of._fields)
        assert len([m for m in DECLARED[name].body if getattr(m, "value", None)]) == len(of._field_defaults)
        return
    assert {n for n in there if is_public(n)} <= set(said)
    for key, what in said.items():
        if isinstance(what, ast.FunctionDef):
            assert own_arguments(getattr(of, key)) == arguments(what), key
        elif key in there:
            assert there[key] == what, key
        else:
            assert hasattr(of, key) or key == "errors", key  # which objects alone have

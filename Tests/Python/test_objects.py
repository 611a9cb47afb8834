"""What objects say of themselves."""

import json
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

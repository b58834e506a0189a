"""Compares what the debuggers' files assume with the sources: kivsdu.natvis, which no test can load
into its debugger, and the constants of the Python modules."""

import pathlib
import re
import sys
import unittest
import xml.etree.ElementTree as xml

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "debuggers"))
# pylint: disable=wrong-import-position
from kivsdu_debug import constants, statuses

NATVIS = ROOT / "debuggers" / "kivsdu.natvis"
NAMESPACE = "{http://schemas.microsoft.com/vstudio/debugger/natvis/2010}"

# Elements of the format that the file uses: their attributes, and the elements inside.
ELEMENTS = {
    "AutoVisualizer": ((), ("Type",)),
    "Type": (("Name",), ("Intrinsic", "DisplayString", "Expand")),
    "Intrinsic": (("Name", "Expression"), ()),
    "DisplayString": (("Condition",), ()),
    "Expand": ((), ("Item", "ExpandedItem", "Synthetic", "LinkedListItems", "ArrayItems",
                    "CustomListItems")),
    "Item": (("Name", "Condition", "Optional"), ()),
    "ExpandedItem": (("Condition",), ()),
    "Synthetic": (("Name",), ("Expand",)),
    "LinkedListItems": ((), ("HeadPointer", "NextPointer", "ValueNode")),
    "HeadPointer": ((), ()),
    "NextPointer": ((), ()),
    "ValueNode": ((), ()),
    "ArrayItems": ((), ("Size", "ValuePointer")),
    "Size": ((), ()),
    "ValuePointer": ((), ()),
    "CustomListItems": (("MaxItemsPerView",), ("Variable", "Loop")),
    "Variable": (("Name", "InitialValue"), ()),
    "Loop": ((), ("Break", "Item", "Exec")),
    "Break": (("Condition",), ()),
    "Exec": ((), ()),
}
BUILT_IN = {"this", "int", "unsigned", "long", "short", "char", "void"}
FIELD = re.compile(r"(\w+)\s*(?:\[[^;]*\])?\s*(?:\{[^;]*\})?;")
STRUCT = re.compile(r"struct (?:alignas\(\d+\) )?(\w+) \{\n(.*?)\n\s*\}[^\n]*;", re.DOTALL)


def structures():
    """The fields of each structure of the headers."""
    found = {}
    files = [*(ROOT / "include" / "kivsdu").glob("*.h"), *(ROOT / "sd").rglob("*.h")]
    for file in files:
        text = re.sub(r"//[^\n]*|/\*.*?\*/", "", file.read_text(encoding="ascii"), flags=re.DOTALL)
        for name, body in STRUCT.findall(text):
            found.setdefault(name, set()).update(FIELD.findall(body))
    return found


def tag(element):
    """An element's name without its namespace."""
    return element.tag.removeprefix(NAMESPACE)


def expressions(element):
    """The expressions of one element, without those inside it."""
    name = tag(element)
    found = [element.get(attribute) for attribute in ("Condition", "Expression", "InitialValue")]
    text = element.text or ""
    if name == "DisplayString":
        found += re.findall(r"\{(.*?)\}", text)
    elif not ELEMENTS[name][1]:
        found.append(text)
    return [re.sub(r",[a-z]+$", "", one.strip()) for one in found if one and one.strip()]


class NatvisTest(unittest.TestCase):
    """The file for the debuggers of Windows."""

    @classmethod
    def setUpClass(cls):
        cls.root = xml.parse(NATVIS).getroot()
        cls.structures = structures()
        cls.fields = set().union(*cls.structures.values())

    def test_elements(self):
        """Elements and attributes are those of the format."""
        for element in self.root.iter():
            name = tag(element)
            self.assertIn(name, ELEMENTS)
            attributes, inside = ELEMENTS[name]
            self.assertLessEqual(set(element.keys()), set(attributes), name)
            for child in element:
                self.assertIn(tag(child), inside, f"in {name}")

    def test_types_and_fields(self):
        """Each type and field of an expression is in the headers."""
        for described in self.root:
            name = described.get("Name").removeprefix("kiv::")
            self.assertIn(name, self.structures)
            local = {one.get("Name") for one in described.iter()
                     if tag(one) in ("Intrinsic", "Variable")}
            for element in described.iter():
                linked = tag(element) in ("NextPointer", "ValueNode")  # expressions of the node
                for text in expressions(element):
                    with self.subTest(type=name, expression=text):
                        self.check(text, self.fields if linked else self.structures[name], local)

    def check(self, text, fields, local):
        """Looks up the names of an expression."""
        text = re.sub(r"0x[0-9A-Fa-f]+", "", text).replace("kiv::", "")
        for member in re.findall(r"(?:->|\.)(\w+)", text):
            self.assertIn(member, self.fields)
        for name in re.findall(r"[A-Za-z_]\w*", re.sub(r"(?:->|\.)\w+", "", text)):
            known = name in fields or name in local or name in BUILT_IN or name in self.structures
            self.assertTrue(known, f"{name} is not a field")

    def test_parentheses(self):
        """Brackets of all kinds come in pairs."""
        for element in self.root.iter():
            for text in expressions(element):
                for pair in ("()", "[]"):
                    self.assertEqual(text.count(pair[0]), text.count(pair[1]), text)

    def test_statuses(self):
        """The context names each status of status.h."""
        context = next(one for one in self.root if one.get("Name") == "KivSdContext")
        shown = [(one.get("Condition"), one.text) for one in context if one.get("Condition")]
        wanted = [(f"status == {number}", f"{name}, OS error {{osError}}")
                  for number, name in statuses.names().items()]
        self.assertGreater(len(wanted), 100)
        self.assertEqual(shown, wanted)


class ConstantsTest(unittest.TestCase):
    """The Python modules."""

    def test_constants(self):
        """Each constant has the value of the sources."""
        text = "\n".join(file.read_text(encoding="ascii") for file in (ROOT / "sd").rglob("*.h"))
        for name in (name for name in vars(constants) if name.startswith("k")):
            with self.subTest(name=name):
                found = re.search(rf"constexpr \w+ {name} = (0x\w+|\d+)u?;", text)
                self.assertIsNotNone(found)
                self.assertEqual(int(found[1], 0), getattr(constants, name))


if __name__ == "__main__":
    unittest.main()

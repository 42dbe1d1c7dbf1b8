"""Another property-list library and this one read what the other wrote, with nothing lost on the way: through the
program that compiles the resource tables."""

import datetime
import os
import plistlib
import random
import subprocess
import tempfile
import unittest
from pathlib import Path

COMPILE = Path(os.environ["ROSTER_BUILD_DIR"], "resources/compile_tables")
SOURCES = Path(os.environ["ROSTER_SOURCE_DIR"], "resources")

FORMATS = (plistlib.FMT_XML, plistlib.FMT_BINARY)
SCALARS = [
    True, False, 0, 1, -1, 127, 128, 255, 256, 65535, 65536, 2**31, 2**32 - 1, 2**32, 2**63 - 1, 2**63, 2**64 - 1,
    -128, -2**31, -2**63, 0.0, 1.0, -2.5, 0.1, 1e300, 5e-324, 2.0**53, "", "plain", "x" * 14, "x" * 15, "x" * 300,
    "Zoë", "日本語", "🎈 and text", "line\nand\ttab", "<&>\"'", "é" * 15, b"", b"\x00\xff", b"d" * 1000,
    datetime.datetime(2001, 1, 1), datetime.datetime(1970, 1, 1), datetime.datetime(2024, 2, 29, 23, 59, 59),
    datetime.datetime(1, 1, 1), datetime.datetime(9999, 12, 31, 23, 59, 59), [], {}, {"": "empty key"},
]


def random_value(source, depth=0):
    kind = source.randrange(8 if depth < 6 else 5)
    if kind == 5:
        return [random_value(source, depth + 1) for _ in range(source.randrange(20))]
    if kind > 5:
        return {random_text(source): random_value(source, depth + 1) for _ in range(source.randrange(20))}
    return [lambda: source.choice(SCALARS), lambda: source.randrange(-2**63, 2**64), lambda: source.uniform(-9, 9),
            lambda: random_text(source), lambda: source.randbytes(source.randrange(40))][kind]()


def random_text(source):
    return "".join(source.choice("aZ0 é日🎈.") for _ in range(source.randrange(source.choice((4, 40)))))


def typed(value):
    """The value with its types, so that 1, 1.0 and True differ."""
    if isinstance(value, list):
        return [typed(element) for element in value]
    if isinstance(value, dict):
        return {key: typed(element) for key, element in value.items()}
    return type(value).__name__, repr(value)


class PropertyListPeers(unittest.TestCase):
    @staticmethod
    def rows():
        """Values to be copied: a name, the value, and the formats that can hold it."""
        yield "scalars", SCALARS, FORMATS
        yield "scalars under keys", {f"key {index}": value for index, value in enumerate(SCALARS)}, FORMATS
        yield "fractions of a second", [datetime.datetime(2020, 1, 2, 3, 4, 5, 250000),
                                        datetime.datetime(1999, 12, 31, 23, 59, 59, 500000)], FORMATS[1:]
        for count in (255, 256, 65536):  # many objects take wide references
            yield f"{count} objects", list(range(0, 3 * count, 3)), FORMATS[1:]
        for draw in range(5):
            source = random.Random(f"20 {draw}")
            yield f"draw {draw}", [random_value(source) for _ in range(10)], FORMATS

    @staticmethod
    def copied(data):
        """What our program makes of the bytes, as bytes."""
        with tempfile.TemporaryDirectory() as folder:
            Path(folder, "table").write_bytes(data)
            subprocess.run([COMPILE, folder, Path(folder, "to"), "table"], check=True)
            return Path(folder, "to/table").read_bytes()

    def test_the_standard_library_reads_back_what_it_wrote(self):
        for name, value, formats in self.rows():
            for file_format in formats:
                with self.subTest(name, file_format=file_format):
                    data = self.copied(plistlib.dumps(value, fmt=file_format, sort_keys=False))
                    back = plistlib.loads(data, fmt=plistlib.FMT_BINARY)
                    self.assertEqual(typed(back), typed(value))

    def test_the_tables_beside_the_library_are_those_of_the_source_tree(self):
        tables = [path.relative_to(SOURCES) for path in SOURCES.rglob("*.plist")]
        self.assertGreater(len(tables), 10)
        for table in tables:
            with self.subTest(table):
                data = Path(os.environ["ROSTER_RESOURCES"], table).read_bytes()
                source = plistlib.loads((SOURCES / table).read_bytes())
                self.assertEqual(data.startswith(b"bplist00"), table.name != "AccountCreators.plist")
                self.assertEqual(typed(plistlib.loads(data)), typed(source))


if __name__ == "__main__":
    unittest.main()

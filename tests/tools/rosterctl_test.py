"""Runs rosterctl as a user does, on devices of its own. The registries are written and read back by Python's
own property-list library."""

import datetime
import fcntl
import json
import os
import plistlib
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

TOOL = os.environ["ROSTERCTL"]
MAIL, NOTES, CALENDARS, CONTACTS = ("com.nimbal.Dataclass." + name for name in "Mail Notes Calendars Contacts".split())
INSTANT = datetime.datetime(2024, 2, 29, 12, 0, 0)
FORMATS = (plistlib.FMT_BINARY, plistlib.FMT_XML)


def account(identifier, type="Mail", cls="IMAPAccount", **properties):
    return {"Identifier": identifier, "Type": type, "Class": cls, **properties}


def exactly(value):
    """A form of a property list in which only equal values of equal types are equal, whatever the order of keys."""
    if isinstance(value, dict):
        return "dict", sorted((key, exactly(item)) for key, item in value.items())
    if isinstance(value, list):
        return "list", [exactly(item) for item in value]
    return type(value).__name__, repr(value)


class Device(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name) / "device"
        self.registry = self.root / "var/lib/roster/Preferences/com.nimbal.roster.plist"
        self.environment = dict(os.environ)

    def accounts(self):
        return plistlib.loads(self.registry.read_bytes())["Accounts"]

    def stored(self, identifier):
        return next(found for found in self.accounts() if found["Identifier"] == identifier)

    def run_tool(self, *arguments, status=0, input=None):
        """The outcome of a run that must end with the status."""
        done = subprocess.run([TOOL, "--root", self.root, *arguments], input=input, capture_output=True, timeout=60,
                              env=self.environment)
        self.assertEqual(done.returncode, status, (arguments, done.stdout, done.stderr))
        return done

    def out(self, *arguments, **options):
        return self.run_tool(*arguments, **options).stdout.decode()

    def err(self, *arguments, **options):
        return self.run_tool(*arguments, **options).stderr.decode()

    def json(self, *arguments, **options):
        return json.loads(self.out("--json", *arguments, **options))


class RosterctlTest(Device):
    def setUp(self):
        super().setUp()
        self.registry.parent.mkdir(parents=True)

    def write(self, *accounts, format=plistlib.FMT_BINARY):
        self.write_root({"Version": 12, "Accounts": list(accounts)}, format)

    def write_root(self, root, format=plistlib.FMT_BINARY):
        self.registry.write_bytes(plistlib.dumps(root, fmt=format))

    # ---- the main job

    FOREIGN = account(
        "A", DisplayName="Wörk 日本 😀", Username="me", Real=1.0, Integer=1, Large=2**64 - 1, Small=-(2**63),
        Yes=True, No=False, Empty="", Data=b"\0\xff" * 40, When=INSTANT,
        Tree={"List": [1, 1.5, [b"", {}], INSTANT, {"$data": "x", "b": b"\0"}], "": {}, "No": float("nan")},
        Less=float("-inf"),
        **{"$data": "not data", "Sync Identifier": "S", "Enabled Dataclasses": [NOTES], "Key = odd": "x"})

    def test_a_foreign_registry_comes_back_with_every_other_value_equal(self):
        child = account("C", "SMTP", "SMTPAccount", Port=25, Ratio=2.0, Extra={"Deep": [INSTANT]})
        other = account("B", "Exchange", "EASAccount", ChildAccounts=[child], Blob=b"x")
        for format in FORMATS:
            with self.subTest(format):
                self.write(self.FOREIGN, other, format=format)
                text = self.out("list", "--json")
                listed = json.loads(text)
                self.assertEqual(text, json.dumps(listed, indent=2, ensure_ascii=False) + "\n")
                self.assertEqual([row["identifier"] for row in listed], ["A", "B", "C"])
                self.assertEqual(listed[0], {
                    "identifier": "A", "type": "Mail", "class": "IMAPAccount", "displayName": "Wörk 日本 😀",
                    "parent": None, "enabled": [NOTES]})
                self.assertEqual((listed[2]["parent"], listed[2]["enabled"]), ("B", None))
                self.run_tool("set", "A", "DisplayName=Home", "Port:=993")
                self.run_tool("enable", "A", "mail")
                expected = {**self.FOREIGN, "DisplayName": "Home", "Port": 993, "Enabled Dataclasses": [NOTES, MAIL]}
                self.assertEqual(exactly(self.accounts()), exactly([expected, other]))

    def test_list_aligns_what_a_terminal_shows(self):
        child = account("C", "SMTP", "S", **{"Enabled Dataclasses": []})
        self.write(account("A", DisplayName="日本", **{"Enabled Dataclasses": [NOTES, MAIL, "x"]}),
                   account("B", "Exchange", "EASAccount", DisplayName="e\u0301\x1b[2J\u2028", ChildAccounts=[child]),
                   account("é", "LDAP", "x\n", DisplayName=""), account("D", "LDAP", "x"))
        self.assertEqual(self.out("list"), """\
IDENTIFIER  TYPE      CLASS        NAME              ENABLED
A           Mail      IMAPAccount  日本              Mail, Notes
B           Exchange  EASAccount   e\u0301\\u001B[2J\\u2028  -
  C         SMTP      S            e\u0301\\u001B[2J\\u2028  none
é           LDAP      x\\n                            -
D           LDAP      x            -                 -
""")
        self.assertEqual(self.out("list", "--type", "Yahoo"), "no accounts\n")

    def test_what_show_prints_can_be_given_back(self):
        self.write(self.FOREIGN, account("B"))
        shown = self.json("show", "A")
        self.assertEqual(shown.keys(), self.FOREIGN.keys())
        words = [f"{key}:={json.dumps(value)}" for key, value in shown.items() if "=" not in key]
        self.run_tool("unset", "A", "Tree", "Data", "When", "Real", "Less")
        self.run_tool("set", "A", *words)
        self.assertEqual(exactly(self.stored("A")), exactly(self.FOREIGN))

    # ---- values

    def test_assignments_are_stored_as_they_are_written(self):
        self.write(account("A"))
        microseconds = INSTANT.replace(microsecond=123456)
        for word, key, value in (
                ("X=1", "X", "1"), ("X==:=", "X", "=:="), ("a:b=c=d", "a:b", "c=d"), ("X=", "X", ""),
                ("[a]=[b,c]", "[a]", "[b,c]"), ("list=types", "list", "types"), ("X:=1e3", "X", 1000.0),
                ('X:="a\\u00e9\\ud83d\\ude00"', "X", "aé😀"), ("X:=[]", "X", []), ("X:={}", "X", {}),
                ('X:={"$date": "2024-02-29T12:00:00.123456Z"}', "X", microseconds),
                ('X:={"$dictionary": {"$dictionary": {"$dictionary": {"$real": 1}}}}', "X",
                 {"$dictionary": {"$real": 1}})):
            with self.subTest(word):
                self.run_tool("set", "A", word)
                self.assertEqual(exactly(self.stored("A")[key]), exactly(value))
                self.run_tool("unset", "A", key)
                self.assertEqual(self.stored("A"), account("A"))

    def test_dump_prints_the_same_for_both_formats_and_for_the_standard_input(self):
        texts, file = set(), self.root / "file"
        for data in [plistlib.dumps({"Tree": self.FOREIGN["Tree"], "No": []}, fmt=format) for format in FORMATS]:
            file.write_bytes(data)
            texts |= {self.out("--json", "dump", file), self.out("dump", "-", "--json", input=data)}
        text, = texts
        self.assertEqual(text, json.dumps(json.loads(text), indent=2, ensure_ascii=False) + "\n")
        file.write_bytes(plistlib.dumps({"Text": "a\x1b[2J\nb"}, fmt=plistlib.FMT_BINARY))
        self.assertEqual("Text  a\\u001B[2J\\nb\n", self.out("dump", file))

    def test_dump_takes_no_more_memory_than_what_is_stored(self):
        file = self.root / "shared"
        file.write_bytes(plistlib.dumps(["é" * 500_000] * 400, fmt=plistlib.FMT_BINARY))
        process = subprocess.Popen([TOOL, "--json", "dump", file], stdout=subprocess.DEVNULL)
        _, process.returncode, usage = os.wait4(process.pid, 0)
        self.assertEqual((process.returncode, usage.ru_maxrss < 500_000), (0, True), "kilobytes, of 400 MB of output")

    # ---- accounts

    def test_add_prints_the_identifier_of_what_it_added(self):
        identifier = self.out("add", "CalDAV", "CalDAVAccount", "DisplayName=Work", "Port:=8443").removesuffix("\n")
        self.assertRegex(identifier, "^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$")
        self.assertEqual(self.accounts(), [account(identifier, "CalDAV", "CalDAVAccount", DisplayName="Work", Port=8443,
                                                   **{"Sync Identifier": identifier})])
        child = self.json("add", "SMTP", "SMTPAccount", "Identifier=C", "--parent", identifier)
        self.assertEqual(child, {"identifier": "C"})
        self.assertEqual(self.stored(identifier)["ChildAccounts"],
                         [account("C", "SMTP", "SMTPAccount", **{"Sync Identifier": "C"})])
        self.assertEqual([row["identifier"] for row in self.json("list", "--type", "SMTP")], ["C"])
        self.run_tool("delete", identifier)
        self.assertEqual(self.accounts(), [])

    def test_a_child_is_changed_in_its_place(self):
        children = [account(name, "Exchange", "EASAccount", Odd=[1.0, INSTANT]) for name in "CDE"]
        self.write(account("A", ChildAccounts=children), account("B"))
        for words in ("set D Port:=25 Class=Other", "unset D Odd", "enable D Mail calendars", f"disable D {MAIL}"):
            self.run_tool(*words.split())
        children[1] = account("D", "Exchange", "Other", Port=25, **{"Enabled Dataclasses": [CALENDARS]})
        self.assertEqual(exactly(self.accounts()), exactly([account("A", ChildAccounts=children), account("B")]))
        self.assertEqual(self.json("show", "D")["Port"], 25)
        self.run_tool("delete", "D")
        self.assertEqual(self.stored("A")["ChildAccounts"], [children[0], children[2]])

    def test_what_has_no_effect_comes_with_a_warning(self):
        (self.root / "etc/roster").mkdir(parents=True)
        (self.root / "etc/roster/restrictions.plist").write_bytes(plistlib.dumps({"CloudBackup": False}))
        child = account("C", "Exchange", "EASAccount")
        self.write(account("A", "Exchange", "EASAccount", ChildAccounts=[child],
                           **{"Provisioned Dataclasses": [MAIL], "Enabled Dataclasses": [MAIL]}),
                   account("N", "NimbalAccount", "CloudAccount"))
        for arguments, warning in ((("enable", "A", "Notes"), "not provisioned"),
                                   (("enable", "N", "backup"), "restricted"),
                                   (("enable", "C", "Mail"), "its parent A"), (("unset", "A", "Nope"), "Nope")):
            self.assertRegex(self.err(*arguments), f"^rosterctl: warning: .*{warning}.*\n$", arguments)
        self.assertEqual(self.stored("A")["Enabled Dataclasses"], [MAIL, NOTES])

    def test_a_change_loses_nothing_of_what_the_library_cannot_use(self):
        child = account("C", "SMTP", "SMTPAccount")
        for odd in (account("B", "Unheard"), account("B", cls="Stale"), account("Z", ChildAccounts=[child])):
            self.write(account("A"), odd, account("Z", Port=1))
            self.run_tool("set", "A", "X=1")
            self.assertEqual(self.accounts(), [account("A", X="1"), odd, account("Z", Port=1)])
        self.write(account("A"), "x")
        before = self.registry.read_bytes()
        warning = self.err("set", "A", "X=1")
        [copy] = [path for path in self.registry.parent.iterdir() if path != self.registry]
        self.assertEqual(copy.read_bytes(), before)
        self.assertIn(f"it is kept as {copy}: ", warning)

    def test_a_change_waits_for_who_else_changes_the_registry_and_says_for_whom(self):
        self.write(account("A"))
        self.run_tool("set", "A", "X=1")
        with open(self.root / "var/lib/roster/RegistryChange") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            command = subprocess.Popen([TOOL, "--root", self.root, "set", "A", "X=2"], stderr=subprocess.PIPE, text=True)
            self.assertIn(f"waiting for process {os.getpid()}, ", command.stderr.readline())
            self.assertEqual(self.stored("A")["X"], "1")
        self.assertEqual((command.communicate()[1], command.returncode), ("", 0))
        self.assertEqual(self.stored("A")["X"], "2")

    def test_a_due_migration_is_neither_ended_nor_waited_for_by_a_change(self):
        self.write_root({"Version": 11, "Accounts": [account("A")]})
        before = self.registry.read_bytes()
        for change in ("add SMTP S", "set A X=1", "unset A X", "enable A Mail", "disable A Mail", "delete A"):
            self.assertIn("Run 'rosterctl migrate' first; --force makes the change, and the migration never",
                          self.err(*change.split(), status=1), change)
            self.assertEqual(self.registry.read_bytes(), before, change)
        self.assertIn("no migration is running, but one is still due", self.err("wait-for-migration"))
        self.assertIn("could not migrate the accounts", self.err("migrate", status=1))
        self.run_tool("set", "A", "DisplayName:=5", "--force")
        self.assertEqual(plistlib.loads(self.registry.read_bytes()),
                         {"Version": 12, "Accounts": [account("A", DisplayName=5)]})
        (self.root / "Library/Mail").mkdir(parents=True)
        (self.root / "Library/Mail/Accounts.plist").touch()
        self.environment["HOME"] = str(self.root)
        self.assertIn("a change that the migration removes", self.err("set", "A", "X=1", status=1))
        lock = self.root / "var/lib/roster/AccountMigrationInProgress"
        lock.unlink()
        lock.mkdir()
        self.assertIn("could not wait for a migration", self.err("wait-for-migration", status=1))

    # ---- failures

    def test_failures_have_a_status_and_a_reason_and_save_nothing(self):
        self.write(account("A", ChildAccounts=[account("C", "SMTP", "SMTPAccount")]))
        before = self.registry.read_bytes()
        for words, reason in (
                ("show X", "account X: there is none with this identifier in /"), ("set X a=b", "account X: "),
                ("set A Type=Exchange", "Type: "), ("set C Identifier=D", "Identifier: "),
                ("set A X=1 Class:=5", "Class: "), ("unset A X Class", "Class: "),
                ("add Foo Bar", "The account type (Foo) is not supported"),
                (["add", "Mail", ""], "The account class is required."),
                ("add Mail Bogus", "is no mail account class"), ("set A Class=Bogus", "is no mail account class"),
                ("add SMTP S Identifier=C", "there is an account C already"),
                ("add SMTP S --parent C", "account C: it is a child itself"),
                ("enable A Mail Backup", "Backup: accounts of the type \"Mail\" do not support it"),
                ("disable A Nope", "Nope: there is no such dataclass"),
                ("dump /nope", "could not open /nope: No such file or directory"),
                ("dump -", "could not read the standard input"), ("check /nope", "could not open /nope: ")):
            self.fails(words, reason, 1)
        for words, reason in (
                ("", "a command is missing"), ("bogus", "bogus: there is no such command"), ("list --bogus", "--bogus"),
                ("set A", "PROPERTY is required"), ("enable A", "DATACLASS is required"), ("set A word", "KEY=TEXT"),
                ("set A ChildAccounts:=5", "it is an integer, not an array; --force"),
                ("set A ChildAccounts:=[{},5]", "its element 1 is an integer, not a dictionary"),
                ("add SMTP S DisplayName:=5", "it is an integer, not a text; --force"),
                (["set", "A", "Enabled Dataclasses=Mail"], "it is a text, not an array"),
                ("set A :=1", "the key is missing"), ("set A X:=null", "'rosterctl unset'"),
                ("set A X:={", "X: it is not JSON"), (["set", "A", "X:=1 2"], "X: it is not JSON"),
                ('set A X:={"a":1,"a":1}', "twice"), (f"set A X:={2**64}", "too large"),
                ('set A X:={"$data":"A"}', "base64"), ('set A X:={"$date":"now"}', "instant"),
                ('set A X:={"$data":"","b":1}', "alone"), ("set A X:=" + "[" * 9999, "deeply"),
                (["set", "A", b"X=\xff"], "UTF-8"), (["--root", "", "list"], "--root")):
            self.fails(words, reason, 2)
        self.assertEqual(self.registry.read_bytes(), before)

    def fails(self, words, reason, status):
        with self.subTest(words):
            words = words.split() if isinstance(words, str) else words
            done = self.run_tool(*words, status=status, input=b"bplist00")
            self.assertRegex(done.stderr.decode(), "(^|\n)rosterctl: .*: .*\n$|; see")
            self.assertIn(reason, done.stderr.decode())
            self.assertEqual(done.stdout, b"")

    def test_a_registry_that_cannot_be_read_or_replaced_fails_the_command(self):
        self.registry.mkdir()
        for arguments in (("list",), ("add", "Exchange", "EASAccount")):
            self.assertRegex(self.err(*arguments, status=1), f"rosterctl: could not .*{self.registry}")
        self.registry.rmdir()
        self.registry.write_bytes(b"not a registry")
        self.assertIn("it is kept as ", self.err("add", "Exchange", "EASAccount"))
        kept = [path for path in self.registry.parent.iterdir() if ".damaged-" in path.name]
        self.assertEqual([path.read_bytes() for path in kept], [b"not a registry"])
        self.assertEqual(len(self.accounts()), 1)
        for command in ("list", "types", "--help"):  # "types" is more than is held back until the end
            with open("/dev/full", "wb") as full:
                done = subprocess.run([TOOL, "--root", self.root, command], stdout=full, stderr=subprocess.PIPE)
            self.assertEqual((done.returncode, b"No space left" in done.stderr), (1, True), command)

    def test_a_tool_with_rights_of_its_own_refuses_another_device(self):
        bin = Path(TOOL).parent
        if os.geteuid() != 0 or os.statvfs(bin).f_flag & os.ST_NOSUID:
            self.skipTest("only root may give a program away, and not everywhere")
        with tempfile.TemporaryDirectory(dir=bin) as folder:
            tool = shutil.copy(TOOL, folder)
            os.chown(tool, 0, 65534)
            os.chmod(tool, 0o2755)
            done = subprocess.run([tool, "--root", self.root, "list"], capture_output=True, timeout=60)
        self.assertEqual((done.returncode, b"rosterctl: --root: a set-uid" in done.stderr), (2, True), done)

    # ---- check

    def test_check_tells_what_a_load_would_drop_repair_and_ignore(self):
        path = {"AccountPath": "/var/Mail/IMAP-me"}
        grandparent = account("C", "SMTP", "SMTPAccount", ChildAccounts=[])
        for root, finding in (
                ([], "damage|com.nimbal.roster.plist|roster.plist is not a dictionary"),
                ({}, 'damage|com.nimbal.roster.plist|counts as empty: it has no "Accounts"'),
                ({"Version": 12}, "ignores|Accounts|no such key"),
                ({"Version": 12, "Accounts": "x"}, 'damage|com.nimbal.roster.plist|its "Accounts" are not an array'),
                ({"Version": 12, "Accounts": INSTANT}, "damage|com.nimbal.roster.plist|counts as empty: "),
                ({"Version": 12, "Accounts": [], "X": INSTANT}, "damage|com.nimbal.roster.plist|but not all else"),
                ({"Accounts": []}, "repairs|Version|missing"),
                ({"Version": 11.0, "Accounts": []}, "repairs|Version|migration"),
                ({"Version": 11.5, "Accounts": []}, "repairs|Version|it is a real number, not a whole number"),
                ({"Version": 13, "Accounts": []}, "repairs|Version|newer"),
                ({"Version": 12, "Accounts": [], "Extra": 1}, "ignores|Extra|no such key"),
                ([{"Type": 5}], 'drops|Accounts[0]|its "Type" is an integer, not a text, and it has no "Class"'),
                ([account("A", cls="Bogus", **path)], 'repairs|Accounts[0] (A)|the class becomes "IMAPAccount"'),
                ([account(5)], 'repairs|Accounts[0]|its "Identifier" is an integer'),
                ([account("A"), account("A")], "ignores|Accounts[0] (A)|its equal, is found in its place"),
                ([account("A", X=1), account("A")], "drops|Accounts[0] (A)|identifier: Accounts[1] (A)"),
                ([account("A", DisplayName=5)], 'ignores|Accounts[0] (A)|"DisplayName" counts as absent'),
                ([account("A", **{"Enabled Dataclasses": "x"})], "ignores|Accounts[0] (A)|counts as absent"),
                ([account("A", **{"Enabled Dataclasses": [5]})], "ignores|Accounts[0] (A)|it is an integer"),
                ([account("A", **{"Enabled Dataclasses": [CALENDARS]})], "ignores|Accounts[0] (A)|do not support"),
                ([account("A", **{"Enabled Dataclasses": [NOTES], "Provisioned Dataclasses": [MAIL]})],
                 "ignores|Accounts[0] (A)|not among the account's provisioned"),
                ([account("A", ChildAccounts={})], "ignores|Accounts[0].ChildAccounts|it is a dictionary"),
                ([account("A", ChildAccounts=[account("C", "Foo")])],
                 "ignores|Accounts[0].ChildAccounts[0] (C)|its type"),
                ([account("A", ChildAccounts=[{"Type": "SMTP", "Class": "S"}])],
                 "repairs|Accounts[0].ChildAccounts[0]|another identifier at each load"),
                ([account("A", ChildAccounts=[account("A", "SMTP")])],
                 "ignores|Accounts[0].ChildAccounts[0] (A)|a top-level account has the same"),
                ([account("A", ChildAccounts=[grandparent])],
                 "ignores|Accounts[0].ChildAccounts[0].ChildAccounts|no children of its own")):
            with self.subTest(finding):
                wrapped = {"Version": 12, "Accounts": root} if isinstance(root, list) and root else root
                self.write_root(wrapped, FORMATS[INSTANT in dict(wrapped).values()])
                self.registry.write_bytes(self.registry.read_bytes().replace(b"2024-02-29T", b"2024-13-29T"))
                before = self.registry.read_bytes()
                found, = self.json("check", status=1)["findings"]
                *where, text = finding.split("|")
                self.assertEqual([found["kind"], found["where"].removeprefix(f"{self.registry.parent}/")], where)
                self.assertIn(text, f"{found['what']}: {found['why']}")
                self.assertIn(text, self.out("check", self.registry, status=1))
                self.assertEqual(self.registry.read_bytes(), before)

    def test_check_has_nothing_to_say_about_a_sound_registry_or_none(self):
        self.assertIn("there is no such file yet", self.out("check"))
        self.write(self.FOREIGN, account("B", "Exchange", "EAS", ChildAccounts=[account("C", "SMTP", "S")]))
        self.assertEqual(self.out("check"), f"{self.registry}: nothing to report\n")
        self.registry.write_bytes(self.registry.read_bytes()[:-1])
        self.assertIn('"kind": "damage"', self.out("--json", "check", status=1))
        self.registry.unlink()
        self.registry.mkdir()
        self.assertIn('"kind": "unread"', self.out("--json", "check", status=1))

    def test_the_configuration_is_listed(self):
        types = {row["type"]: row for row in self.json("types")}
        self.assertEqual(len(types), 15)
        self.assertIn(MAIL, [entry["dataclass"] for entry in types["Mail"]["dataclasses"]])
        self.assertEqual([row["name"] for row in self.json("dataclasses")][::13], ["Mail", "SharedStreams"])
        self.assertIn("SharedStreams", self.out("types"))
        self.assertIn("SharedStreams", self.out("dataclasses"))


if __name__ == "__main__":
    unittest.main()

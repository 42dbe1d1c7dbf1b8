"""Runs `rosterctl watch` beside programs that change the registry, and `rosterctl creators` with tables of its own."""

import array
import fcntl
import json
import os
import plistlib
import shutil
import signal
import subprocess
import termios
import threading
import time
import unittest
from pathlib import Path

from rosterctl_test import CONTACTS, MAIL, NOTES, TOOL, Device, account

LIBRARY, PLUGIN = "libroster.so.1", str(Path(os.environ["ROSTER_LIBRARY"]).parent / "plugins/good.so")
LIMIT = 60  # seconds; only a test that fails takes them


class Watch:
    """A running watch, ready to see changes."""

    def __init__(self, test, *arguments):
        self.process = subprocess.Popen([TOOL, "--root", test.root, "--verbose", "watch", *arguments], text=True,
                                        encoding="utf-8", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.watchdog = threading.Timer(LIMIT, self.process.kill)
        self.watchdog.start()
        test.addCleanup(self.close)
        self.heard = self.hear("note: watching ")

    def line(self):
        return self.process.stdout.readline()

    def hear(self, text):
        """The lines of the standard error up to the one with the text."""
        heard = ""
        while text not in heard:
            line = self.process.stderr.readline()
            assert line, f"it ended without {text!r}: {heard}"
            heard += line
        return heard

    def end(self, stop=signal.SIGTERM):
        """What it printed and has not been read yet, its later complaints, and its exit status."""
        self.process.send_signal(stop)
        return (*self.process.communicate(), self.process.returncode)

    def close(self):
        self.watchdog.cancel()
        self.process.kill()
        self.process.communicate()


class ChangedDevice(Device):
    def put(self, data):
        """Replaces the registry in one step, in folders that are made when they are missing."""
        self.registry.parent.mkdir(parents=True, exist_ok=True)
        self.registry.with_name("new").write_bytes(data)
        self.registry.with_name("new").rename(self.registry)

    def put_accounts(self, *identifiers, **properties):
        accounts = [account(identifier, "Exchange", "EASAccount", **properties) for identifier in identifiers]
        self.put(plistlib.dumps({"Version": 12, "Accounts": accounts}, fmt=plistlib.FMT_BINARY))


class WatchTest(ChangedDevice):
    def test_each_change_by_another_program_is_one_line(self):
        self.put_accounts("A", "B", DisplayName="Wörk\n", **{"Enabled Dataclasses": [NOTES, CONTACTS, MAIL, "Odd"]})
        human, machine = Watch(self), Watch(self, "--json")
        child = None
        for command, word, names, of_child in (
                (("disable", "A", "Notes"), "modified", [NOTES], None),
                (("set", "A", "Port:=1"), "modified", [MAIL, CONTACTS, "Odd"], None),
                (("add", "SMTP", "SMTPAccount", "--parent", "A"), "modified", [], "added"),
                (("delete", "A"), "removed", [MAIL, CONTACTS, "Odd"], "removed")):
            child = self.out(*command).strip() or child
            short = ", ".join(name.removeprefix("com.nimbal.Dataclass.") for name in names) or "-"
            self.assertEqual(human.line(), f"{word:8}  A  Exchange  Wörk\\n  {short}" +
                             (f"  (child {child} added)\n" if of_child == "added" else "\n"), command)
            self.assertEqual(json.loads(machine.line()), {
                "change": word, "identifier": "A", "type": "Exchange", "displayName": "Wörk\n", "dataclasses": names,
                "children": [{"change": of_child, "identifier": child}] if of_child else []}, command)
        identifier = self.out("add", "CalDAV", "CalDAVAccount").strip()
        self.assertEqual(human.line(), f"added     {identifier}  CalDAV    -       -\n")
        self.assertEqual(json.loads(machine.line())["displayName"], None)
        self.assertEqual((human.end(), machine.end()), (("", "", 0), ("", "", 0)))

    def test_a_registry_behind_a_relative_link_is_followed(self):
        self.put_accounts("A")
        target = self.registry.rename(self.registry.with_name("target"))
        self.registry.symlink_to(target.name)
        watch = Watch(self)
        target.unlink()
        self.assertEqual(watch.line().split()[:2], ["removed", "A"])

    def test_a_registry_that_cannot_be_read_counts_as_unchanged(self):
        self.put(b"")
        watch = Watch(self)
        self.assertIn("warning: could not read", watch.heard)
        self.put_accounts("A")
        watch.hear("can be read again")
        self.put_accounts("A", Port=1)
        self.assertEqual(watch.line().split()[:2], ["modified", "A"])
        for damage, cause in ((b"x", "could not read"), (plistlib.dumps([]), "is not a dictionary"),
                              (plistlib.dumps({"Accounts": 1}), '"Accounts" are not an array'),
                              (plistlib.dumps({"Old": []}), 'it has no "Accounts"')):
            self.put(damage)
            self.assertEqual(watch.hear("warning: ").count(cause), 1, cause)
            self.put(damage)
        self.put_accounts("A", Port=2)
        self.assertNotIn("warning", watch.hear("can be read again"))
        self.assertEqual(watch.line().split()[:2], ["modified", "A"])
        self.assertEqual(watch.end(), ("", "", 0))

    def test_a_request_to_end_is_followed_after_what_came_before_it(self):
        for stop in (signal.SIGINT, signal.SIGTERM):
            self.put_accounts("A")
            watch = Watch(self)
            self.run_tool("delete", "A")
            self.assertEqual(watch.end(stop), ("removed   A  Exchange  -  -\n", "", 0), stop)

    def test_a_reader_that_stalls_or_goes_does_not_keep_it(self):
        for stop in (signal.SIGINT, signal.SIGTERM, None):
            self.put_accounts()
            watch = Watch(self)
            fcntl.fcntl(watch.process.stdout, fcntl.F_SETPIPE_SZ, 4096)
            self.put_accounts(*map(str, range(100)), DisplayName="x" * 1000)
            waiting = array.array("i", [0])
            while waiting[0] == 0:
                time.sleep(0.01)
                fcntl.ioctl(watch.process.stdout, termios.FIONREAD, waiting)
            if stop:
                watch.process.send_signal(stop)
            else:
                watch.process.stdout.close()
            self.assertEqual((watch.process.wait(LIMIT), watch.process.stderr.read()), (0, ""), stop)
        watch = Watch(self)
        watch.process.stdout.close()
        self.assertEqual((watch.process.wait(LIMIT), watch.process.stderr.read()), (0, ""))


def entry(kind, library=None, name=None, *dataclasses):
    description = {"Framework": library, "Class": name, "Supported Dataclasses": list(dataclasses) or None}
    return {"Type": kind, "Description": {key: value for key, value in description.items() if value is not None}}


class CreatorsTest(ChangedDevice):
    def use_table(self, **types):
        resources = self.root.with_name("resources")
        if not resources.exists():
            shutil.copytree(os.environ["ROSTER_RESOURCES"], resources)
        (resources / "AccountCreators.plist").write_bytes(plistlib.dumps(types))
        self.environment["ROSTER_RESOURCES"] = str(resources)

    def problems(self, *arguments, status=1):
        trials = self.json("creators", *arguments, status=status)
        return [row["problem"] for trial in trials for row in trial["entries"] or [trial]]

    def test_the_table_that_is_shipped_works(self):
        self.assertEqual(self.out("creators", "OnMyDevice").splitlines()[1].split(), [
            "OnMyDevice", "FullAccount", "DeviceLocalAccount", LIBRARY, "-", "yes"])
        self.assertEqual(len(self.out("creators").splitlines()), 16)
        self.assertEqual(set(self.problems(status=0)), {None})

    def test_what_is_wrong_with_an_entry_is_told(self):
        malformed = "Malformed AccountCreators information. Could not find the "
        rows = (("x", "it is passed over: it is not a dictionary"),
                ({}, 'it is passed over: it has no "Type"'),
                (entry("Other", LIBRARY, "Some"), 'it is passed over: there is no such "Type"'),
                (entry("NotifierAccount", LIBRARY, "Some"), 'it is passed over: it has no "Supported Dataclasses"'),
                ({"Type": "NotifierAccount"}, 'it is passed over: it has no "Description"'),
                ({"Type": "SyncAccount", "Description": []}, malformed + "description for the SyncAccount with type T"),
                (entry("FullAccount"), malformed + "path to the framework for the FullAccount with type T"),
                (entry("FullAccount", LIBRARY, 5),
                 malformed + "name of the class that creates FullAccount with the type T"),
                (entry("FullAccount", LIBRARY, "None"),
                 "The framework/bundle where None is defined has not been loaded"),
                *((entry(kind, PLUGIN, "PluginAccount", MAIL), f"the class PluginAccount does not answer {operation}:")
                  for kind, operation in (("FullAccount", "classForAccountType: or accountWithBasicAccount"),
                                          ("SyncAccount", "accountToRefreshForBasicAccount"),
                                          ("NotifierAccount", "noteAccountChanges"))))
        self.use_table(T=[element for element, _ in rows], Broken=5, Empty=[])
        self.assertEqual(self.problems("T"), [problem for _, problem in rows])
        self.assertEqual(self.problems("Empty", status=0), [None])
        self.assertIn("for the type Broken", self.problems("Broken")[0])
        self.assertIn("no: The framework/bundle where None", self.out("creators", status=1))
        self.assertIn("Could not find the information for the type Foo", self.err("creators", "Foo", status=1))

    def test_a_save_whose_notifiers_cannot_be_told_is_a_warning_that_says_why(self):
        self.put_accounts("A")
        for library, name in ((None, "Some"), ("/nope.so", "Some"), (LIBRARY, None), (LIBRARY, "None")):
            self.use_table(Exchange=[entry("NotifierAccount", library, name, NOTES)])
            for command, stored in (("enable", [NOTES]), ("disable", [])):
                self.assertEqual(self.err(command, "A", "Notes"),
                                 "rosterctl: warning: the change is saved, but not every notifier could be told: "
                                 f"{self.problems('Exchange')[0]}\n", (library, name))
                self.assertEqual(self.stored("A")["Enabled Dataclasses"], stored, (library, name, command))
            self.assertEqual(self.err("set", "A", f"Server={name}"), "")  # concerns nobody


if __name__ == "__main__":
    unittest.main()

"""Runs `rosterctl watch` beside programs that change the registry, and `rosterctl creators` with tables of its own.
The tool is $ROSTERCTL, else the first argument."""

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

SOURCES = Path(os.environ.get("ROSTER_SOURCE_DIR", Path(__file__).resolve().parents[2]))
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
        new = self.registry.with_name("new")
        new.write_bytes(data)
        new.rename(self.registry)

    def put_accounts(self, *identifiers, **properties):
        self.put(self.registry_of(*identifiers, **properties))

    @staticmethod
    def registry_of(*identifiers, **properties):
        accounts = [account(identifier, "Exchange", "EASAccount", **properties) for identifier in identifiers]
        return plistlib.dumps({"Version": 12, "Accounts": accounts}, fmt=plistlib.FMT_BINARY)


class WatchTest(ChangedDevice):
    def watch(self, *arguments):
        return Watch(self, *arguments)

    def test_each_change_by_another_program_is_one_line(self):
        self.put_accounts("A", "B", DisplayName="Wörk\n", **{"Enabled Dataclasses": [NOTES, CONTACTS, MAIL, "Odd"]})
        human, machine = self.watch(), self.watch("--json")
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

    def test_the_file_and_every_folder_on_the_way_may_come_and_go(self):
        var, elsewhere = self.root / "var", self.root.with_name("elsewhere")
        watch = self.watch()

        def replace_by_link():
            elsewhere.mkdir()
            (elsewhere / "target").write_bytes(self.registry_of("C"))
            (elsewhere / "link").symlink_to("target")
            new = self.registry.with_name("new")
            new.symlink_to(elsewhere / "link")
            new.rename(self.registry)

        def replace_target():
            (elsewhere / "new").write_bytes(self.registry_of("D"))
            (elsewhere / "new").rename(elsewhere / "target")

        for index, (step, words) in enumerate((
                (lambda: self.put_accounts("A"), ["added A"]),
                (lambda: self.put_accounts("A", "B"), ["added B"]),
                (self.registry.unlink, ["removed A", "removed B"]),
                (lambda: self.put_accounts("B"), ["added B"]),
                (lambda: self.registry.parent.rename(self.root / "kept"), ["removed B"]),
                (lambda: self.put_accounts("A"), ["added A"]),
                (lambda: var.rename(elsewhere), ["removed A"]),
                (lambda: elsewhere.rename(var), ["added A"]),
                (lambda: shutil.rmtree(self.root), ["removed A"]),
                (lambda: self.put_accounts("A"), ["added A"]),
                (replace_by_link, ["removed A", "added C"]),
                (replace_target, ["removed C", "added D"]),
                (lambda: (elsewhere / "target").write_bytes(self.registry_of("D", Port=1)), ["modified D"]))):
            step()
            self.assertEqual([" ".join(watch.line().split()[:2]) for _ in words], words, f"step {index}")
        self.assertEqual(watch.end()[::2], ("", 0))

    def test_a_registry_that_cannot_be_read_counts_as_unchanged(self):
        self.put(b"")
        watch = self.watch()
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
            self.assertEqual(self.watch().end(stop), ("", "", 0), stop)
            self.put_accounts("A")
            watch = self.watch()
            self.run_tool("delete", "A")
            self.assertEqual(watch.end(stop), ("removed   A  Exchange  -  -\n", "", 0), stop)

    def test_a_reader_that_stalls_or_goes_does_not_keep_it(self):
        for stop in (signal.SIGINT, signal.SIGTERM, None):
            self.put_accounts()
            watch = self.watch()
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
        watch = self.watch()
        watch.process.stdout.close()
        self.assertEqual((watch.process.wait(LIMIT), watch.process.stderr.read()), (0, ""))


PLUGIN = """
#include "roster/account/account_protocols.h"
#include "roster/account/basic_account.h"
#include "roster/notify/account_notifier.h"
#include "roster/platform/plugin.h"
#include "roster/platform/system_log.h"
using namespace roster;
static void registerClasses(PluginClasses& classes) {
  classes.add(ClassObject("Full").answering(AccountCreationProtocol{
      .accountWithBasicAccount = [](const std::shared_ptr<BasicAccount>& account) { return account; }}));
  classes.add(ClassObject("Sync").answering(SyncAccountCreationProtocol{
      [](const std::shared_ptr<BasicAccount>&) { return nullptr; }}));
  classes.add(ClassObject("Notifier").answering(AccountNotifierProtocol{
      .noteAccountChanges = [](const Array& changes) { systemLog("told of %d", int(changes.size())); }}));
  classes.add(ClassObject("Idle"));
}
ROSTER_PLUGIN(registerClasses)
"""


def entry(kind, library=None, name=None, *dataclasses):
    description = {"Framework": library, "Class": name, "Supported Dataclasses": list(dataclasses) or None}
    return {"Type": kind, "Description": {key: value for key, value in description.items() if value is not None}}


class CreatorsTest(ChangedDevice):
    def use_table(self, **types):
        resources = self.root.with_name("resources")
        if not resources.exists():
            resources.mkdir()
            for resource in (SOURCES / "resources").iterdir():
                if resource.name != "AccountCreators.plist":
                    (resources / resource.name).symlink_to(resource)
        (resources / "AccountCreators.plist").write_bytes(plistlib.dumps(types))
        self.environment["ROSTER_RESOURCES"] = str(resources)

    def problems(self, *arguments, status=1):
        trials = self.json("creators", *arguments, status=status)
        return [row["problem"] for trial in trials for row in trial["entries"] or [trial]]

    def test_the_table_that_is_shipped_works(self):
        self.assertEqual(self.out("creators", "OnMyDevice").splitlines()[1].split(), [
            "OnMyDevice", "FullAccount", "DeviceLocalAccount", "libroster.so.1", "-", "yes"])
        self.assertEqual(len(self.out("creators").splitlines()), 16)
        self.assertEqual(set(self.problems(status=0)), {None})
        self.assertIn("Could not find the information for the type Foo",
                      self.err("creators", "Foo", status=1))

    def test_what_is_wrong_with_an_entry_is_told(self):
        own = "libroster.so.1"
        rows = (("x", "it is passed over: it is not a dictionary"),
                ({}, 'it is passed over: it has no "Type"'),
                (entry("Other", own, "Some"), 'it is passed over: there is no such "Type"'),
                (entry("NotifierAccount", own, "Some"), 'it is passed over: it has no "Supported Dataclasses"'),
                ({"Type": "NotifierAccount"}, 'it is passed over: it has no "Description"'),
                ({"Type": "SyncAccount", "Description": []}, "Malformed AccountCreators information. "
                 "Could not find the description for the SyncAccount with type T"),
                (entry("FullAccount"), "Malformed AccountCreators information. "
                 "Could not find the path to the framework for the FullAccount with type T"),
                (entry("FullAccount", own, 5), "Malformed AccountCreators information. "
                 "Could not find the name of the class that creates FullAccount with the type T"),
                (entry("FullAccount", own, "None"), "The framework/bundle where None is defined has not been loaded"),
                (entry("SyncAccount", own, "DeviceLocalAccount"),
                 "the class DeviceLocalAccount does not answer accountToRefreshForBasicAccount:"))
        self.use_table(T=[element for element, _ in rows], Broken=5, Empty=[])
        self.assertEqual(self.problems("T"), [problem for _, problem in rows])
        self.assertEqual(self.problems("Empty", status=0), [None])
        self.assertIn("for the type Broken", self.problems("Broken")[0])
        self.assertIn("no: The framework/bundle where None", self.out("creators", status=1))

    def test_a_save_whose_notifiers_cannot_be_told_is_a_warning_that_says_why(self):
        self.put_accounts("A")
        own = "libroster.so.1"
        for library, name in ((None, "Some"), ("/nope.so", "Some"), (own, None), (own, "None")):
            self.use_table(Exchange=[entry("NotifierAccount", library, name, NOTES)])
            for command, stored in (("enable", [NOTES]), ("disable", [])):
                self.assertEqual(self.err(command, "A", "Notes"),
                                 "rosterctl: warning: the change is saved, but not every notifier could be told: "
                                 f"{self.problems('Exchange')[0]}\n", (library, name))
                self.assertEqual(self.stored("A")["Enabled Dataclasses"], stored, (library, name, command))
            self.assertEqual(self.err("set", "A", f"Server={name}"), "")  # concerns nobody

    def test_a_plug_in_that_works_is_said_to_work(self):
        library = os.environ.get("ROSTER_LIBRARY")
        if not library or b"__asan_init" in Path(library).read_bytes():
            self.skipTest("an ordinary plug-in needs an ordinary library")
        source, plugin = self.root.with_name("plugin.cpp"), self.root.with_name("plugin.so")
        source.write_text(PLUGIN)
        compiler = os.environ.get("CXX", "c++")
        subprocess.run([compiler, "-std=c++20", "-shared", "-fPIC", f"-I{SOURCES}", source, "-o", plugin], check=True)
        kinds = (("FullAccount", "Full"), ("SyncAccount", "Sync"), ("NotifierAccount", "Notifier"))
        self.use_table(Exchange=[entry(kind, str(plugin), name, NOTES) for kind, name in kinds])
        self.assertEqual(self.problems(status=0), [None] * 3)
        self.put_accounts("A")
        self.assertIn("note: told of 1\n", self.err("--verbose", "enable", "A", "Notes"))
        self.use_table(Exchange=[entry(kind, str(plugin), "Idle", NOTES) for kind, _ in kinds])
        self.assertTrue(all("the class Idle does not answer" in problem for problem in self.problems()))


if __name__ == "__main__":
    unittest.main()

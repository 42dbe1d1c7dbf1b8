"""Registers the bus notifier on devices of their own and reads a real bus with dbus-monitor, which shares no code
with it."""

import os
import plistlib
import re
import shutil
import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tools"))
from rosterctl_test import CALENDARS, CONTACTS, MAIL, Device, account

TIMEOUT = 60  # seconds
INTERFACE = "com.nimbal.roster.Accounts"
ADDED, MODIFIED, REMOVED = range(3)
# The limit on messages is low, but far above what fits into a socket at once.
CONFIGURATION = """<busconfig><listen>unix:path={folder}/bus</listen><auth>EXTERNAL</auth>
<policy context="default"><allow user="*"/><allow own="*"/><allow send_destination="*"/><allow receive_sender="*"/>
</policy><limit name="max_message_size">1000000</limit></busconfig>"""


def exchange(identifier, *enabled):
    return account(identifier, "Exchange", "EASAccount", **{"Enabled Dataclasses": enabled})


def record(change, identifier, *original):
    """A change record as dbus-monitor prints it, but for white space."""
    def entry(key, value):
        return f'dict entry( string "{key}" variant {value} )'
    names = "".join(f'string "{dataclass}" ' for dataclass in original)
    return " ".join(["array [", entry("ChangeType", f"int32 {change}"), entry("AccountID", f'string "{identifier}"'),
                     entry("AccountType", 'string "Exchange"'), entry("OriginalDataclasses", f"array [ {names}]"), "]"])


class BusNotifierTest(Device):
    def setUp(self):
        super().setUp()
        self.registry.parent.mkdir(parents=True)
        resources = self.root / "resources"
        shutil.copytree(os.environ["ROSTER_RESOURCES"], resources)
        creators = plistlib.loads((resources / "AccountCreators.plist").read_bytes())
        creators["Exchange"] = [{"Type": "NotifierAccount", "Description": {
            "Framework": os.path.join(os.path.dirname(os.environ["ROSTER_LIBRARY"]), "plugins/roster-bus-notifier.so"),
            "Class": "RosterBusNotifier", "Supported Dataclasses": [CONTACTS, CALENDARS]}}]
        (resources / "AccountCreators.plist").write_bytes(plistlib.dumps(creators, fmt=plistlib.FMT_BINARY))
        self.environment.update(ROSTER_ROOT=str(self.root), ROSTER_RESOURCES=str(resources),
                                DBUS_SYSTEM_BUS_ADDRESS=f"unix:path={self.root}/no-bus")

    def start(self, *command):
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        for cleanup in (process.stdout.close, process.wait, process.kill):
            self.addCleanup(cleanup)
        return process.stdout

    def start_bus(self):
        """Starts a bus, and a monitor that sees everything from now on."""
        configuration = self.root / "bus.conf"
        configuration.write_text(CONFIGURATION.format(folder=self.root))
        bus = self.start("dbus-daemon", f"--config-file={configuration}", "--nofork", "--print-address=1")
        self.address = self.environment["DBUS_SYSTEM_BUS_ADDRESS"] = bus.readline().strip()
        self.monitor = self.start("timeout", str(TIMEOUT), "dbus-monitor", "--address", self.address,
                                  f"type='signal',interface='{INTERFACE}'")
        # A connection loses its name when it becomes a monitor; the name follows.
        self.read_until("member=NameLost")
        self.read_until("string")

    def read_until(self, mark):
        lines = []
        for line in self.monitor:
            if mark in line:
                return lines
            lines.append(line)
        self.fail(f"the monitor has ended without {mark}")

    def signals(self):
        """The signals since the last call, up to now."""
        subprocess.run(["dbus-send", f"--bus={self.address}", "--type=signal", "/mark", f"{INTERFACE}.Mark"],
                       check=True, timeout=TIMEOUT)
        found = []
        for line in self.read_until("member=Mark"):
            if line.startswith(" "):
                found[-1] += " " + line.strip()
            else:
                self.assertRegex(line, f"path=/com/nimbal/roster; interface={INTERFACE}; member=Changed$")
                found.append("")
        return [re.sub(" +", " ", text.strip()) for text in found]

    def write(self, *accounts):
        self.registry.write_bytes(plistlib.dumps({"Version": 12, "Accounts": accounts}, fmt=plistlib.FMT_BINARY))

    def enabled(self):
        return [stored["Enabled Dataclasses"] for stored in self.accounts()]

    def test_each_save_that_concerns_a_registered_dataclass_is_one_signal(self):
        self.start_bus()
        self.write(exchange("A", MAIL, CONTACTS, CALENDARS), exchange("B", MAIL))
        for arguments, expected in (
                (["disable", "A", "Contacts"], record(MODIFIED, "A", MAIL, CONTACTS, CALENDARS)),
                (["disable", "A", "Mail"], None),
                (["set", "B", "DisplayName=Büro"], None),
                (["set", "A", "DisplayName=Büro"], record(MODIFIED, "A", CALENDARS)),
                (["enable", "A", "Contacts"], record(MODIFIED, "A", CALENDARS)),
                (["delete", "A"], record(REMOVED, "A", CALENDARS, CONTACTS)),
                (["add", "Exchange", "EASAccount", "Identifier=Ä", f'Enabled Dataclasses:=["{CONTACTS}"]'],
                 record(ADDED, "Ä"))):
            with self.subTest(arguments):
                self.assertEqual(self.err("--verbose", *arguments), "")
                self.assertEqual(self.signals(), [f"array [ {expected} ]"] if expected else [])
        self.write(exchange("A", CONTACTS), exchange("B", MAIL), exchange("C", CALENDARS, MAIL))
        subprocess.run([os.path.join(os.environ["ROSTER_TEST_PROGRAMS"], "rename_accounts"), "same"],
                       env=self.environment, check=True, timeout=TIMEOUT)
        records = record(MODIFIED, "A", CONTACTS) + " " + record(MODIFIED, "C", CALENDARS, MAIL)
        self.assertEqual(self.signals(), [f"array [ {records} ]"], "one signal of all accounts of a save")

    def test_a_save_succeeds_without_being_heard_and_the_log_says_why(self):
        self.write(exchange("A", MAIL, CONTACTS))
        note = "rosterctl: note: Could not tell the system bus of 1 changed accounts: could not "
        self.assertEqual(self.err("--verbose", "disable", "A", "Contacts"),
                         note + "open the system bus: No such file or directory\n")
        self.assertEqual(self.enabled(), [[MAIL]])
        library = self.root / "libsystemd.so.0"
        library.write_text("none")
        self.environment["LD_LIBRARY_PATH"] = str(self.root)
        self.assertEqual(self.err("--verbose", "enable", "A", "Contacts"),
                         f"{note}open the system bus: {library}: file too short\n")
        del self.environment["LD_LIBRARY_PATH"]
        self.assertEqual(self.enabled(), [[MAIL, CONTACTS]])
        self.start_bus()
        too_large = "x" * 2_000_000
        self.write(exchange("A", too_large, CONTACTS))
        self.assertRegex(self.err("--verbose", "disable", "A", "Contacts"),
                         f"^{note}talk to the system bus: (Connection reset by peer|Broken pipe)\n$")
        self.assertEqual((self.signals(), self.enabled()), ([], [[too_large]]))


if __name__ == "__main__":
    for tool in ("dbus-daemon", "dbus-monitor", "dbus-send"):
        if shutil.which(tool) is None:
            print(f"skipped: there is no {tool}")
            sys.exit(77)
    unittest.main()

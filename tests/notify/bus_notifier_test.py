"""Registers the bus notifier on devices of their own and reads a real bus with dbus-monitor, which shares no code
with it. Each test starts its own bus."""

import os
import plistlib
import queue
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import unittest
from pathlib import Path

TIMEOUT = 60  # seconds
INTERFACE = "com.nimbal.roster.Accounts"
MAIL, CONTACTS, CALENDARS = (f"com.nimbal.Dataclass.{name}" for name in ("Mail", "Contacts", "Calendars"))
ADDED, MODIFIED, REMOVED = range(3)
# The limit on messages is low, but far above what fits into a socket at once.
CONFIGURATION = """<busconfig><listen>unix:path={socket}</listen><auth>EXTERNAL</auth>
<policy context="default"><allow user="*"/><allow own="*"/><allow send_destination="*"/><allow receive_sender="*"/>
</policy><limit name="max_message_size">1000000</limit></busconfig>"""


def account(identifier, enabled, **properties):
    return {"Identifier": identifier, "Type": "Exchange", "Class": "EASAccount", "Enabled Dataclasses": enabled,
            **properties}


def record(change, identifier, original):
    """A change record as dbus-monitor prints it, but for white space."""
    def entry(key, value):
        return f'dict entry( string "{key}" variant {value} )'
    names = "".join(f'string "{dataclass}" ' for dataclass in original)
    return " ".join(["array [", entry("ChangeType", f"int32 {change}"), entry("AccountID", f'string "{identifier}"'),
                     entry("AccountType", 'string "Exchange"'), entry("OriginalDataclasses", f"array [ {names}]"), "]"])


def signal(*records):
    return f"array [ {' '.join(records)} ]"


class Bus:
    """A bus, and a monitor that has seen everything since the bus was started."""

    def __init__(self, test, folder):
        self.test = test
        socket = folder / "bus"
        configuration = folder / "bus.conf"
        configuration.write_text(CONFIGURATION.format(socket=socket))
        daemon = self.start(test, "dbus-daemon", f"--config-file={configuration}", "--nofork", "--print-address=1")
        self.address = daemon.stdout.readline().strip()
        monitor = self.start(test, "dbus-monitor", "--address", self.address,
                             f"type='signal',interface='{INTERFACE}'")
        self.lines = queue.Queue()
        reader = threading.Thread(target=lambda: [self.lines.put(line) for line in monitor.stdout], daemon=True)
        reader.start()
        # A connection loses its name when it becomes a monitor; the name follows.
        self.read_until("member=NameLost")
        self.read_until("string")

    @staticmethod
    def start(test, *command):
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        test.addCleanup(process.stdout.close)
        test.addCleanup(process.wait)
        test.addCleanup(process.kill)
        return process

    def read_until(self, mark):
        lines = []
        while True:
            line = self.lines.get(timeout=TIMEOUT)
            if mark in line:
                return lines
            lines.append(line)

    def signals(self):
        """The signals since the last call, up to now."""
        subprocess.run(["dbus-send", f"--bus={self.address}", "--type=signal", "/mark", f"{INTERFACE}.Mark"],
                       check=True, timeout=TIMEOUT)
        found = []
        for line in self.read_until("member=Mark"):
            if line.startswith(" "):
                found[-1] += " " + line.strip()
            else:
                self.test.assertRegex(line, f"path=/com/nimbal/roster; interface={INTERFACE}; member=Changed$")
                found.append("")
        return [re.sub(" +", " ", text.strip()) for text in found]


class BusNotifierTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.registry = self.root / "var/lib/roster/Preferences/com.nimbal.roster.plist"
        self.registry.parent.mkdir(parents=True)
        resources = self.root / "resources"
        shutil.copytree(os.environ["ROSTER_RESOURCES"], resources)
        creators = plistlib.loads((resources / "AccountCreators.plist").read_bytes())
        creators["Exchange"] = [{"Type": "NotifierAccount", "Description": {
            "Framework": os.path.join(os.path.dirname(os.environ["ROSTER_LIBRARY"]), "plugins/roster-bus-notifier.so"),
            "Class": "RosterBusNotifier", "Supported Dataclasses": [CONTACTS, CALENDARS]}}]
        (resources / "AccountCreators.plist").write_bytes(plistlib.dumps(creators, fmt=plistlib.FMT_BINARY))
        self.environment = {**os.environ, "ROSTER_ROOT": str(self.root), "ROSTER_RESOURCES": str(resources)}
        self.use_bus(f"unix:path={self.root}/no-bus")

    def use_bus(self, address):
        self.environment["DBUS_SYSTEM_BUS_ADDRESS"] = address

    def write(self, *accounts):
        self.registry.write_bytes(plistlib.dumps({"Version": 12, "Accounts": accounts}, fmt=plistlib.FMT_BINARY))

    def enabled(self):
        return [stored["Enabled Dataclasses"] for stored in plistlib.loads(self.registry.read_bytes())["Accounts"]]

    def run_program(self, *command):
        done = subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=TIMEOUT)
        self.assertEqual(done.returncode, 0, (command, done.stdout, done.stderr))
        return done

    def rosterctl(self, *arguments):
        return self.run_program(os.environ["ROSTERCTL"], "--verbose", *arguments)

    def test_each_save_that_concerns_a_registered_dataclass_is_one_signal(self):
        bus = Bus(self, self.root)
        self.use_bus(bus.address)
        self.write(account("A", [MAIL, CONTACTS, CALENDARS]), account("B", [MAIL]))
        for arguments, expected in (
                (["disable", "A", "Contacts"], [record(MODIFIED, "A", [MAIL, CONTACTS, CALENDARS])]),
                (["disable", "A", "Mail"], None),
                (["set", "B", "DisplayName=Büro"], None),
                (["set", "A", "DisplayName=Büro"], [record(MODIFIED, "A", [CALENDARS])]),
                (["enable", "A", "Contacts"], [record(MODIFIED, "A", [CALENDARS])]),
                (["delete", "A"], [record(REMOVED, "A", [CALENDARS, CONTACTS])]),
                (["add", "Exchange", "EASAccount", "Identifier=Ä", f'Enabled Dataclasses:=["{CONTACTS}"]'],
                 [record(ADDED, "Ä", [])])):
            with self.subTest(arguments):
                done = self.rosterctl(*arguments)
                self.assertEqual(bus.signals(), [signal(*expected)] if expected else [])
                self.assertEqual(done.stderr, "")

    def test_all_accounts_of_one_save_are_records_of_one_signal(self):
        bus = Bus(self, self.root)
        self.use_bus(bus.address)
        self.write(account("A", [CONTACTS]), account("B", [MAIL]), account("C", [CALENDARS, MAIL]))
        self.run_program(os.path.join(os.environ["ROSTER_TEST_PROGRAMS"], "rename_accounts"), "same")
        records = (record(MODIFIED, "A", [CONTACTS]), record(MODIFIED, "C", [CALENDARS, MAIL]))
        self.assertEqual(bus.signals(), [signal(*records)])

    def test_a_save_succeeds_without_a_bus_and_the_log_says_why_nobody_heard(self):
        self.write(account("A", [MAIL, CONTACTS]))
        done = self.rosterctl("disable", "A", "Contacts")
        self.assertEqual(self.enabled(), [[MAIL]])
        self.assertEqual(done.stderr, "rosterctl: note: Could not tell the system bus of 1 changed accounts: could not "
                                      "open the system bus: No such file or directory\n")

    def test_what_is_too_large_for_the_bus_is_not_lost_in_silence(self):
        bus = Bus(self, self.root)
        self.use_bus(bus.address)
        huge = "x" * 2_000_000
        self.write(account("A", [huge, CONTACTS]))
        done = self.rosterctl("disable", "A", "Contacts")
        self.assertEqual((bus.signals(), self.enabled()), ([], [[huge]]))
        self.assertRegex(done.stderr, r"^rosterctl: note: Could not tell the system bus of 1 changed accounts: could "
                                      r"not talk to the system bus: (Connection reset by peer|Broken pipe)\n$")


if __name__ == "__main__":
    for tool in ("dbus-daemon", "dbus-monitor", "dbus-send"):
        if shutil.which(tool) is None:
            print(f"skipped: there is no {tool}")
            sys.exit(77)
    unittest.main()

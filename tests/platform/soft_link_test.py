"""Which libraries the library needs, and what it does where libsystemd, which it does not need, cannot be used."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

LIBRARY = Path(os.environ["ROSTER_LIBRARY"])
RUN_TIME = {"libc", "libm", "libgcc_s", "libstdc++"}


class SoftLinkTest(unittest.TestCase):
    def test_only_the_parser_and_the_languages_run_time_are_needed(self):
        plugin = LIBRARY.parent / "plugins/roster-bus-notifier.so"
        for path, own in (LIBRARY, {"libexpat"}), (plugin, {"libroster"}), (os.environ["ROSTERCTL"], {"libroster"}):
            dynamic = subprocess.run(["readelf", "--dynamic", path], capture_output=True, check=True, text=True).stdout
            needed = set(re.findall(r"\(NEEDED\).*\[(lib.+?)\.so", dynamic))  # not the loader, ld-linux-…
            self.assertEqual(needed - RUN_TIME, own, path)

    def test_a_daemon_is_waited_for_without_libsystemd(self):
        with tempfile.TemporaryDirectory() as root:
            environment = os.environ | {"ROSTER_ROOT": root, "LD_LIBRARY_PATH": root}
            library, daemon = Path(root, "libsystemd.so.0"), Path(root, "tesserad")
            # A library, but without one of the functions.
            shutil.copy(Path(os.environ["ROSTER_RESOURCES"], "WebEngine.so"), library)
            shutil.copy(shutil.which("sleep"), daemon)
            with subprocess.Popen([daemon, "60"], env=environment) as running:
                waiting = subprocess.Popen([Path(os.environ["ROSTER_TEST_PROGRAMS"], "make_daemon_quit")],
                                           env=environment, stderr=subprocess.PIPE, text=True)
                log = waiting.stderr.read()
                _, status, usage = os.wait4(waiting.pid, 0)
                waiting.returncode = os.waitstatus_to_exitcode(status)
                running.kill()
        self.assertEqual((waiting.returncode, log.splitlines()), (0, [
            "Performing account migration. Asking tesserad to exit",
            "Could not post the notification com.nimbal.Harbor.BackupAgent.WillStart: could not open the system "
            f"bus: {library}: undefined symbol: sd_bus_call_method_async",
            "tesserad does not seem to want to quit. Sending it a SIGKILL"]))
        self.assertLess(usage.ru_utime + usage.ru_stime, 1, "five seconds were waited, not worked, through")


if __name__ == "__main__":
    unittest.main()

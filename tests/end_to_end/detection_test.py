"""Detecting the product: the record, whole logs, and services as real processes.

install/*_test.cc has the rules for the configuration files and for the counting of services.
"""

from simulator import installation
from simulator import scenario as scenarios
from simulator.installers import images
from tests.end_to_end import detections as d
from tests.end_to_end import transcripts as t
from tests.end_to_end.harness import BUILD, EndToEndCase

BEGIN = ["Starting ORVEX Detect"]
PRESENT = 16
GROUP_1 = ("PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade")
GROUP_2 = ("KXCoreIssues", "KXLDaemon", "KXUpdDaemon")


def asked_for_nothing():
    """The SDK is queried although only the group is missing, which it cannot supply."""
    return ["Get SL Identity", "Getting SL Identity using the wrapper method",
            *t.wrapped(t.answered(t.GET_IDENTITY), method=t.GET_IDENTITY),
            "SL Identity retrieved successfully",
            "Finished retrieving SL Identity with error code: 0"]


class DetectionCase(EndToEndCase):
    """Runs detections; the default is a healthy product."""

    def detect(self, wanted="healthy", record=d.HEALTHY, status=PRESENT, **options):
        run = self.run_tool("-detect", scenario=wanted, **options)
        self.assert_answer(run, status, record)
        return run

    def assert_whole_log(self, run, lines):
        self.assert_log(run, [*BEGIN, *lines], d.callbacks(run))


class Record(DetectionCase):
    """The state of the product and the identity of the endpoint."""

    def test_not_installed(self):
        run = self.detect("not-installed", d.ABSENT, 0)
        self.assert_whole_log(run, d.NOTHING)
        self.assertEqual(run.calls, [])

    def test_healthy_in_every_layout(self):
        for layout in (1, 2, 3):
            with self.subTest(layout=layout):
                run = self.detect(layout=layout)
                newer = [*d.CLEARED, *d.ask_identity(layout), *d.taken(d.GROUP), *d.ALL_READ]
                self.assert_whole_log(run, [*d.running(layout=layout),
                                            *d.end(newer, d.NOTHING_WANTED)])
                self.assert_balanced(run)

    def test_first_layout_that_is_a_directory_is_chosen(self):
        for wanted, layout in (("layouts-first-is-a-link", 1), ("layouts-first-is-a-file", 2)):
            with self.subTest(scenario=wanted):
                run = self.run_tool("-detect", scenario=wanted)
                self.assertIn(f"Validate {installation.LAYOUTS[layout].library} binary", run.log)
                self.assertEqual(run.status, PRESENT)

    def test_services_not_running(self):
        run = self.detect("services-missing", d.UNHEALTHY)
        self.assert_whole_log(run, d.without_services())
        self.assertEqual(run.calls, [])

    def test_critical_issues(self):
        run = self.detect("critical-issues", d.UNHEALTHY)
        newer = [*d.CLEARED, *d.ask_identity(), *d.taken(d.GROUP), *d.ALL_READ]
        self.assert_whole_log(run, [*d.running(issues=("ProtectionOff", "LicenceExpired")),
                                    *d.end(newer, d.NOTHING_WANTED)])

    def test_issues_that_cannot_be_read(self):
        run = self.detect("library-missing", d.UNHEALTHY)
        place = run.log.index("Critical issues found: ")
        self.assertEqual(run.log[place - 1], "Failed to execute Product.GetStatus method")
        self.assertEqual(run.log[place + 1], "Retrieving endpoint information")
        self.assertIn("Failed to retrieve SL Identity with wrapper method: -67068", run.log)
        self.assertIn(f"Company id is: {d.COMPANY}", run.log)

    def test_newer_configuration_missing(self):
        run = self.detect("configuration-missing", f"2|{d.COMPANY}||{d.ENDPOINT}")
        older = [*d.CLEARED, *asked_for_nothing(), *d.NO_FILE]
        self.assert_whole_log(run, [*d.running(), *d.end(
            [*d.CLEARED, *d.ask_identity(), *d.NO_FILE], older, failed=True)])
        self.assertEqual(len(run.calls_of("run")), 3)
        self.assert_balanced(run)

    def test_newer_configuration_invalid(self):
        run = self.detect("configuration-not-json", f"2|{d.COMPANY}||{d.ENDPOINT}")
        place = run.log.index("Cannot retrieve endpoint information")
        self.assertEqual(run.log[place - 1], "Invalid agcfJso file")

    def test_identity_of_the_sdk_is_preferred_and_not_escaped(self):
        run = self.detect("identity-differs",
                          f"1|company of the SDK|{d.GROUP}|endpoint|of the SDK")
        newer = [*d.CLEARED,
                 *d.ask_identity(endpoint="endpoint|of the SDK", company="company of the SDK"),
                 *d.taken(d.GROUP), *d.ALL_READ]
        self.assert_whole_log(run, [*d.running(), *d.end(newer, d.NOTHING_WANTED)])

    def test_file_supplies_what_the_sdk_does_not_know(self):
        run = self.detect({"sdk": {"answers": {t.GET_IDENTITY: {"output": None}}}})
        newer = [*d.CLEARED, *d.ask_identity(endpoint=None, company=None),
                 *d.taken(d.GROUP, d.ENDPOINT, d.COMPANY), *d.ALL_READ]
        self.assert_whole_log(run, [*d.running(), *d.end(newer, d.NOTHING_WANTED)])

    def test_older_file_supplies_what_the_newer_one_lacks(self):
        wanted = {"product": {"layout": 2, "services": [], "configuration": {
            "agcfng": {"json": {"id": {"hwid": "newer"}}},
            "agcf": {"json": {"id": {
                "hwid": "older", "custid": "größe\n", "customdata": {"ComputersFolder": "x\0y"}}}}}}}
        run = self.detect(wanted, "2|größe\n|x\0y|newer")
        self.assert_whole_log(run, [*d.not_running(), *d.end(
            [*d.CLEARED, *d.taken(endpoint="newer"), *d.ALL_READ],
            [*d.CLEARED, *d.taken(group="x\0y", company="größe\n"), *d.ALL_READ])])

    def test_older_file_alone(self):
        run = self.detect("configuration-older-only", d.UNHEALTHY)
        self.assertIn("Cannot retrieve endpoint information", run.log)


class Services(DetectionCase):
    """Which processes count as the product's services."""

    def check_running(self, *names, **last):
        run = self.detect(self.running(*names, **last))
        self.assertIn("Services are running", run.log)

    def check_not_running(self, *names, **last):
        run = self.detect(self.running(*names, **last), d.UNHEALTHY)
        self.assert_whole_log(run, d.without_services())

    @staticmethod
    def running(*names, **last):
        """Services with these names; `last` describes the last one."""
        services = [{"name": name} for name in names]
        services[-1].update(last)
        return {"product": {"services": services}}

    def test_either_group(self):
        self.check_running(*GROUP_2)
        self.check_running(*GROUP_1)

    def test_processes_are_counted_and_not_names(self):
        self.check_running(*["KXLDaemon"] * 3)
        self.check_not_running(*GROUP_2, "KXUpdDaemon")

    def test_names_are_compared_exactly_and_in_full(self):
        for name in ("kxlDaemon", "KXLDaemon (deleted)x", "KXLDaemon-and-more-0"):
            with self.subTest(name=name):
                self.check_not_running("KXCoreIssues", "KXUpdDaemon", name)

    def test_executable_deleted_while_it_runs(self):
        self.check_running(*GROUP_2, deleted=True)

    def test_executable_renamed_while_it_runs(self):
        self.check_not_running(*GROUP_2, renamedTo="KXUpdDaemon.old")
        self.check_running("KXCoreIssues", "KXLDaemon", "KXUpdDaemon.new", renamedTo="KXUpdDaemon")

    def test_ended_process_counts_by_its_short_name(self):
        self.check_running(*GROUP_2, ended=True)

    def test_services_that_come_up_late(self):
        """They start after the first ten checks and long before the last one."""
        late = {**scenarios.load("healthy")["product"], "layout": None}
        with self.endpoint(scenario={"product": {"services": []}}) as endpoint:
            folder = endpoint.path("/demo/late")
            folder.mkdir()
            images.Media(BUILD).write_package(folder / "Late.pkg", late)
            images.write_configuration(folder)
            run = self.run_script_on(endpoint, (
                "{ sleep 1.5; installer -pkg /demo/late/Late.pkg -target / >/dev/null; } & "
                "exec $FAST KX_SLEEP_DIVISOR=50 $TOOL -detect"))
            self.assert_answer(run, PRESENT, d.HEALTHY)
            waits = run.log.count("Services are not running. Waiting 5 seconds")
            self.assertIn(waits, range(1, 5))
            self.assert_whole_log(run, d.healthy(waits))

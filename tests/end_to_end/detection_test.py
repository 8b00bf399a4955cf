"""Detecting the product: the record, whole logs, and which processes count as its services."""

import time

from simulator import installation
from simulator import scenario as scenarios
from simulator.installers import images
from tests.end_to_end import detections as d
from tests.end_to_end import transcripts as t
from tests.end_to_end.harness import BUILD, EndToEndCase, needs_sandbox

BEGIN = ["Starting ORVEX Detect"]
PRESENT = 16
GROUP_1 = ("PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade")
GROUP_2 = ("KXCoreIssues", "KXLDaemon", "KXUpdDaemon")
FAILED = "Cannot retrieve endpoint information"


def asked_for_nothing():
    """The SDK is asked for the identity though only the group is wanted, which it does not know."""
    return ["Get SL Identity", "Getting SL Identity using the wrapper method",
            *t.wrapped(t.answered(t.GET_IDENTITY), method=t.GET_IDENTITY),
            "SL Identity retrieved successfully",
            "Finished retrieving SL Identity with error code: 0"]


def configured(**content):
    """The newer agent configuration file holds this."""
    return {"product": {"configuration": {"agcfng": content}}}


class DetectionCase(EndToEndCase):
    """Base of these tests."""

    def detect(self, wanted="healthy", record=d.HEALTHY, status=PRESENT, **options):
        run = self.run_tool("-detect", scenario=wanted, **options)
        self.assert_answer(run, status, record)
        return run

    def assert_whole_log(self, run, lines):
        self.assert_log(run, [*BEGIN, *lines], d.callbacks(run))


class State(DetectionCase):
    """The first field of the record, and the exit status."""

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

    def test_first_layout_is_preferred(self):
        for wanted in ("layouts-first-is-a-link", "layouts-first-is-a-file"):
            with self.subTest(scenario=wanted):
                run = self.run_tool("-detect", scenario=wanted)
                layout = 1 if wanted == "layouts-first-is-a-link" else 2
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
        for wanted in ("method-error", "run-refused", "library-missing", "library-unsigned",
                       "library-not-loadable", "answer-not-json", "get-instance-fails"):
            with self.subTest(scenario=wanted):
                run = self.detect(wanted, d.UNHEALTHY)
                place = run.log.index("Critical issues found: ")
                self.assertEqual(run.log[place - 1], "Failed to execute Product.GetStatus method")
                self.assertEqual(run.log[place + 1], "Retrieving endpoint information")

    def test_newer_configuration_missing_demotes(self):
        run = self.detect("configuration-missing", f"2|{d.COMPANY}||{d.ENDPOINT}")
        older = [*d.CLEARED, *asked_for_nothing(), *d.NO_FILE]
        self.assert_whole_log(run, [*d.running(), *d.end(
            [*d.CLEARED, *d.ask_identity(), *d.NO_FILE], older, failed=True)])
        self.assertEqual(len(run.calls_of("run")), 3)
        self.assert_balanced(run)

    def test_newer_configuration_unusable_demotes(self):
        for wanted, line in (("configuration-not-json", "Invalid agcfJso file"),
                             (configured(text=""), "Invalid agcfJso file"),
                             (configured(directory=True),
                              "Exception happened while configuration file was opened. "
                              "Read fault")):
            with self.subTest(scenario=wanted):
                self.assert_demoted(wanted, line)

    @needs_sandbox  # in place, the tool runs as a user who may read every file
    def test_newer_configuration_that_may_not_be_read_demotes(self):
        self.assert_demoted(configured(text="{}", mode="000"), "Cannot access agcfJso file path")

    def assert_demoted(self, wanted, line):
        run = self.detect(wanted, f"2|{d.COMPANY}||{d.ENDPOINT}")
        self.assertEqual(run.log[run.log.index(FAILED) - 1], line)


class Identity(DetectionCase):
    """The other fields of the record."""

    def test_sdk_is_preferred_and_nothing_is_escaped(self):
        run = self.detect("identity-differs",
                          f"1|company of the SDK|{d.GROUP}|endpoint|of the SDK")
        newer = [*d.CLEARED,
                 *d.ask_identity(endpoint="endpoint|of the SDK", company="company of the SDK"),
                 *d.taken(d.GROUP), *d.ALL_READ]
        self.assert_whole_log(run, [*d.running(), *d.end(newer, d.NOTHING_WANTED)])

    def test_file_supplies_what_the_sdk_does_not_know(self):
        for output in ({"companyID": 5, "endpointID": None}, None):
            with self.subTest(output=output):
                run = self.detect({"sdk": {"answers": {t.GET_IDENTITY: {"output": output}}}})
                newer = [*d.CLEARED, *d.ask_identity(endpoint=None, company=None),
                         *d.taken(d.GROUP, d.ENDPOINT, d.COMPANY), *d.ALL_READ]
                self.assert_whole_log(run, [*d.running(), *d.end(newer, d.NOTHING_WANTED)])

    def test_file_supplies_all_when_the_sdk_fails(self):
        run = self.detect({"sdk": {"answers": {t.GET_IDENTITY: {"error": 4}}}})
        self.assertIn("Failed to retrieve SL Identity with wrapper method: 4", run.log)
        self.assertIn(f"Company id is: {d.COMPANY}", run.log)

    def test_configurations_without_the_identifiers(self):
        for content in ({"id": "4C4C4544"}, [], {"id": {
                "hwid": 5, "custid": ["x"], "customdata": {"ComputersFolder": 7}}}):
            with self.subTest(content=content):
                run = self.detect(configured(json=content), f"1|{d.COMPANY}||{d.ENDPOINT}")
                self.assertNotIn(FAILED, run.log)

    def test_older_file_supplies_what_the_newer_one_lacks(self):
        for layout in (2, 3):
            with self.subTest(layout=layout):
                wanted = {"product": {"layout": layout, "services": [], "configuration": {
                    "agcfng": {"json": {"id": {"hwid": "newer"}}},
                    "agcf": {"json": {"id": {
                        "hwid": "older", "custid": "older company",
                        "customdata": {"ComputersFolder": "older group"}}}}}}}
                run = self.detect(wanted, "2|older company|older group|newer")
                self.assert_whole_log(run, [*d.not_running(), *d.end(
                    [*d.CLEARED, *d.taken(endpoint="newer"), *d.ALL_READ],
                    [*d.CLEARED, *d.taken(group="older group", company="older company"),
                     *d.ALL_READ])])

    def test_older_file_alone(self):
        run = self.detect("configuration-older-only", d.UNHEALTHY)
        self.assertIn(FAILED, run.log)

    def test_current_layout_has_no_older_file(self):
        wanted = {"product": {"services": [], "configuration": {
            "agcfng": {"json": {"id": {"custid": "company"}}}}}}
        run = self.detect(wanted, "2|company||")
        self.assert_whole_log(run, [*d.not_running(), *d.end(
            [*d.CLEARED, *d.taken(company="company"), *d.ALL_READ],
            [*d.CLEARED, *d.NO_FILE])])

    def test_values_are_copied_as_they_are(self):
        values = {"hwid": "a|b", "custid": "größe\n", "customdata": {"ComputersFolder": "x\0y"}}
        self.detect(self.without_services({"json": {"id": values}}), "2|größe\n|x\0y|a|b")

    def test_huge_and_deeply_nested_files(self):
        depth = 1_000_000
        nested = '{"x":' * depth + "1" + "}" * depth
        huge = '{"x":"' + "x" * 20_000_000 + '","id":{"custid":"company"}}'
        for text, record in ((nested, "2|||"), (huge, "2|company||")):
            self.detect(self.without_services({"text": text}), record)

    @staticmethod
    def without_services(agcfng):
        return {"product": {"services": [], "configuration": {"agcfng": agcfng}}}

    def test_nothing_known(self):
        wanted = {"product": {"services": [], "configuration": {"agcfng": None, "agcf": None}}}
        run = self.detect(wanted, "2|||")
        self.assert_whole_log(run, [*d.not_running(), *d.end(
            [*d.CLEARED, *d.NO_FILE], [*d.CLEARED, *d.NO_FILE], failed=True)])


class Services(DetectionCase):
    """Which processes count as the product's services."""

    def check_running(self, wanted):
        run = self.detect(wanted)
        self.assertIn("Services are running", run.log)

    def check_not_running(self, wanted):
        run = self.detect(wanted, d.UNHEALTHY)
        self.assert_whole_log(run, d.without_services())

    @staticmethod
    def running(*names, **last):
        """Services with these names; `last` is said of the last one."""
        services = [{"name": name} for name in names]
        services[-1].update(last)
        return {"product": {"services": services}}

    def test_both_groups(self):
        self.check_running(self.running(*GROUP_2))
        self.check_running(self.running(*GROUP_1))
        self.check_running(self.running(*GROUP_1, *GROUP_2))

    def test_one_missing_of_each_group(self):
        self.check_not_running(self.running(*GROUP_2[:2], *GROUP_1[:4]))
        for missing in range(len(GROUP_1)):
            with self.subTest(missing=GROUP_1[missing]):
                self.check_not_running(self.running(*GROUP_1[:missing], *GROUP_1[missing + 1:]))

    def test_processes_are_counted_and_not_names(self):
        self.check_running(self.running("Daemon", "Daemon", "PrivHelperTool", "CoreIssues",
                                        "UpdDaemon"))
        self.check_running(self.running(*["KXLDaemon"] * 3))

    def test_one_too_many(self):
        self.check_not_running(self.running(*GROUP_2, "KXUpdDaemon"))

    def test_one_too_many_of_one_group_beside_the_other_group(self):
        self.check_running(self.running(*GROUP_2, "KXLDaemon", *GROUP_1))

    def test_names_are_compared_exactly(self):
        for name in ("kxlDaemon", "KXLDaemon2", "KXLDaemo", "XKXLDaemon", "KXLDaemon ",
                     "KXLDaemon (deleted)x"):
            with self.subTest(name=name):
                self.check_not_running(self.running("KXCoreIssues", name, "KXUpdDaemon"))

    def test_long_names_are_not_cut_off(self):
        self.check_not_running(self.running("KXCoreIssues", "KXUpdDaemon", "KXLDaemon-and-more-0"))

    def test_executable_deleted_while_it_runs(self):
        self.check_running(self.running(*GROUP_2, deleted=True))

    def test_executable_renamed_while_it_runs(self):
        self.check_not_running(self.running(*GROUP_2, renamedTo="KXUpdDaemon.old"))

    def test_executable_that_got_the_name_while_it_runs(self):
        self.check_running(self.running("KXCoreIssues", "KXLDaemon", "KXUpdDaemon.new",
                                        renamedTo="KXUpdDaemon"))

    def test_ended_process_counts_by_its_short_name(self):
        self.check_running(self.running(*GROUP_2, ended=True))


class Time(DetectionCase):
    """How long it takes."""

    def sleeps(self, wanted, record, status=PRESENT):
        """Every sleep of a detection, in seconds."""
        with self.endpoint(scenario=wanted) as endpoint:
            path = f"{installation.TEMPORARY}/sleeps"
            run = self.run_script_on(endpoint, f"exec $FAST KX_SLEEP_RECORD={path} $TOOL -detect")
            self.assert_answer(run, status, record)
            made = endpoint.path(path)
            return [int(line) for line in made.read_text().split()] if made.exists() else []

    def test_services_that_never_come_up_take_270_seconds(self):
        """Five times ten looks, each after a pause, and four more pauses between the times."""
        self.assertEqual(self.sleeps("services-missing", d.UNHEALTHY), [5] * (5 * 10 + 4))

    def test_one_pause_before_the_first_look(self):
        self.assertEqual(self.sleeps("healthy", d.HEALTHY), [5])

    def test_no_pause_without_the_product(self):
        self.assertEqual(self.sleeps("not-installed", d.ABSENT, 0), [])

    def test_five_seconds_of_real_time_before_the_first_look(self):
        start = time.monotonic()
        self.detect(sleep_divisor=None)
        self.assertGreaterEqual(time.monotonic() - start, 5)

    def test_services_that_come_up_late(self):
        """They start after the first ten looks and long before the last one."""
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

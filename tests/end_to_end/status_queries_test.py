"""The status queries: each one on a healthy product, with findings, and failing, as whole logs.

The rules for every form of the status are in queries/*_test.cc.
"""

import dataclasses
import time

from tests.end_to_end import transcripts as t
from tests.end_to_end.harness import EndToEndCase


@dataclasses.dataclass(frozen=True)
class Query:
    """A query's command line and the fixed lines of its log."""

    words: tuple[str, ...]
    start: str
    closing: str
    end: str
    failure: str = "Failed to execute method. Error code: {}"
    before_walk: tuple[str, ...] = ()
    logs_end_on_failure: bool = True


QUERIES = {
    "errors": Query(
        ("-checkForUpdateErrors",), "Checking for update errors",
        "Finished to get update errors with error: {}",
        "Finished checking for update errors successfully",
        "Failed to execute Product.GetStatus with error: {}",
        before_walk=('Checking for "Locations" field',)),
    "status": Query(
        ("-getUpdateStatus", "Product"), "Getting update status",
        "Finished getting update status with error: {}",
        "Finished getting update status successfully",
        "Failed to execute Product.GetStatus method"),
    "current": Query(
        ("-isUpToDate",), "Checking if ORVEX is up to date",
        "Finished getting update status with error: {}",
        "Is ORVEX up to date value:{output}", logs_end_on_failure=False),
    "locations": Query(
        ("-getUpdateLocations",), "Get update locations",
        "Finished to get update locations with error code: {}",
        "Update locations retrieved successfully"),
    "last": Query(
        ("-getLastUpdate",), "Get last update",
        "Finished retrieving last update with error code: {}",
        "Finished to get last update with error code:{}"),
    "issues": Query(
        ("-hasCriticalIssues",), "Checking for critical issues",
        "Finished to get critical issues with error: {}",
        "Finished to get critical issues successfully",
        "Failed to execute Product.GetStatus method"),
    "version": Query(
        ("-getProductVersion",), "Get product version",
        "Finished returning product version with error code: {}",
        "Finished to get product version with error code:{}"),
    "features": Query(
        ("-getFeatureStatus",), "Get feature status",
        "Finished to get feature status with error code: {}",
        "Finished to get feature status with error code:{}"),
}

LATEST = {"LastUpdateTime": 1700000000, "Locations": {"Product": {"update": {
    "error": -2003, "time": 1700000000, "lastSucceededTime": 1699990000}}}}
PARTIAL = {"Locations": {"Product": {"update": {"time": 1700000000}}}}


def status_scenario(output):
    """A product with this status."""
    return {"sdk": {"answers": {t.GET_STATUS: {"output": output}}}}


class QueryCase(EndToEndCase):
    """Runs queries and compares their answers and their whole logs."""

    def check(self, name, scenario, output, walk=(), code=0):
        """The product answers the query; `walk` is what the query logs about the answer."""
        query = QUERIES[name]
        with self.subTest(query=name):
            run = self.run_tool(*query.words, scenario=scenario)
            self.assert_answer(run, code, output)
            self.assertEqual(run.main_log, [
                query.start, "Execute Product.GetStatus method", *t.wrapped(t.answered()),
                *query.before_walk, *walk, query.closing.format(code),
                query.end.format(code, output=output)])


class Answers(QueryCase):
    """The product answers."""

    def test_healthy_product(self):
        self.check("errors", "healthy", "")
        self.check("current", "healthy", "1")
        self.check("issues", "healthy", "")
        self.check("version", "healthy", "7.16.42.200137",
                   ["Found product version: 7.16.42.200137"])
        locations = ["Product", "antimalware", "webfilter", "ctc"]
        self.check("locations", "healthy", "|".join(locations),
                   [f"Location found: {name}" for name in locations])
        self.check("features", "healthy", "antimalware=1|webfilter=1|deviceControl=1|encryption=0",
                   ["Feature with id= antimalware is functioning: 1",
                    "Feature with id= webfilter is functioning: 1",
                    "Feature encryption is not enabled"])

    def test_times_of_a_healthy_product_are_recent(self):
        now = time.time()
        for words in (["-getLastUpdate"], ["-getUpdateStatus", "Product"]):
            run = self.run_tool(*words)
            moment = int(run.output.split(b"|")[-1])
            self.assertEqual(run.status, 0)
            self.assertLess(now - 86400, moment)
            self.assertLess(moment, now + 60)

    def test_findings(self):
        self.check("errors", "update-failed", "antimalware=-1|webfilter=1005",
                   ["Found an error: antimalware=-1", "Found an error: webfilter=1005"])
        self.check("issues", "critical-issues", "ProtectionOff|LicenceExpired",
                   ["Critical issue found: ProtectionOff", "Critical issue found: LicenceExpired"])
        for scenario in ("update-failed", "update-stale"):
            self.check("current", scenario, "0", ["Product is not up to date"])
        self.check("last", status_scenario(LATEST), "1700000000",
                   ["Last update time found with value: 1700000000"])
        self.check("status", status_scenario(LATEST), "-2003|1700000000|1699990000")
        self.check("features", "features-of-every-kind",
                   "working=1|broken=0|said=0|on=1|off=0|unsaid=0|one=0",
                   ["Feature with id= working is functioning: 1",
                    "Feature with id= broken is functioning: 0",
                    "Feature with id= said is functioning: 0",
                    "Feature off is not enabled",
                    "Feature unsaid is not enabled",
                    "Feature one is not enabled"])

    def test_incomplete_status(self):
        missing = 'Invalid JSON. Cannot find "{}" field'
        self.check("status", status_scenario(PARTIAL), "|1700000000",
                   [missing.format("error"), missing.format("lastSucceededTime")], code=3)
        self.check("status", status_scenario({"Locations": {}}), "",
                   [missing.format(" Product")], code=22)
        for name in QUERIES:
            self.check(name, status_scenario({}), "1" if name == "current" else "")

    def test_unusual_names_are_printed_as_they_are(self):
        entries = ["=1", "a b=2", "p|q=r=3", 'say "hi"=4', "größe 大=5", "nul\0byte=6"]
        self.check("errors", "unusual-names", "|".join(entries),
                   [f"Found an error: {entry}" for entry in entries])


class FailedMethod(QueryCase):
    """If the method fails, the query returns its code, prints nothing and logs no closing line."""

    def check_failure(self, scenario, code, method):
        for name, query in QUERIES.items():
            with self.subTest(query=name):
                run = self.run_tool(*query.words, scenario=scenario)
                self.assert_answer(run, code, "")
                ending = [query.end.format(code)] if query.logs_end_on_failure else []
                self.assertEqual(run.main_log, [
                    query.start, "Execute Product.GetStatus method", *method,
                    query.failure.format(code), *ending])

    def test_not_installed(self):
        self.check_failure("not-installed", 20, t.wrapped(t.product_missing(), 20))

    def test_error_of_the_product(self):
        self.check_failure("method-error", 7, t.wrapped(
            [*t.started(), "Set run async timeout", *t.PARSE[:5], "Response error code : 7",
             *t.finish()], sdk_error=7))

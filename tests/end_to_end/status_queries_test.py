"""The queries about the product's status: every kind of status, as answers and as whole logs."""

import dataclasses
import time

from tests.end_to_end import transcripts as t
from tests.end_to_end.harness import EndToEndCase


@dataclasses.dataclass(frozen=True)
class Query:
    """A query's option and the fixed lines of its log."""

    words: tuple[str, ...]
    start: str
    before_walk: tuple[str, ...]
    closing: str
    end: str
    failure: str
    is_end_logged_on_failure: bool = True


QUERIES = {
    "errors": Query(
        ("-checkForUpdateErrors",), "Checking for update errors",
        ('Checking for "Locations" field',), "Finished to get update errors with error: {}",
        "Finished checking for update errors successfully",
        "Failed to execute Product.GetStatus with error: {}"),
    "status": Query(
        ("-getUpdateStatus", "Product"), "Getting update status", (),
        "Finished getting update status with error: {}",
        "Finished getting update status successfully", "Failed to execute Product.GetStatus method"),
    "current": Query(
        ("-isUpToDate",), "Checking if ORVEX is up to date", (),
        "Finished getting update status with error: {}", "Is ORVEX up to date value:{output}",
        "Failed to execute method. Error code: {}", is_end_logged_on_failure=False),
    "locations": Query(
        ("-getUpdateLocations",), "Get update locations", (),
        "Finished to get update locations with error code: {}",
        "Update locations retrieved successfully", "Failed to execute method. Error code: {}"),
    "last": Query(
        ("-getLastUpdate",), "Get last update", (),
        "Finished retrieving last update with error code: {}",
        "Finished to get last update with error code:{}",
        "Failed to execute method. Error code: {}"),
    "issues": Query(
        ("-hasCriticalIssues",), "Checking for critical issues", (),
        "Finished to get critical issues with error: {}",
        "Finished to get critical issues successfully",
        "Failed to execute Product.GetStatus method"),
    "version": Query(
        ("-getProductVersion",), "Get product version", (),
        "Finished returning product version with error code: {}",
        "Finished to get product version with error code:{}",
        "Failed to execute method. Error code: {}"),
    "features": Query(
        ("-getFeatureStatus",), "Get feature status", (),
        "Finished to get feature status with error code: {}",
        "Finished to get feature status with error code:{}",
        "Failed to execute method. Error code: {}"),
}


def status_scenario(output):
    """A product with this status, a value or JSON text."""
    member = "outputText" if isinstance(output, str) else "output"
    return {"sdk": {"answers": {t.GET_STATUS: {member: output}}}}


def updated(error=0, seconds_ago=3600, succeeded=None):
    """A location's last update, and how many seconds ago it last succeeded."""
    succeeded = seconds_ago if succeeded is None else succeeded
    return {"update": {"error": error, "time": {"$secondsFromNow": -seconds_ago},
                       "lastSucceededTime": {"$secondsFromNow": -succeeded}}}


def locations(**updates):
    """A status with these locations."""
    return status_scenario({"Locations": updates})


EMPTY = status_scenario({})
EMPTY_PARTS = status_scenario({"Locations": {}, "Alerts": {}, "Features": []})
OTHER_TYPES = status_scenario({"LastUpdateTime": "yesterday", "Locations": [], "Alerts": "none",
                               "Features": {"id": "f"}})
NOTHING = (EMPTY, EMPTY_PARTS, OTHER_TYPES)
FAILED_FOR_PRODUCT_ONLY = locations(Product=updated(5), ctc=updated(-9), antimalware=updated())
SUPERSEDED = locations(antimalware=updated(-2003))
# Every member that is looked up occurs twice.
DOUBLED = status_scenario(
    '{"LastUpdateTime":1,"LastUpdateTime":2,"Locations":{"Product":{"Version":"1.0",'
    '"Version":"2.0","update":{"error":1,"error":2,"time":3,"time":4,"lastSucceededTime":5,'
    '"lastSucceededTime":6}},"Product":{"Version":"3.0","update":{"error":7}}},"Locations":{},'
    '"Alerts":{"a":{"severity":"critical","severity":"info"},"a":{"severity":"critical"}},'
    '"Alerts":{},"Features":[{"id":"f","id":"g","enabled":true,"enabled":false}],"Features":[]}')
LEAST, MOST = -2 ** 63, 2 ** 63 - 1
LIMITS = status_scenario({"LastUpdateTime": MOST, "Locations": {
    "Product": {"update": {"error": -2 ** 31, "time": LEAST, "lastSucceededTime": MOST}},
    "largest": {"update": {"error": 2 ** 31 - 1, "time": MOST, "lastSucceededTime": MOST}}}})
UPDATES_OF_OTHER_TYPES = status_scenario(
    '{"LastUpdateTime":1.5,"Locations":{'
    '"fraction":{"update":{"error":5.0,"time":1e3,"lastSucceededTime":1700000000.5}},'
    '"text":{"update":{"error":"5","time":"0","lastSucceededTime":"0"}},'
    '"large":{"update":{"error":3000000000,"time":9223372036854775808,'
    '"lastSucceededTime":-9223372036854775809}},"null":{"update":null},'
    '"list":{"update":[{"error":5}]},"number":7,"missing":{},"partial":{"update":{"error":6}}}}')


class QueryCase(EndToEndCase):
    """Runs queries and compares their answers and their whole logs."""

    def check(self, name, scenario, output, walk=(), code=0, words=None):
        """The query's method is answered; `walk` are the lines of its way through the answer."""
        query = QUERIES[name]
        with self.subTest(query=name):
            run = self.run_tool(*(words or query.words), scenario=scenario)
            self.assert_answer(run, code, output)
            self.assertEqual(run.main_log, [
                query.start, "Execute Product.GetStatus method", *t.wrapped(t.answered()),
                *query.before_walk, *walk, query.closing.format(code),
                query.end.format(code, output=output)])


class FailedMethod(QueryCase):
    """A method that fails gives its code, an empty text and no closing line."""

    def check_failure(self, scenario, code, method):
        for name, query in QUERIES.items():
            with self.subTest(query=name):
                run = self.run_tool(*query.words, scenario=scenario)
                self.assert_answer(run, code, "")
                ending = [query.end.format(code)] if query.is_end_logged_on_failure else []
                self.assertEqual(run.main_log, [
                    query.start, "Execute Product.GetStatus method", *method,
                    query.failure.format(code), *ending])

    def test_not_installed(self):
        self.check_failure("not-installed", 20, t.wrapped(t.product_missing(), 20))

    def test_error_of_the_product(self):
        self.check_failure("method-error", 7, t.wrapped(
            [*t.started(), "Set run async timeout", *t.PARSE[:5], "Response error code : 7",
             *t.finish()], sdk_error=7))


class HealthyEndpoint(QueryCase):
    """The scenario that everything else differs from."""

    def test_plausible_answers(self):
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

    def test_times_are_of_today(self):
        now = time.time()
        for words in (["-getLastUpdate"], ["-getUpdateStatus", "Product"]):
            run = self.run_tool(*words)
            moment = int(run.output.split(b"|")[-1])
            self.assertEqual(run.status, 0)
            self.assertLess(now - 86400, moment)
            self.assertLess(moment, now + 60)


class UpdateErrors(QueryCase):
    """-checkForUpdateErrors names every location whose last update failed."""

    def errors(self, scenario, *entries):
        self.check("errors", scenario, "|".join(entries),
                   [f"Found an error: {entry}" for entry in entries])

    def test_failed_locations(self):
        self.errors("update-failed", "antimalware=-1", "webfilter=1005")
        self.errors(FAILED_FOR_PRODUCT_ONLY, "Product=5", "ctc=-9")
        self.errors(SUPERSEDED, "antimalware=-2003")
        self.errors(LIMITS, "Product=-2147483648", "largest=2147483647")

    def test_only_integers_of_32_bits_count(self):
        self.errors(UPDATES_OF_OTHER_TYPES, "partial=6")

    def test_unusual_names(self):
        self.errors("unusual-names", "=1", "a b=2", "p|q=r=3", 'say "hi"=4', "größe 大=5",
                    "nul\0byte=6")

    def test_nothing_to_look_at(self):
        for scenario in NOTHING:
            self.errors(scenario)

    def test_doubled_members(self):
        self.errors(DOUBLED, "Product=1", "Product=7")


class UpdateStatus(QueryCase):
    """-getUpdateStatus gives error, time and time of success of one location."""

    MISSING = 'Invalid JSON. Cannot find "{}" field'

    def state(self, scenario, output, *missing, location="Product", code=0):
        self.check("status", scenario, output, [self.MISSING.format(name) for name in missing],
                   code, ("-getUpdateStatus", location))

    def test_all_there(self):
        self.state(LIMITS,
                   "-2147483648|-9223372036854775808|9223372036854775807")
        self.state(DOUBLED, "1|3|5")

    def test_what_is_missing_or_of_another_type_is_left_out(self):
        everything = ("error", "time", "lastSucceededTime")
        for location in ("fraction", "text", "large"):
            self.state(UPDATES_OF_OTHER_TYPES, "", *everything, location=location, code=3)
        self.state(UPDATES_OF_OTHER_TYPES, "6", *everything[1:], location="partial", code=3)
        times = status_scenario({"Locations": {"Product": {"update": {
            "lastSucceededTime": 7, "time": 1700000000}}}})
        self.state(times, "|1700000000|7", "error", code=3)

    def test_location_without_update(self):
        for location in ("null", "list", "missing"):
            self.state(UPDATES_OF_OTHER_TYPES, "", location=location)

    def test_unknown_location(self):
        for scenario, location in (("healthy", "product"), ("healthy", ""),
                                   (UPDATES_OF_OTHER_TYPES, "number"),
                                   (EMPTY_PARTS, "Product")):
            self.state(scenario, "", f" {location}", location=location, code=22)

    def test_unusual_names(self):
        for location in ("", "a b", "p|q=r", 'say "hi"', "größe 大"):
            run = self.run_tool("-getUpdateStatus", location, scenario="unusual-names")
            self.assertEqual(run.status, 3)
            self.assertRegex(run.output, b"^[1-5]$")

    def test_no_locations(self):
        for scenario in (EMPTY, OTHER_TYPES):
            self.state(scenario, "")


class UpToDate(QueryCase):
    """-isUpToDate judges all locations but two."""

    NO = ["Product is not up to date"]

    def test_up_to_date(self):
        for scenario in (SUPERSEDED, locations(antimalware=updated(succeeded=172_700)),
                         locations(antimalware=updated(seconds_ago=-86_400)),
                         FAILED_FOR_PRODUCT_ONLY, *NOTHING, "unusual-names", DOUBLED):
            self.check("current", scenario, "1")

    def test_not_up_to_date(self):
        for scenario in ("update-failed", "update-stale", LIMITS):
            self.check("current", scenario, "0", self.NO)

    def test_age_counts_even_if_the_error_is_no_integer(self):
        location = '{"Locations":{"a":{"update":{"error":5.0,"lastSucceededTime":1700000000}}}}'
        self.check("current", status_scenario(location), "0", self.NO)

    def test_location_without_time_of_success_is_not_judged(self):
        self.check("current", status_scenario({"Locations": {"a": {"update": {"error": 5}}}}), "1")


class OtherQueries(QueryCase):
    """Locations, last update, critical issues, version and features."""

    def test_locations(self):
        names = ["fraction", "text", "large", "null", "list", "number", "missing", "partial"]
        self.check("locations", UPDATES_OF_OTHER_TYPES, "|".join(names),
                   [f"Location found: {name}" for name in names])
        names = ["", "a b", "p|q=r", 'say "hi"', "größe 大", "nul\0byte"]
        self.check("locations", "unusual-names", "|".join(names[1:]),
                   [f"Location found: {name}" for name in names])
        for scenario in NOTHING:
            self.check("locations", scenario, "")

    def test_last_update(self):
        for scenario, value in ((LIMITS, "9223372036854775807"),
                                (DOUBLED, "1")):
            self.check("last", scenario, value, [f"Last update time found with value: {value}"])
        for scenario in (EMPTY, OTHER_TYPES, UPDATES_OF_OTHER_TYPES):
            self.check("last", scenario, "")

    def test_critical_issues(self):
        for scenario, names in (
                ("critical-issues", ["ProtectionOff", "LicenceExpired"]),
                ("unusual-names", ["", "p|q", "nul\0byte", "größe 大"]),
                (DOUBLED, ["a", "a"])):
            self.check("issues", scenario, "|".join(name for name in names if name),
                       [f"Critical issue found: {name}" for name in names])
        for scenario in NOTHING:
            self.check("issues", scenario, "")

    def test_version(self):
        self.check("version", DOUBLED, "1.0", ["Found product version: 1.0"])
        odd = "1.0 | \\u0000 größe"
        text = odd.replace("\\u0000", "\0")
        self.check("version", status_scenario(f'{{"Locations":{{"Product":{{"Version":"{odd}"}}}}}}'),
                   text, [f"Found product version: {text}"])
        number = status_scenario({"Locations": {"Product": {"Version": 7}}})
        for scenario in (number, *NOTHING):
            self.check("version", scenario, "")

    def test_features(self):
        self.check("features", "features-of-every-kind",
                   "working=1|broken=0|said=0|on=1|off=0|unsaid=0|one=0",
                   ["Feature with id= working is functioning: 1",
                    "Feature with id= broken is functioning: 0",
                    "Feature with id= said is functioning: 0",
                    "Feature off is not enabled",
                    "Feature unsaid is not enabled",
                    "Feature one is not enabled"])
        self.check("features", "unusual-names", "=1|p|q=r=1|nul\0byte=1|größe 大=0",
                   ["Feature with id= p|q=r is functioning: 1",
                    "Feature with id= größe 大 is functioning: 0"])
        for scenario in NOTHING:
            self.check("features", scenario, "")

    def test_thousands_of_members(self):
        names = [f"location{number}" for number in range(5000)]
        run = self.run_tool("-getUpdateLocations", logging=False, scenario=status_scenario(
            {"Locations": {name: {} for name in names}}))
        self.assert_answer(run, 0, "|".join(names))

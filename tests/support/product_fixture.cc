#include "tests/support/product_fixture.h"

#include "product/install_locations.h"

namespace fake {
namespace {

std::string IdentityAnswer(const std::string& output) {
  return Answer(output, "kx.Product.Configuration");
}

const ProductInfoStructure& Layout(int number) {
  return productInfoStructure.at(static_cast<std::size_t>(number - 1));
}

}  // namespace

Process ServiceProcess(int processId, const std::string& name) {
  return {processId, name.substr(0, 15), "/Library/Corvane/XQP/product/bin/" + name};
}

std::vector<Process> RunningServices() {
  return {{1, "launchd", "/sbin/launchd"},
          ServiceProcess(201, "KXCoreIssues"),
          ServiceProcess(202, "KXLDaemon"),
          {203, "bash", "/bin/bash"},
          ServiceProcess(204, "KXUpdDaemon")};
}

void ProductFixture::ScriptAnswers(const Answers& answers) {
  sdk.answers = {Answer(answers.status), IdentityAnswer(answers.identity)};
}

void ProductFixture::InstallHealthy(int number, const Answers& answers) {
  sdk.Install(number);
  ScriptAnswers(answers);
  world.processTables = {RunningServices()};
  world.AddFile(NewerFile(number), "{}");
}

void ProductFixture::InstallTypical() {
  InstallHealthy(1, {"{}", R"({"companyID":"C","endpointID":"E"})"});
  world.AddFile(NewerFile(), Configuration("h", "c", "G"));
}

std::string ProductFixture::NewerFile(int number) { return Layout(number).agcfngPath; }

std::string ProductFixture::OlderFile(int number) { return Layout(number).agcfPath; }

Lines ProductFixture::AbsentLog() {
  return {"Starting ORVEX Detect. Assign \"0\" to the result", "Get product directory",
          "ORVEX directory not found"};
}

Lines ProductFixture::IdentityLog(const std::string& output, const Lines& searchLines) {
  return Concat(
      {{"Getting SL Identity using the wrapper method"},
       AnsweredWrapperLog("kx.Product.Configuration.GetSkyloftIdentity", IdentityAnswer(output)),
       {"SL Identity retrieved successfully"},
       searchLines,
       {"Finished retrieving SL Identity with error code: 0"}});
}

std::string Configuration(const std::string& hardwareId, const std::string& companyId,
                          const std::string& group) {
  return R"({"id":{"hwid":")" + hardwareId + R"(","custid":")" + companyId +
         R"(","customdata":{"ComputersFolder":")" + group + R"("}}})";
}

}  // namespace fake

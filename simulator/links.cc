#include <rapidjson/document.h>
#include <rapidjson/istreamwrapper.h>

#include <fstream>
#include <string>

#include "simulator/stand_in.h"

/// A stand-in for the vendor's library that fetches installation links. It returns the scenario's
/// string and code; without a string, its arguments joined by "|".
extern "C" [[gnu::visibility("default")]] int GetInstallationLinks(std::string& result,
                                                                   const char* consoleUrl,
                                                                   const char* apiKey,
                                                                   const char* packageName,
                                                                   bool setupDownloader) {
  std::ifstream file(simulator::kScenarioPath);
  rapidjson::IStreamWrapper stream(file);
  rapidjson::Document scenario;
  scenario.ParseStream(stream);
  if (scenario.HasParseError()) simulator::Panic("cannot read ", simulator::kScenarioPath);
  const rapidjson::Value& links = scenario["links"];

  const rapidjson::Value& text = links["text"];
  if (text.IsString()) {
    result.assign(text.GetString(), text.GetStringLength());
  } else {
    result = std::string(consoleUrl) + "|" + apiKey + "|" + packageName + "|" +
             (setupDownloader ? "1" : "0");
  }
  return links["code"].GetInt();
}

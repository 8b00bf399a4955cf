#include "sdk/method_catalogue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "sdk/json_document.h"

namespace {

std::string Request(const std::string& method) { return agentsdkMethods.at(method); }

// The texts are spelled with escapes here, so that a slip in either spelling shows.
TEST(MethodCatalogue, ExactRequests) {
  EXPECT_EQ(Request("Product.GetStatus"),
            "{\"data\":{\"Product\":[{\"@name\":\"GetStatus\",\"input\":{}}]}}");
  EXPECT_EQ(Request("Update.StartUpdate"),
            "{\"data\":{\"Update\":[{\"@name\":\"StartUpdate\",\"input\":{\"use_saved_settings\":"
            "true}}]}}");
  EXPECT_EQ(Request("FileScan.OnDemand.RunFullScan"),
            "{ \"data\": { \"FileScan.OnDemand\" : [ { \"@name\" : \"RunScanTask\", \"input\" : { "
            "\"customScanTask\" : {}, \"runCustomTask\" : false, \"storedScanTask\" : { "
            "\"taskId\" : \"3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1\", \"userSid\" : \"\" } } } ] } "
            "}");
  EXPECT_EQ(Request("FileScan.OnDemand.RunQuickScan"),
            "{ \"data\": { \"FileScan.OnDemand\" : [ { \"@name\" : \"RunScanTask\", \"input\" : { "
            "\"customScanTask\" : {}, \"runCustomTask\" : false, \"storedScanTask\" : { "
            "\"taskId\" : \"8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c\", \"userSid\" : \"\" } } } ] } "
            "}");
  EXPECT_EQ(Request("kx.Product.Configuration.GetSkyloftIdentity"),
            "{ \"type\": \"agentsdk\", \"data\": { \"kx.Product.Configuration\":[ { "
            "\"@name\":\"GetSkyloftIdentity\", \"input\":{} } ] } }");
}

TEST(MethodCatalogue, HoldsNothingElse) {
  EXPECT_EQ(agentsdkMethods.size(), 5U);
  EXPECT_EQ(agentsdkMethods.count("product.getstatus"), 0U);
  EXPECT_EQ(agentsdkMethods.count("FileScan.OnDemand.RunScanTask"), 0U);
}

TEST(MethodCatalogue, ScansDifferInTheTaskAlone) {
  std::string full = Request("FileScan.OnDemand.RunFullScan");
  const std::string fullTask = "3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1";
  full.replace(full.find(fullTask), fullTask.size(), "8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c");
  EXPECT_EQ(full, Request("FileScan.OnDemand.RunQuickScan"));
}

TEST(MethodCatalogue, EveryRequestNamesTheNamespaceOfItsKey) {
  for (const auto& [method, request] : agentsdkMethods) {
    SCOPED_TRACE(method);
    rapidjson::Document document;
    document.Parse(request);
    ASSERT_FALSE(document.HasParseError());
    const rapidjson::Value& data = document["data"];
    ASSERT_EQ(data.MemberCount(), 1U);
    const std::string space = method.substr(0, method.rfind('.'));
    EXPECT_EQ(data.MemberBegin()->name.GetString(), space);
    const rapidjson::Value& calls = data.MemberBegin()->value;
    ASSERT_EQ(calls.Size(), 1U);
    EXPECT_TRUE(calls[0]["@name"].IsString());
    EXPECT_TRUE(calls[0]["input"].IsObject());
    EXPECT_EQ(document.HasMember("type"), space == "kx.Product.Configuration");
  }
}

}  // namespace

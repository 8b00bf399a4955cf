#include "sdk/method_catalogue.h"

// The two scans run the same product operation with the product's predefined full-scan and
// quick-scan tasks. The inconsistent spacing comes from the product.
std::unordered_map<std::string, const char*> agentsdkMethods = {
    {"Product.GetStatus", R"({"data":{"Product":[{"@name":"GetStatus","input":{}}]}})"},
    {"Update.StartUpdate",
     R"({"data":{"Update":[{"@name":"StartUpdate","input":{"use_saved_settings":true}}]}})"},
    {"FileScan.OnDemand.RunFullScan",
     R"({ "data": { "FileScan.OnDemand" : [ { "@name" : "RunScanTask", "input" : { "customScanTask" : {}, "runCustomTask" : false, "storedScanTask" : { "taskId" : "3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1", "userSid" : "" } } } ] } })"},
    {"FileScan.OnDemand.RunQuickScan",
     R"({ "data": { "FileScan.OnDemand" : [ { "@name" : "RunScanTask", "input" : { "customScanTask" : {}, "runCustomTask" : false, "storedScanTask" : { "taskId" : "8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c", "userSid" : "" } } } ] } })"},
    {"kx.Product.Configuration.GetSkyloftIdentity",
     R"({ "type": "agentsdk", "data": { "kx.Product.Configuration":[ { "@name":"GetSkyloftIdentity", "input":{} } ] } })"},
};

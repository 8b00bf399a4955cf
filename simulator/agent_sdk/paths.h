#ifndef SIMULATOR_AGENT_SDK_PATHS_H_
#define SIMULATOR_AGENT_SDK_PATHS_H_

namespace simulator {

/// Where the launcher puts the behaviour of the stand-ins, and where they write what happened.
constexpr char kScenarioPath[] = "/Library/Corvane/XQP/simulator/scenario.json";
constexpr char kCallRecordPath[] = "/Library/Corvane/XQP/simulator/calls.jsonl";

}  // namespace simulator

#endif  // SIMULATOR_AGENT_SDK_PATHS_H_

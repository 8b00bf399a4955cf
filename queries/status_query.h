#ifndef QUERIES_STATUS_QUERY_H_
#define QUERIES_STATUS_QUERY_H_

#include <functional>

#include "json/document.h"

class KXTool;
class Logger;

namespace queries {

/// The log lines that tell one status query from another.
struct QueryLines {
  const char* failure;     ///< the SDK call failed
  bool failureEndsInCode;  ///< the call's code is appended to it
  const char* guard;       ///< the extraction threw
  const char* closing;     ///< the query's code is appended to it
};

/// Reads what a query wants to know from the output of "Product.GetStatus". The output is an
/// object, or null, which counts as one without members. An extraction changes its result as its
/// last step, so that an exception leaves the result as it was.
/// @return the query's code
using Extraction = std::function<int(const rapidjson::Value& output)>;

/// Asks the product for its status and extracts the answer from it.
/// @return the SDK call's code when it failed, 3 when the extraction threw, else its code.
int RunStatusQuery(KXTool& tool, const QueryLines& lines, const Extraction& extract,
                   Logger* logger);

}  // namespace queries

#endif  // QUERIES_STATUS_QUERY_H_

// Prints the table of options as JSON, for the tests and tools that are not written in C++.

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <cstdio>

#include "app/options.h"

int main() {
  rapidjson::StringBuffer text;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> json(text);
  json.StartArray();
  for (const Option& option : kOptions) {
    json.StartObject();
    json.Key("name");
    json.String(option.name);
    json.Key("leastWords");
    json.Int(option.words.minimum);
    json.Key("mostWords");
    json.Int(option.words.maximum);
    json.Key("messages");
    json.StartArray();
    json.String(option.messages.start);
    json.String(option.messages.badArguments);
    if (option.end.message != nullptr) json.String(option.end.message);
    json.EndArray();
    json.EndObject();
  }
  json.EndArray();
  std::puts(text.GetString());
}

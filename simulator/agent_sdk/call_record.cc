#include "simulator/agent_sdk/call_record.h"

#include <fcntl.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <unistd.h>

#include "simulator/stand_in.h"

namespace simulator {
namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void WriteMember(Writer& writer, const char* name, const std::optional<int>& value) {
  if (!value.has_value()) return;
  writer.Key(name);
  writer.Int(*value);
}

void WriteMember(Writer& writer, const char* name, const std::optional<std::string>& value) {
  if (!value.has_value()) return;
  writer.Key(name);
  writer.String(value->data(), static_cast<rapidjson::SizeType>(value->size()));
}

}  // namespace

void Record(const CallLine& line) {
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  writer.StartObject();
  writer.Key("what");
  writer.String(line.what);
  WriteMember(writer, "instance", line.instance);
  WriteMember(writer, "status", line.status);
  WriteMember(writer, "number", line.number);
  WriteMember(writer, "method", line.method);
  WriteMember(writer, "request", line.request);
  WriteMember(writer, "batch", line.batch);
  WriteMember(writer, "text", line.text);
  writer.EndObject();
  buffer.Put('\n');

  // Appending in one call keeps the lines of several threads apart.
  const int file = open(kCallRecordPath, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (file < 0 || write(file, buffer.GetString(), buffer.GetSize()) < 0) {
    Panic("cannot write the call record ", kCallRecordPath);
  }
  close(file);
}

}  // namespace simulator

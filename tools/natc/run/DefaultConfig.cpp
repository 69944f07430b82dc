#include "DefaultConfig.h"

#include <nlohmann/json.hpp>

namespace natc::run
{
namespace
{
// "@LOGS@" stands for the log directory (a host named by an absolute directory reads the
// .evtx files in it).
constexpr const char* defaultText = R"({
  "hosts": [
    {"id": "machine", "name": "localhost"},
    {"id": "logs", "name": "@LOGS@"}
  ],
  "tasks": [
    {
      "name": "machine",
      "host": "machine",
      "collections": [
        {
          "type": "MiPerf",
          "period": 5,
          "counters": [
            {"class": "Win32_PerfRawData_PerfOS_Processor", "counter": "PercentProcessorTime", "target": "cpu"},
            {"class": "Win32_PerfRawData_PerfOS_Memory", "counter": "AvailableBytes", "target": "memory.available", "factor": 0.000001},
            {"class": "Win32_PerfRawData_PerfDisk_PhysicalDisk", "counter": "DiskReadBytesPersec", "target": "disk.read"},
            {"class": "Win32_PerfRawData_PerfDisk_PhysicalDisk", "counter": "DiskWriteBytesPersec", "target": "disk.write"},
            {"class": "Win32_PerfRawData_Tcpip_NetworkInterface", "counter": "BytesReceivedPersec", "target": "net.received"},
            {"class": "Win32_PerfRawData_Tcpip_NetworkInterface", "counter": "BytesSentPersec", "target": "net.sent"}
          ]
        },
        {
          "type": "MiProp",
          "period": 60,
          "filter": {
            "namespace": "root/cimv2",
            "class": "Win32_OperatingSystem",
            "properties": ["Caption", "Version", "LastBootUpTime", "FreePhysicalMemory", "NumberOfProcesses"]
          }
        }
      ]
    },
    {
      "name": "event logs",
      "host": "logs",
      "collections": [
        {
          "type": "WindowsEvents",
          "period": 10,
          "filters": [
            {"path": "System"},
            {"path": "Application"}
          ]
        }
      ]
    }
  ]
}
)";
} // namespace

std::string DefaultRunConfigText(const std::string& logDirectory)
{
  std::string text = defaultText;
  // The directory goes in as a JSON string, escaped, without its quotes.
  const std::string escaped = nlohmann::json(logDirectory).dump();
  const std::string placeholder = "@LOGS@";
  text.replace(text.find(placeholder), placeholder.size(), escaped.substr(1, escaped.size() - 2));
  return text;
}
} // namespace natc::run

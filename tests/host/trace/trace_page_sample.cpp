// Writes a trace and its page for the browser test: trace_page_sample DIR PACKETS writes
// DIR/run.trace and DIR/run.html, with records of every kind and PACKETS further packets.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "protocol/packet_table.h"
#include "trace/trace_page.h"
#include "trace/trace_reader.h"
#include "trace/trace_writer.h"
#include "zarn/arvlapp/protocol_util.h"

using namespace arvl_host;
using namespace ZARN::ARVLAPP;

namespace {

constexpr char kHostile[] =
    "</script><script>document.title='ran'</script></pre><img src=x onerror=document.title='ran'>";

// A clock that only the sample sets, so that every page is the same.
std::int64_t elapsed = 0;

TraceWriter::Now now() {
  return {1767261845123456 + elapsed, elapsed};
}

void exchange(TraceWriter &writer, PACKET_TYPE type, const std::string &request,
              const std::string &response, std::int64_t took) {
  elapsed += 180;
  writer.packet(Side::kPlugin, static_cast<std::uint16_t>(type), request);
  elapsed += took;
  writer.packet(Side::kFramework, findPacket(type)->answer, response);
}

std::string transfer(const std::string &path) {
  return R"({"data":[{"destination":{"path":"/data/)" + path +
         R"("},"source":{"path":"/srv/notes/)" + path + R"(","type":"file"}}]})" + "\n";
}

std::string transferred(const std::string &path) {
  return R"({"data":[{"source":{"path":"/srv/notes/)" + path +
         R"(","type":"file"},"success":true}],"success":true})" + "\n";
}

void writeCanExport(TraceWriter &writer) {
  writer.stepStarted("can_export", "/usr/lib/notes/plug-in/can_export", "2.3", 4207);
  elapsed += 2150;
  writer.packet(Side::kPlugin, PACKET_CAN_EXPORT_RESULT, "{\"success\":true}\n");
  elapsed += 900;
  writer.stepEnded("succeeded", 0);
}

void writeExport(TraceWriter &writer, long packets) {
  writer.stepStarted("export", "/usr/lib/notes/plug-in/export", "2.3", 4211);
  exchange(writer, PACKET_EXPORT_CONFIG_REQUEST, "",
           R"({"export_config":{"attachments":true,"folders":["Inbox","Größe ☃"]},"success":true})",
           412);
  exchange(writer, PACKET_LANGUAGE_REQUEST, "", R"({"language":"enu","success":true})", 96);
  elapsed += 40;
  writer.log(LogSource::kStdout, "taking a snapshot of 2000 notes");
  elapsed += 1730000;
  writer.log(LogSource::kStderr, kHostile);
  writer.log(LogSource::kHost, "estimate of 1.2 MiB; 14 files so far");
  exchange(writer, PACKET_SET_PROGRESS_REQUEST,
           R"({"progress_percentage":10,"progress_stage":"snapshot"})", R"({"success":true})", 73);
  exchange(writer, PACKET_UPLOAD_REQUEST, transfer("notes.db"), transferred("notes.db"), 48210);
  exchange(writer, PACKET_UPLOAD_REQUEST,
           transfer("attachments/a-rather-long-name-of-a-holiday-photograph.jpeg"),
           transferred("attachments/a-rather-long-name-of-a-holiday-photograph.jpeg"), 2210);
  exchange(writer, PACKET_CREATE_DIR_REQUEST, std::string(R"({"path":"/)") + kHostile + "\"}",
           R"({"error":"no such folder","request":{"path":"/x"},"success":false})", 130);
  for (long i = 0; i < packets / 2; ++i) {
    const std::string path = "attachments/" + std::to_string(i) + ".jpeg";
    exchange(writer, PACKET_UPLOAD_REQUEST, transfer(path), transferred(path), 700);
  }
  elapsed += 300;
  writer.log(LogSource::kSyslog, "export.cpp:88 data version \xff\x1b[31m of the notes");
  elapsed += 150;
  writer.packet(Side::kPlugin, PACKET_EXPORT_COMPLETE, R"({"app_data_version":"1","success":true})",
                {false,
                 {"protocol_util.cpp:196 invalid app_data_version format [1]",
                  "protocol_util.cpp:297 invalid success export_complete",
                  std::string("protocol_util.cpp:1 ") + kHostile}});
  elapsed += 800;
  writer.stepEnded("broke the protocol", 3);
}

void writeImport(TraceWriter &writer) {
  writer.stepStarted("import", "/usr/lib/notes/plug-in/import", "2.3", 4260);
  elapsed += 500;
  writer.packet(Side::kPlugin, 300, R"({"what":"is this"})", {false, {"invalid packet type 300"}});
  elapsed += 500;
  writer.garbage(Side::kPlugin, std::string("\xDE\xAD\xBE\xEF and then some text", 23),
                 "the check code is wrong");
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fputs("usage: trace_page_sample DIR PACKETS\n", stderr);
    return 2;
  }
  const std::string directory = argv[1];
  TraceWriter::Options options;
  options.clock = now;
  std::string error;
  TraceWriter writer;
  if (!writer.open(directory + "/run.trace", "arvl-host 1.0.0", options, error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  writeCanExport(writer);
  writeExport(writer, std::strtol(argv[2], nullptr, 10));
  writeImport(writer);
  writer.close();

  Trace trace;
  if (!readTrace(directory + "/run.trace", trace, error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  std::ofstream page(directory + "/run.html");
  writeTracePage(trace, page);
  return page.flush() ? 0 : 1;
}

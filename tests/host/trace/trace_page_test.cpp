// Tests the text of the page. trace_page_browser_test.py tests it in a browser.
#include "trace/trace_page.h"

#include <gtest/gtest.h>

#include <sstream>

#include "host/support/trace_files.h"
#include "zarn/arvlapp/protocol_util.h"

namespace arvl_host {
namespace {

using namespace ZARN::ARVLAPP;
using arvl_test::ClockedWriter;
using arvl_test::readBack;
using arvl_test::TraceFile;

std::string pageOf(const TraceFile &file) {
  std::ostringstream out;
  writeTracePage(readBack(file), out);
  return out.str();
}

std::size_t count(const std::string &page, const std::string &text) {
  std::size_t found = 0;
  for (std::size_t at = page.find(text); at != std::string::npos; at = page.find(text, at + 1)) {
    ++found;
  }
  return found;
}

TEST(TracePage, ShowsTheContentsOfAHostileTraceAsText) {
  const std::string evil =
      "</pre></script><script>x()</script><img src=x onerror='x()'>\"><b a=\"&lt;";
  const TraceFile file;
  ClockedWriter trace(file.name());
  trace.writer.stepStarted(evil, evil, evil, 1);
  trace.writer.packet(Side::kPlugin, PACKET_SUMMARY_RESULT, "{\"<i>\":\"<img src=x>\"}",
                      {false, {evil}});
  trace.writer.packet(Side::kPlugin, PACKET_SUMMARY_RESULT, evil);
  trace.writer.packet(Side::kFramework, PACKET_SUMMARY_RESULT, evil + std::string(70000, ' '));
  trace.writer.garbage(Side::kPlugin, evil, evil);
  trace.writer.log(LogSource::kSyslog, evil);
  trace.writer.stepEnded(evil, 0);
  const std::string page = pageOf(file);
  EXPECT_EQ(count(page, "<script"), 0U);
  EXPECT_EQ(count(page, "<img"), 0U);
  EXPECT_EQ(count(page, "<b a"), 0U);
  EXPECT_EQ(count(page, "<i>"), 0U);
  EXPECT_EQ(count(page, "&quot;&lt;i&gt;&quot;: &quot;&lt;img src=x&gt;&quot;"), 1U);
  EXPECT_EQ(count(page, "&lt;script&gt;x()"), 11U) << "step and outcome are shown twice";
}

TEST(TracePage, EscapesTheNameThatAForgedTraceGivesAPacket) {
  const TraceFile file;
  { ClockedWriter trace(file.name()); }
  file.write(
      file.content() +
      R"({"kind":"packet","time":1,"elapsed":0,"from":"plugin","name":"<u>","type":1,"bytes":8,"valid":true})"
      "\n");
  EXPECT_EQ(count(pageOf(file), "<u>"), 0U);
}

TEST(TracePage, ForbidsScriptsAndFetches) {
  const TraceFile file;
  { ClockedWriter trace(file.name()); }
  const std::string page = pageOf(file);
  EXPECT_EQ(count(page,
                  "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
                  "style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'\">"),
            1U);
  EXPECT_EQ(count(page, "http://") + count(page, "https://") + count(page, "url("), 0U);
}

TEST(TracePage, ShowsWhatHappenedBeforeTheFirstStep) {
  const TraceFile file;
  ClockedWriter(file.name()).writer.log(LogSource::kHost, "no plug-in there");
  const std::string page = pageOf(file);
  EXPECT_EQ(count(page, "<h2>before the first step </h2>"), 1U);
  EXPECT_EQ(count(page, "no plug-in there"), 1U);
}

TEST(TracePage, SaysHowMuchOfEachPayloadIsShown) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  trace.writer.packet(Side::kPlugin, PACKET_LANGUAGE_REQUEST, "");
  trace.writer.packet(Side::kPlugin, PACKET_SUMMARY_RESULT, "{");
  trace.writer.packet(Side::kPlugin, PACKET_SUMMARY_RESULT, std::string(70000, 'x'));
  trace.writer.garbage(Side::kPlugin, std::string(70000, 'x'), "no check code");
  const std::string page = pageOf(file);
  EXPECT_EQ(count(page, "Type 22, 8 bytes, no payload</p></div>"), 1U);
  EXPECT_EQ(count(page, "Type 24, 9 bytes, shown as text</p><pre tabindex=\"0\">{</pre>"), 1U);
  EXPECT_EQ(count(page, "Type 24, 70008 bytes, abbreviated to 4096 bytes</p>"), 1U);
  EXPECT_EQ(count(page, "The first 4096 bytes:</p>"), 1U);
}

TEST(TracePage, SaysThatAStepOrTheTraceIsNotFinished) {
  const TraceFile file;
  {
    ClockedWriter trace(file.name());
    trace.writer.stepStarted("export", "/p/export", "2.3", 1);
  }
  file.write(file.content() + "{\"kind\":");
  const std::string page = pageOf(file);
  EXPECT_EQ(count(page, "<span class=\"badge bad\">not finished</span>"), 2U);
  EXPECT_EQ(count(page, "The trace ends inside a line: its host did not live to finish it."), 1U);
}

TEST(TracePage, ListsTheFirstInvalidPacketsAndCountsTheRest) {
  const TraceFile file;
  ClockedWriter trace(file.name());
  for (int i = 0; i < 60; ++i) {
    trace.writer.packet(Side::kPlugin, PACKET_STAT_REQUEST, "{}", {false, {}});
  }
  const std::string page = pageOf(file);
  EXPECT_EQ(count(page, "<a href=\"#p"), 50U);
  EXPECT_EQ(count(page, "<a href=\"#p50\">#50</a> and 10 more</p>"), 1U);
}

}  // namespace
}  // namespace arvl_host

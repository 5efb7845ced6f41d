#include "trace/trace_page.h"

#include <cstdio>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "step/log_source.h"
#include "step/side.h"
#include "text/dates.h"
#include "text/durations.h"
#include "text/hex.h"
#include "text/sizes.h"
#include "text/utf8.h"
#include "trace/html.h"
#include "trace/trace_page_style.h"
#include "trace/trace_view.h"

namespace arvl_host {

namespace {

// Forbids scripts and fetches; the style sheet is inline.
constexpr char kPolicy[] =
    "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'";

constexpr std::int64_t kPauseWorthShowing = 1000000;  // microseconds
constexpr std::size_t kInvalidListed = 50;

// The records of one step, or those before the first step, which have no `start`.
struct Section {
  const StepStart *start = nullptr;
  const StepEnd *end = nullptr;
  std::vector<const TraceRecord *> records;
  StepCounts counts;
};

std::vector<Section> splitIntoSections(const std::vector<TraceRecord> &records) {
  std::vector<Section> sections;
  for (const TraceRecord &record : records) {
    const auto *start = std::get_if<StepStart>(&record);
    if (start != nullptr || sections.empty()) {
      sections.emplace_back();
    }
    Section &section = sections.back();
    section.counts.add(record);
    if (start != nullptr) {
      section.start = start;
    } else if (const auto *end = std::get_if<StepEnd>(&record)) {
      section.end = end;
    } else {
      section.records.push_back(&record);
    }
  }
  return sections;
}

std::string html(const std::string &text) {
  return escapeHtml(visibleText(text));
}

std::string number(std::uint64_t number) {
  return std::to_string(number);
}

std::string sizeLabel(std::uint64_t bytes) {
  constexpr double kKibibyte = 1024;
  if (bytes < 1024) {
    return number(bytes) + " B";
  }
  const double kibibytes = static_cast<double>(bytes) / kKibibyte;
  char text[48];
  if (kibibytes < kKibibyte) {
    std::snprintf(text, sizeof text, "%.1f KiB", kibibytes);
  } else {
    std::snprintf(text, sizeof text, "%.1f MiB", kibibytes / kKibibyte);
  }
  return text;
}

std::string secondsText(std::int64_t microseconds) {
  char text[48];
  std::snprintf(text, sizeof text, "%.6f", static_cast<double>(microseconds) / 1e6);
  return text;
}

std::string span(const char *style, const std::string &content) {
  return std::string("<span class=\"") + style + "\">" + content + "</span>";
}

std::string stepName(const Section &section) {
  return section.start == nullptr ? "before the first step" : html(section.start->step);
}

std::string outcomeBadge(const Section &section) {
  if (section.end == nullptr) {
    return section.start == nullptr ? "" : span("badge bad", "not finished");
  }
  return span(section.end->exitCode == 0 ? "badge good" : "badge bad", html(section.end->outcome));
}

// Writes the page from top to bottom.
class PageWriter {
 public:
  PageWriter(const Trace &trace, std::ostream &out)
      : trace_(trace), sections_(splitIntoSections(trace.records)), out_(out) {}

  void write() {
    writeHead();
    writeTitle();
    writeOverview();
    writeInvalidList();
    writeFilters();
    out_ << "<main>\n";
    for (std::size_t i = 0; i < sections_.size(); ++i) {
      writeSection(sections_[i], i + 1);
    }
    out_ << "</main>\n";
    if (trace_.endsInsideLine) {
      out_ << "<p class=\"cut\">The trace ends inside a line: its host did not live to finish "
              "it.</p>\n";
    }
    out_ << "</body>\n</html>\n";
  }

 private:
  void writeHead() {
    out_ << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
            "<meta http-equiv=\"Content-Security-Policy\" content=\""
         << kPolicy
         << "\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
            "<meta name=\"referrer\" content=\"no-referrer\">\n<title>Trace of "
         << dateText(trace_.header.time.wall) << "</title>\n<style>" << kTracePageStyle
         << "</style>\n</head>\n<body>\n";
  }

  void writeTitle() {
    StepCounts all;
    for (const TraceRecord &record : trace_.records) {
      all.add(record);
    }
    out_ << "<header>\n<h1>Plug-in trace</h1>\n<p class=\"facts\">"
         << span("fact", dateText(trace_.header.time.wall))
         << span("fact", html(trace_.header.tool)) << span("fact", countText(all.packets, "packet"))
         << span("fact", countText(all.logLines, "log line"))
         << span(all.invalid == 0 ? "fact good-text" : "fact bad-text",
                 all.invalid == 0 ? "all valid" : number(all.invalid) + " invalid")
         << "</p>\n</header>\n";
  }

  void writeOverview() {
    out_ << "<nav aria-label=\"Steps\"><table>\n<thead><tr><th>Step</th><th>Outcome</th>"
            "<th class=\"n\">Time</th><th class=\"n\">Packets</th><th class=\"n\">Invalid</th>"
            "</tr></thead>\n<tbody>\n";
    for (std::size_t i = 0; i < sections_.size(); ++i) {
      const Section &section = sections_[i];
      out_ << "<tr><td><a href=\"#step-" << i + 1 << "\">" << stepName(section) << "</a></td><td>"
           << outcomeBadge(section) << "</td><td class=\"n\">"
           << (section.end == nullptr ? "" : durationText(section.end->duration))
           << "</td><td class=\"n\">" << section.counts.packets << "</td><td class=\"n"
           << (section.counts.invalid == 0 ? "" : " bad-text") << "\">" << section.counts.invalid
           << "</td></tr>\n";
    }
    out_ << "</tbody>\n</table></nav>\n";
  }

  void writeInvalidList() {
    std::size_t index = 0;
    std::size_t invalid = 0;
    for (const TraceRecord &record : trace_.records) {
      if (!isExchange(record)) {
        continue;
      }
      ++index;
      if (isInvalid(record) && ++invalid <= kInvalidListed) {
        out_ << (invalid == 1 ? "<p class=\"invalid-list\">Invalid: " : " ") << "<a href=\"#p"
             << index << "\">#" << index << "</a>";
      }
    }
    if (invalid > kInvalidListed) {
      out_ << " and " << invalid - kInvalidListed << " more";
    }
    out_ << (invalid > 0 ? "</p>\n" : "");
  }

  // The style sheet does the filtering.
  void writeFilters() {
    out_
        << "<fieldset class=\"filters\"><legend>Show</legend>\n"
           "<label><input type=\"radio\" name=\"show\" id=\"show-all\" checked>Everything</label>\n"
           "<label><input type=\"radio\" name=\"show\" id=\"show-packets\">Packets</label>\n"
           "<label><input type=\"radio\" name=\"show\" id=\"show-invalid\">Invalid</label>\n"
           "</fieldset>\n";
  }

  void writeSection(const Section &section, std::size_t index) {
    out_ << "<section class=\"step\" id=\"step-" << index << "\">\n<h2>" << stepName(section) << ' '
         << outcomeBadge(section) << "</h2>\n";
    writeFacts(section);
    out_ << "<div class=\"row heads\"><span></span><div><span>Plug-in</span>"
            "<span>Framework</span></div></div>\n<ol>\n";
    timer_ = AnswerTimer();
    last_ = section.start == nullptr ? nullptr : &section.start->time;
    for (const TraceRecord *record : section.records) {
      std::visit([this](const auto &kind) { writeRecord(kind); }, *record);
    }
    if (section.end != nullptr) {
      writePause(section.end->time);
    }
    out_ << "</ol>\n</section>\n";
  }

  void writeFacts(const Section &section) {
    if (section.start == nullptr) {
      return;
    }
    out_ << "<p class=\"facts\">" << span("fact path", html(section.start->plugin))
         << span("fact", "framework " + html(section.start->frameworkVersion))
         << span("fact", "pid " + std::to_string(section.start->pid))
         << span("fact", countText(section.counts.packets, "packet"));
    if (section.end != nullptr) {
      out_ << span("fact", durationText(section.end->duration))
           << span("fact", "exit code " + std::to_string(section.end->exitCode));
    }
    out_ << "</p>\n";
  }

  void writeRecord(const StepStart &) {}
  void writeRecord(const StepEnd &) {}

  void writeRecord(const PacketRecord &packet) {
    writePause(packet.time);
    std::string facts = span("size", sizeLabel(packet.bytes));
    if (const auto took = timer_.time(packet)) {
      facts += span("took", "after " + durationText(*took));
    }
    openExchange(packet.from, packet.time, !packet.verdict.valid, packetTitle(packet), facts);
    writeRuleBook(packet.verdict);
    writeFold(packet);
  }

  void writeRecord(const GarbageRecord &garbage) {
    writePause(garbage.time);
    openExchange(garbage.from, garbage.time, true, "no packet",
                 span("size", sizeLabel(garbage.bytes)));
    writeRuleBook({false, {garbage.reason}});
    const bool cut = garbage.bytes > garbage.data.size();
    closeExchange((cut ? "The first " : "All ") + countText(garbage.data.size(), "byte") + ":",
                  toHex(garbage.data));
  }

  void writeRecord(const LogRecord &log) {
    writePause(log.time);
    const bool cut = log.bytes > log.text.size();
    out_ << "<li class=\"row log " << sourceName(log.source) << "\">" << timeCell(log.time)
         << "<div class=\"lane\"><p class=\"note\"><b>" << sourceName(log.source) << "</b> "
         << html(log.text)
         << (cut ? span("more", "\u2026 abbreviated, " + sizeLabel(log.bytes) + " in all") : "")
         << "</p></div></li>\n";
  }

  // Writes an arrow that can be opened to show the content.
  void openExchange(Side from, const TraceTime &time, bool invalid, const std::string &title,
                    const std::string &facts) {
    ++index_;
    const bool fromPlugin = from == Side::kPlugin;
    out_ << "<li class=\"packet from-" << sideName(from) << (invalid ? " invalid" : "")
         << "\" id=\"p" << index_ << "\"><details><summary class=\"row\">" << timeCell(time)
         << "<div class=\"lane\"><div class=\"label\">" << span("name", escapeHtml(title))
         << span("unseen",
                 fromPlugin ? " from plug-in to framework " : " from framework to plug-in ")
         << facts << (invalid ? span("badge bad", "invalid") : "")
         << span("index", "#" + number(index_)) << "</div><div class=\"arrow\"></div>";
  }

  void writeRuleBook(const Verdict &verdict) {
    if (verdict.lines.empty()) {
      return;
    }
    out_ << "<ul class=\"rule-book\">";
    for (const std::string &line : verdict.lines) {
      out_ << "<li>" << html(line) << "</li>";
    }
    out_ << "</ul>";
  }

  void writeFold(const PacketRecord &packet) {
    const std::string type = "Type " + std::to_string(packet.type) + ", " + sizeText(packet);
    switch (packet.payload.form) {
      case Payload::Form::kNone:
        closeExchange(type + ", no payload", "");
        break;
      case Payload::Form::kJson:
        closeExchange(type, indentedPayload(packet.payload));
        break;
      case Payload::Form::kText:
        closeExchange(type + ", shown as text", indentedPayload(packet.payload));
        break;
      case Payload::Form::kAbbreviated:
        closeExchange(type + ", abbreviated to " + countText(packet.payload.text.size(), "byte"),
                      indentedPayload(packet.payload) + "\u2026");
        break;
    }
  }

  void closeExchange(const std::string &caption, const std::string &content) {
    out_ << "</div></summary><div class=\"row\"><span></span><div class=\"lane\"><p "
            "class=\"caption\">"
         << escapeHtml(caption) << "</p>";
    if (!content.empty()) {
      out_ << "<pre tabindex=\"0\">";
      writeEscaped(content);
      out_ << "</pre>";
    }
    out_ << "</div></div></details></li>\n";
  }

  // Writes in pieces, as the text may be a long payload.
  void writeEscaped(std::string_view text) {
    constexpr std::size_t kPiece = 65536;
    for (std::size_t at = 0; at < text.size(); at += kPiece) {
      out_ << escapeHtml(text.substr(at, kPiece));
    }
  }

  // Shows a long time without records as a gap in the lifelines.
  void writePause(const TraceTime &time) {
    const std::int64_t pause = last_ == nullptr ? 0 : time.elapsed - last_->elapsed;
    last_ = &time;
    if (pause >= kPauseWorthShowing) {
      out_ << "<li class=\"row pause\"><span></span><div class=\"lane\"><span>"
           << durationText(pause) << "</span></div></li>\n";
    }
  }

  static std::string timeCell(const TraceTime &time) {
    return "<time title=\"" + dateText(time.wall) + "\">" + secondsText(time.elapsed) + "</time>";
  }

  static bool isExchange(const TraceRecord &record) {
    return std::holds_alternative<PacketRecord>(record) ||
           std::holds_alternative<GarbageRecord>(record);
  }

  static bool isInvalid(const TraceRecord &record) {
    const auto *packet = std::get_if<PacketRecord>(&record);
    return packet == nullptr || !packet->verdict.valid;
  }

  const Trace &trace_;
  const std::vector<Section> sections_;
  std::ostream &out_;
  AnswerTimer timer_;
  const TraceTime *last_ = nullptr;
  std::size_t index_ = 0;
};

}  // namespace

void writeTracePage(const Trace &trace, std::ostream &out) {
  PageWriter(trace, out).write();
}

}  // namespace arvl_host

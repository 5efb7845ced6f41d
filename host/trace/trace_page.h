// Writes a trace as a self-contained HTML page with a sequence diagram of each step.
#ifndef ARVL_HOST_TRACE_TRACE_PAGE_H_
#define ARVL_HOST_TRACE_TRACE_PAGE_H_

#include <iosfwd>

#include "trace/trace_reader.h"

namespace arvl_host {

// Writes the page. It has no script and fetches nothing, and its content security policy forbids both. All
// contents of the trace are shown as text. The caller checks the stream for errors.
void writeTracePage(const Trace &trace, std::ostream &out);

}  // namespace arvl_host

#endif  // ARVL_HOST_TRACE_TRACE_PAGE_H_

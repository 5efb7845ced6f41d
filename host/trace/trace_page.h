// A trace as one page for a browser: the sequence diagram of its steps, in a file that needs no other.
#ifndef ARVL_HOST_TRACE_TRACE_PAGE_H_
#define ARVL_HOST_TRACE_TRACE_PAGE_H_

#include <iosfwd>

#include "trace/trace_reader.h"

namespace arvl_host {

// The page holds no script and fetches nothing, which its policy also forbids it; whatever the trace
// holds is shown as text. The caller looks at the stream's state.
void writeTracePage(const Trace &trace, std::ostream &out);

}  // namespace arvl_host

#endif  // ARVL_HOST_TRACE_TRACE_PAGE_H_
